#pragma once
// ZET_SANITIZED_BUILD is defined when the address sanitizer is built in: it
// keeps freed memory aside and probes memory through descriptors of its own,
// so tests of resident memory and of descriptor limits do not hold there.

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZET_SANITIZED_BUILD 1
#endif
#endif
