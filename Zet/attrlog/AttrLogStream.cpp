#include "Zet/attrlog/AttrLogStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/System.h"
#include "Zet/Trace.h"

namespace Zet {
namespace NboAttrLog {
namespace {

constexpr size_t kReadChunk = 64 * 1024;
// Bytes read in one turn before other descriptors get theirs.
constexpr size_t kReadBudget = 1 << 20;
// A buffer emptied keeps its storage up to this size; larger ones are given
// back, so a connection that once carried a burst costs little when idle.
constexpr size_t kKeptCapacity = 16 * 1024;
constexpr size_t kDefaultMaxHeldInput = size_t(64) << 20;

ActivityLoop& loop() { return ActivityFacility::loop(); }

// Bytes held for partial frames by every stream of the process.
std::atomic<size_t> heldInput{0};

size_t maxHeldInput() {
  static size_t const bound = System::getenvCount("ZET_ATTRLOG_MAX_INPUT", kDefaultMaxHeldInput);
  return bound;
}

void emptied(std::string& buffer) {
  if (buffer.capacity() > kKeptCapacity)
    std::string().swap(buffer);
  else
    buffer.clear();
}

}  // namespace

AttrLogStream::AttrLogStream(SocketFd fd, bool connecting, Handler* handler, String8 peer)
    : fd_(std::move(fd)), handler_(handler), peer_(std::move(peer)), connecting_(connecting) {
  watchFor(connecting ? ActivityLoop::kWritable : ActivityLoop::kReadable);
}

AttrLogStream::~AttrLogStream() { close(); }

void AttrLogStream::close() {
  handler_ = nullptr;
  holdInput(0);
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

// Bytes are read into one buffer shared by every stream of the thread and
// decoded from there; only the start of a frame still incomplete is kept by
// the stream, so an idle connection holds no read buffer.
void AttrLogStream::readAvailable() {
  static thread_local std::unique_ptr<char[]> scratch(new char[kReadChunk]);
  size_t total = 0;
  while (total < kReadBudget) {
    ssize_t n = ::read(fd_.get(), scratch.get(), kReadChunk);
    if (n > 0) {
      total += size_t(n);
      received(std::string_view(scratch.get(), size_t(n)));
      if (!fd_.isOpen()) return;
      if (size_t(n) < kReadChunk) break;  // drained: no need to hear EAGAIN say so
      continue;
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (n < 0 && errno == EINTR) continue;
    return fail(n == 0 ? format("%s closed the connection", peer_.charPtr())
                       : format("reading from %s failed: %s", peer_.charPtr(), std::strerror(errno)));
  }
}

void AttrLogStream::received(std::string_view bytes) {
  if (in_.empty()) {
    size_t used = deliverFrames(bytes);
    if (handler_) in_.assign(bytes.substr(used));
  } else {
    in_.append(bytes);
    size_t used = deliverFrames(in_);
    in_.erase(0, used);
  }
  if (!handler_) return;
  if (in_.empty()) emptied(in_);
  if (holdInput(in_.size())) return;
  fail(format("%s sends more than the %zu bytes of partial frames all connections may hold", peer_.charPtr(),
              maxHeldInput()));
}

// Delivers the whole frames at the start of bytes; returns the bytes used.
size_t AttrLogStream::deliverFrames(std::string_view bytes) {
  std::string error;
  size_t consumed = 0;
  while (handler_) {
    size_t used = 0;
    Decoded d = decodeFrame(bytes.substr(consumed), message_, used, error);
    if (d == Decoded::needMore) break;
    if (d == Decoded::malformed) {
      ZET_TRACE_AT("NboAttrLog", 0) << "malformed frame from " << peer_ << ": " << error << "; closing";
      fail(format("malformed frame from %s: %s", peer_.charPtr(), error.c_str()));
      break;
    }
    consumed += used;
    handler_->onMessage(message_);
  }
  return consumed;
}

// A partial frame no larger than one read is always held, so peers that
// hold large partial frames cannot keep others from sending small ones.
bool AttrLogStream::holdInput(size_t bytes) {
  if (!inputBounded_) return true;
  size_t total = heldInput.fetch_add(bytes - held_) + bytes - held_;
  held_ = bytes;
  return total <= maxHeldInput() || bytes <= kReadChunk;
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
      emptied(out_);
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
