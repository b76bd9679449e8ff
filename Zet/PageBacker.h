#pragma once
// PageBacker: has the system back pages of anonymous memory ahead of their
// use, on a thread of its own, so that the thread that will use them does
// not stop for each page to be found and zeroed. On a machine with a core to
// spare, the zeroing of fresh memory leaves the critical path.
//
// Backing is a hint. A range asked for is backed soon, or not at all when
// the thread cannot be started or too many ranges are waiting; a page
// touched first is backed by that touch, as always. Contents never change:
// backing a page already backed leaves it as it is.
//
// A range must stay mapped until it is forgotten: forget() drops what still
// waits in the range and waits for a backing in progress there to end; the
// thread does not touch the range after that. Ranges mapped for the life of
// the process need not be forgotten. A forked child backs nothing ahead.

#include <cstddef>

namespace Zet::PageBacker {

// Asks for [begin, begin + bytes) to be backed soon; returns at once,
// whether the range will be backed (false when it was not taken).
bool backSoon(void* begin, size_t bytes) noexcept;
// Makes sure nothing in [begin, begin + bytes) is being or will be backed.
void forget(void* begin, size_t bytes) noexcept;

}  // namespace Zet::PageBacker
