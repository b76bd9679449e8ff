#pragma once
// Sorts records by a 64-bit key, most significant byte first, in place: one
// pass counts the records of each value of a byte, a second swaps each
// record into the bucket of its value, and each bucket is then sorted by the
// next byte. A small bucket, or one whose records share the whole key, is
// left to `less`, which orders records by their key first and breaks ties
// of the key itself. A million records are moved a few times each, where a
// comparison sort moves each some twenty times, and no memory is taken
// beside the records.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Zet::Tool {

template <class Record, class KeyOf, class Less>
void sortByKey(Record* first, Record* last, KeyOf const& keyOf, Less const& less, unsigned byte = 0) {
  constexpr ptrdiff_t kComparedBelow = 64;
  if (last - first < kComparedBelow || byte == sizeof(uint64_t)) return std::sort(first, last, less);
  auto valueOf = [&](Record const& r) { return static_cast<uint8_t>(uint64_t(keyOf(r)) >> (56 - 8 * byte)); };
  std::array<size_t, 256> count{};
  for (Record* r = first; r != last; ++r) ++count[valueOf(*r)];
  std::array<Record*, 256> next, end;
  Record* at = first;
  for (size_t v = 0; v < 256; ++v) {
    next[v] = at;
    end[v] = at += count[v];
  }
  for (size_t v = 0; v < 256; ++v)
    while (next[v] != end[v]) {
      uint8_t to = valueOf(*next[v]);
      if (to == v)
        ++next[v];
      else
        std::swap(*next[v], *next[to]++);
    }
  for (size_t v = 0; v < 256; ++v)
    if (count[v] > 1) sortByKey(end[v] - count[v], end[v], keyOf, less, byte + 1);
}

}  // namespace Zet::Tool
