#pragma once
// Services of the operating system the framework's users need.

#include "Zet/String8.h"

namespace Zet {
namespace System {

// The value of an environment variable; empty when it is unset.
String8 getenv(char const* name);
// This host's name; empty when the system cannot tell.
String8 hostname();

}  // namespace System
}  // namespace Zet
