#pragma once
// Services of the operating system the framework's users need.

#include <cstddef>

#include "Zet/String8.h"

namespace Zet {
namespace System {

// The value of an environment variable; empty when it is unset.
String8 getenv(char const* name);
// An environment variable holding a positive decimal number, or byDefault
// when it is unset or holds anything else.
size_t getenvCount(char const* name, size_t byDefault);
// This host's name; empty when the system cannot tell.
String8 hostname();

}  // namespace System
}  // namespace Zet
