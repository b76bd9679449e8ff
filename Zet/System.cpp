#include "Zet/System.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace Zet::System {

String8 getenv(char const* name) { return String8(std::getenv(name)); }

String8 hostname() {
  char buf[HOST_NAME_MAX + 1] = {};
  if (gethostname(buf, sizeof buf - 1) != 0) return String8();
  return String8(buf);
}

}  // namespace Zet::System
