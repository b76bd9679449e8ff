#include "Zet/Value.h"

#include <locale.h>
#include <stdlib.h>

#include <cmath>
#include <cstdlib>
#include <string>

namespace Zet {

void throwJunk(size_t column, std::string_view text) {
  throwRangeException(format("junk at column %lld deserializing %.*s", static_cast<long long>(column),
                             static_cast<int>(text.size()), text.data()));
}

size_t ValueText<bool>::parse(std::string_view t, bool& v) {
  for (bool candidate : {true, false}) {
    std::string_view word = candidate ? "true" : "false";
    if (t.substr(0, word.size()) == word) {
      v = candidate;
      return word.size();
    }
  }
  throwRangeException(format("no boolean deserializing %.*s", int(t.size()), t.data()));
}

String8 ValueText<double>::text(double v) {
  char buf[32];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  return String8(buf, static_cast<size_t>(r.ptr - buf));
}

// strtod in the "C" locale: the same answer whatever locale the process set.
static double strtodClassic(std::string const& text) {
  static locale_t const classic = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, classic);
}

size_t ValueText<double>::parse(std::string_view t, double& v) {
  auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  if (r.ec == std::errc::result_out_of_range) {
    // from_chars leaves v alone out of range; strtod's answer (inf, or 0 for
    // an underflow) is the useful one.
    v = strtodClassic(std::string(t.substr(0, static_cast<size_t>(r.ptr - t.data()))));
  } else if (r.ec != std::errc()) {
    throwRangeException(format("no number deserializing %.*s", int(t.size()), t.data()));
  }
  return static_cast<size_t>(r.ptr - t.data());
}

String8 enumText(std::string_view typeName, std::string_view const* texts, size_t count, long long value) {
  if (value >= 0 && static_cast<unsigned long long>(value) < count) return String8(texts[value]);
  return format("%.*s(%lld)", static_cast<int>(typeName.size()), typeName.data(), value);
}

size_t enumParse(std::string_view typeName, std::string_view const* texts, size_t count, std::string_view t,
                 long long& value) {
  size_t best = 0;
  for (size_t i = 0; i < count; ++i) {
    if (texts[i].size() > best && t.substr(0, texts[i].size()) == texts[i]) {
      best = texts[i].size();
      value = static_cast<long long>(i);
    }
  }
  if (best == 0)
    throwRangeException(format("no %.*s value deserializing %.*s", int(typeName.size()), typeName.data(),
                               int(t.size()), t.data()));
  return best;
}

}  // namespace Zet
