#include "Zet/Exception.h"

#include "Zet/Trace.h"

namespace Zet {
namespace {
// Read on every Expect scope (one per instantiation attempt): the
// initial-exec model reaches it without a call.
[[gnu::tls_model("initial-exec")]] thread_local uint32_t expectedKinds = 0;
}

Exception::Exception(String8 text, uint32_t kinds) : text_(std::move(text)), kinds_(kinds | kException) {
  traceIfUnexpected();
}

void Exception::traceIfUnexpected() const {
  if (!Expect::isExpected(kinds_)) {
    ZET_TRACE_AT("Exception", 1) << "unexpected exception: " << text_;
  }
}

void throwRangeException(String8 text) { throw RangeException(std::move(text)); }

Expect::Expect(uint32_t kinds) : saved_(expectedKinds) { expectedKinds |= kinds; }
Expect::~Expect() { expectedKinds = saved_; }

bool Expect::isExpected(uint32_t kinds) noexcept { return (expectedKinds & kinds) != 0; }

}  // namespace Zet
