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
#include <string_view>
#include <utility>
#include <vector>

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

// The first eight bytes of a name, the first most significant, zero past
// its end: names ordered by their keys are ordered as the names are, but
// for names that share their first eight bytes.
inline uint64_t nameKey(std::string_view name) {
  uint64_t key = 0;
  for (size_t i = 0; i < sizeof key; ++i) key = key << 8 | (i < name.size() ? uint8_t(name[i]) : 0);
  return key;
}

// The objects, each of which has a name(), ordered by name: a name is read
// once for its key and again only where keys tie, where sorting the pointers
// by their names would read two names at each of some twenty comparisons
// per object, each read a wait for memory in a set far larger than the cache.
template <class Object>
std::vector<Object*> sortedByName(std::vector<Object*> objects) {
  struct Keyed {
    uint64_t key;
    Object* object;
  };
  std::vector<Keyed> keyed;
  keyed.reserve(objects.size());
  for (Object* o : objects) keyed.push_back({nameKey(o->name().view()), o});
  sortByKey(
      keyed.data(), keyed.data() + keyed.size(), [](Keyed const& k) { return k.key; },
      [](Keyed const& a, Keyed const& b) {
        return a.key != b.key ? a.key < b.key : a.object->name().view() < b.object->name().view();
      });
  for (size_t i = 0; i < keyed.size(); ++i) objects[i] = keyed[i].object;
  return objects;
}

}  // namespace Zet::Tool
