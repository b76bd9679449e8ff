#include "Zet/System.h"

#include <charconv>

#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace Zet::System {

String8 getenv(char const* name) { return String8(std::getenv(name)); }

size_t getenvCount(char const* name, size_t byDefault) {
  String8 text = getenv(name);
  size_t count = 0;
  auto [end, ec] = std::from_chars(text.charPtr(), text.charPtr() + text.size(), count);
  return ec == std::errc() && end == text.charPtr() + text.size() && count > 0 ? count : byDefault;
}

String8 hostname() {
  char buf[HOST_NAME_MAX + 1] = {};
  if (gethostname(buf, sizeof buf - 1) != 0) return String8();
  return String8(buf);
}

}  // namespace Zet::System
