#include "Zet/Format.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace Zet {

String8 format(char const* fmt, ...) {
  char small[256];
  va_list args;
  va_start(args, fmt);
  int n = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  if (n < 0) return String8();
  if (static_cast<size_t>(n) < sizeof small) return String8(small, static_cast<size_t>(n));
  std::string big(static_cast<size_t>(n) + 1, '\0');
  va_start(args, fmt);
  std::vsnprintf(big.data(), big.size(), fmt, args);
  va_end(args);
  big.resize(static_cast<size_t>(n));
  return String8(big);
}

}  // namespace Zet
