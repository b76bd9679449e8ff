#pragma once
// printf-style formatting into a String8.

#include "Zet/String8.h"

namespace Zet {

String8 format(char const* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Zet
