#include "Zet/AttrLogStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"

namespace Zet {
namespace NboAttrLog {
namespace {

constexpr size_t kReadChunk = 64 * 1024;
// Bytes read in one turn before other descriptors get theirs.
constexpr size_t kReadBudget = 1 << 20;

ActivityLoop& loop() { return ActivityFacility::loop(); }

}  // namespace

AttrLogStream::AttrLogStream(SocketFd fd, bool connecting, Handler* handler, String8 peer)
    : fd_(std::move(fd)), handler_(handler), peer_(std::move(peer)), connecting_(connecting) {
  watchFor(connecting ? ActivityLoop::kWritable : ActivityLoop::kReadable);
}

AttrLogStream::~AttrLogStream() { close(); }

void AttrLogStream::close() {
  handler_ = nullptr;
  Ptr<AttrLogStream> lastHold = std::move(selfWhileClosing_);
  if (watching_ != 0) loop().fdWatcherDel(fd_.get());
  watching_ = 0;
  fd_.reset();
}

void AttrLogStream::closeAfterSending() {
  closing_ = true;
  handler_ = nullptr;
  if (pendingBytes() == 0 && !connecting_) return close();
  selfWhileClosing_ = this;  // whoever dropped the stream, the last bytes still go out
  sendSoon();
}

void AttrLogStream::watchFor(unsigned events) {
  if (!fd_.isOpen() || events == watching_) return;
  if (watching_ == 0) {
    loop().fdWatcherIs(fd_.get(), events, [this](unsigned ready) {
      Ptr<AttrLogStream> keep(this);
      onEvents(ready);
    });
  } else {
    loop().fdWatcherEventsIs(fd_.get(), events);
  }
  watching_ = events;
}

void AttrLogStream::onEvents(unsigned events) {
  if (connecting_) {
    if (events & (ActivityLoop::kWritable | ActivityLoop::kError)) onConnected();
    return;
  }
  if (events & (ActivityLoop::kReadable | ActivityLoop::kError)) readAvailable();
  if (fd_.isOpen() && (events & ActivityLoop::kWritable)) flush();
}

void AttrLogStream::onConnected() {
  if (int error = Socket::finishConnect(fd_.get()); error != 0)
    return fail(format("cannot connect to %s: %s", peer_.charPtr(), std::strerror(error)));
  connecting_ = false;
  watchFor(ActivityLoop::kReadable | (pendingBytes() ? unsigned(ActivityLoop::kWritable) : 0u));
}

void AttrLogStream::readAvailable() {
  size_t total = 0;
  while (total < kReadBudget) {
    size_t had = in_.size();
    in_.resize(had + kReadChunk);
    ssize_t n = ::read(fd_.get(), in_.data() + had, kReadChunk);
    in_.resize(had + (n > 0 ? size_t(n) : 0));
    if (n > 0) {
      total += size_t(n);
      if (size_t(n) < kReadChunk) break;  // drained: no need to hear EAGAIN say so
      continue;
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (n < 0 && errno == EINTR) continue;
    deliverFrames();  // what came before the end still counts
    if (!fd_.isOpen()) return;
    return fail(n == 0 ? format("%s closed the connection", peer_.charPtr())
                       : format("reading from %s failed: %s", peer_.charPtr(), std::strerror(errno)));
  }
  deliverFrames();
}

void AttrLogStream::deliverFrames() {
  std::string error;
  while (handler_) {
    size_t used = 0;
    std::string_view rest(in_.data() + consumed_, in_.size() - consumed_);
    Decoded d = decodeFrame(rest, message_, used, error);
    if (d == Decoded::needMore) break;
    if (d == Decoded::malformed) {
      ZET_TRACE_AT("NboAttrLog", 0) << "malformed frame from " << peer_ << ": " << error << "; closing";
      return fail(format("malformed frame from %s: %s", peer_.charPtr(), error.c_str()));
    }
    consumed_ += used;
    handler_->onMessage(message_);
  }
  if (consumed_ == in_.size()) {
    in_.clear();
    consumed_ = 0;
  } else if (consumed_ > in_.size() / 2) {
    in_.erase(0, consumed_);
    consumed_ = 0;
  }
}

void AttrLogStream::sendSoon() {
  if (flushQueued_ || !fd_.isOpen()) return;
  flushQueued_ = true;
  loop().deferredCallIs([self = Ptr<AttrLogStream>(this)] {
    self->flushQueued_ = false;
    self->flush();
  });
}

void AttrLogStream::flush() {
  if (!fd_.isOpen() || connecting_) return;
  while (true) {
    if (sent_ == out_.size()) {
      out_.clear();
      sent_ = 0;
      if (closing_) return close();
      // Room: the handler may add what it holds back (conflated changes).
      if (handler_) handler_->onRoom();
      if (out_.empty()) return watchFor(ActivityLoop::kReadable);
    }
    ssize_t n = ::send(fd_.get(), out_.data() + sent_, out_.size() - sent_, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      sent_ += size_t(n);
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return watchFor(ActivityLoop::kReadable | ActivityLoop::kWritable);
    } else if (n < 0 && errno != EINTR) {
      return writeFailed(errno);
    }
  }
}

// A peer that closed may have said why first (a server's refusal arrives
// before our greeting has gone out): what it sent is read and delivered
// before the failed write ends the stream.
void AttrLogStream::writeFailed(int error) {
  readAvailable();
  if (fd_.isOpen()) fail(format("writing to %s failed: %s", peer_.charPtr(), std::strerror(error)));
}

void AttrLogStream::fail(String8 const& reason) {
  Handler* handler = handler_;
  close();
  if (handler) handler->onStreamClosed(reason);
}

}  // namespace NboAttrLog
}  // namespace Zet
