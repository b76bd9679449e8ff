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
#include "Zet/attrlog/TlsIdentity.h"

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

AttrLogStream::AttrLogStream(SocketFd fd, bool connecting, Handler* handler, String8 peer,
                             std::unique_ptr<TlsChannel> tls)
    : fd_(std::move(fd)), handler_(handler), peer_(std::move(peer)), connecting_(connecting), tls_(std::move(tls)) {
  watchFor(connecting ? ActivityLoop::kWritable : ActivityLoop::kReadable);
  if (tls_ && !connecting) handshakeTimerIs(true);
}

// A peer that stalls in the handshake holds a descriptor and a TLS state:
// it has a bounded time to finish, from the moment it is connected.
void AttrLogStream::handshakeTimerIs(bool armed) {
  if (handshakeTimer_) loop().timerDel(handshakeTimer_);
  handshakeTimer_ = 0;
  if (!armed) return;
  double bound = TlsIdentity::process().handshakeSeconds();
  handshakeTimer_ = loop().timerIs(bound, [this, bound] {
    handshakeTimer_ = 0;
    Ptr<AttrLogStream> keep(this);
    String8 why = format("the TLS handshake was not done within %g s", bound);
    if (tls_ && tls_->isServer()) {
      ZET_TRACE_AT("NboAttrLog", 0) << "dropping " << peer_ << ": " << why;
    }
    fail(format("%s: %s", peer_.charPtr(), why.charPtr()));
  });
}

AttrLogStream::~AttrLogStream() { close(); }

void AttrLogStream::close() {
  handler_ = nullptr;
  holdInput(0);
  Ptr<AttrLogStream> lastHold = std::move(selfWhileClosing_);
  if (watching_ != 0) loop().fdWatcherDel(fd_.get());
  watching_ = 0;
  handshakeTimerIs(false);
  if (tls_) tls_->shutdown();
  tls_.reset();
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
  if (tls_ && !tls_->established()) return shakeHands();
  if (events & (ActivityLoop::kReadable | ActivityLoop::kError)) readAvailable();
  // TLS may need to read before it can write again: pending bytes are
  // tried whatever woke the stream.
  if (fd_.isOpen() && ((events & ActivityLoop::kWritable) || (tls_ && pendingBytes()))) flush();
}

void AttrLogStream::onConnected() {
  if (int error = Socket::finishConnect(fd_.get()); error != 0)
    return fail(format("cannot connect to %s: %s", peer_.charPtr(), std::strerror(error)));
  connecting_ = false;
  if (!tls_) return watchFor(ActivityLoop::kReadable | (pendingBytes() ? unsigned(ActivityLoop::kWritable) : 0u));
  handshakeTimerIs(true);
  shakeHands();
}

void AttrLogStream::shakeHands() {
  Io io = tls_->handshake();
  if (io == Io::wantRead || io == Io::wantWrite) return await(io);
  if (io == Io::done) {
    handshakeTimerIs(false);
    watchFor(ActivityLoop::kReadable);
    // The peer's first frames may have come with its last handshake bytes.
    readAvailable();
    if (fd_.isOpen()) flush();
    return;
  }
  bool refused = io == Io::refused || io == Io::plainPeer;
  if (tls_->isServer() && refused && (io == Io::plainPeer || tls_->established())) return refuse(tls_->problem());
  String8 why = io == Io::closed ? String8("the peer closed the connection during the TLS handshake") : tls_->problem();
  if (tls_->isServer()) {
    ZET_TRACE_AT("NboAttrLog", refused ? 0 : 1) << (refused ? "refusing " : "lost ") << peer_ << ": " << why;
  }
  fail(format("TLS with %s failed: %s", peer_.charPtr(), why.charPtr()), refused);
}

void AttrLogStream::refuse(String8 why) {
  ZET_TRACE_AT("NboAttrLog", 0) << "refusing " << peer_ << ": " << why;
  handshakeTimerIs(false);
  if (tls_ && !tls_->established()) tls_.reset();  // it hears why in plain text
  // What the peer sent is read first: a socket closed with unread bytes
  // resets the connection, and the peer could lose the refusal.
  char sink[4096];
  size_t n = 0, discarded = 0;
  while (discarded < kReadChunk && receive(sink, sizeof sink, n) == Io::done) discarded += n;
  Handler* handler = handler_;
  out_.clear();
  sent_ = 0;
  FrameWriter(out_).refused(why.view());
  closeAfterSending();
  if (handler) handler->onStreamClosed(format("refused %s: %s", peer_.charPtr(), why.charPtr()), true);
}

TlsChannel::Io AttrLogStream::receive(char* bytes, size_t capacity, size_t& n) {
  if (tls_) {
    Io io = tls_->read(bytes, capacity, n);
    problem_ = tls_->problem();
    return io;
  }
  while (true) {
    ssize_t r = ::read(fd_.get(), bytes, capacity);
    if (r > 0) n = size_t(r);
    if (r >= 0) return r > 0 ? Io::done : Io::closed;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Io::wantRead;
    if (errno == EINTR) continue;
    problem_ = std::strerror(errno);
    return Io::failed;
  }
}

TlsChannel::Io AttrLogStream::transmit(char const* bytes, size_t size, size_t& n) {
  if (tls_) {
    Io io = tls_->write(bytes, size, n);
    problem_ = tls_->problem();
    return io;
  }
  while (true) {
    ssize_t r = ::send(fd_.get(), bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (r >= 0) n = size_t(r);
    if (r >= 0) return Io::done;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Io::wantWrite;
    if (errno == EINTR) continue;
    problem_ = std::strerror(errno);
    return Io::failed;
  }
}

void AttrLogStream::await(Io io) {
  watchFor(io == Io::wantWrite ? ActivityLoop::kReadable | ActivityLoop::kWritable : ActivityLoop::kReadable);
}

// Bytes are read into one buffer shared by every stream of the thread and
// decoded from there; only the start of a frame still incomplete is kept by
// the stream, so an idle connection holds no read buffer.
void AttrLogStream::readAvailable() {
  static thread_local std::unique_ptr<char[]> scratch(new char[kReadChunk]);
  size_t total = 0;
  while (total < kReadBudget) {
    size_t n = 0;
    Io io = receive(scratch.get(), kReadChunk, n);
    if (io == Io::done) {
      total += n;
      received(std::string_view(scratch.get(), n));
      if (!fd_.isOpen()) return;
      // Drained: no need to hear EAGAIN say so (unless TLS still holds
      // bytes it read ahead).
      if (n < kReadChunk && !(tls_ && tls_->hasPending())) break;
      continue;
    }
    if (io == Io::wantRead) break;
    if (io == Io::wantWrite) return await(io);
    if (io == Io::closed) return fail(format("%s closed the connection", peer_.charPtr()));
    return fail(format("reading from %s failed: %s", peer_.charPtr(), problem_.charPtr()), io == Io::refused);
  }
  // Past the budget, records TLS has read ahead wait in it, where the loop
  // cannot see them: they are read on the next turn. (Short of it, what
  // waits is a partial record: the socket says when the rest comes.)
  if (total >= kReadBudget && tls_ && tls_->hasPending())
    loop().deferredCallIs([self = Ptr<AttrLogStream>(this)] {
      if (self->tls_) self->readAvailable();
    });
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
  if (!fd_.isOpen() || connecting_ || (tls_ && !tls_->established())) return;
  while (true) {
    if (sent_ == out_.size()) {
      emptied(out_);
      sent_ = 0;
      if (closing_) return close();
      // Room: the handler may add what it holds back (conflated changes).
      if (handler_) handler_->onRoom();
      if (out_.empty()) return watchFor(ActivityLoop::kReadable);
    }
    size_t n = 0;
    Io io = transmit(out_.data() + sent_, out_.size() - sent_, n);
    if (io == Io::done)
      sent_ += n;
    else if (io == Io::wantRead || io == Io::wantWrite)
      return await(io);
    else
      return writeFailed(io);
  }
}

// A peer that closed may have said why first (a server's refusal arrives
// before our greeting has gone out): what it sent is read and delivered
// before the failed write ends the stream.
void AttrLogStream::writeFailed(Io io) {
  String8 problem = io == Io::closed ? String8("the peer closed the connection") : problem_;
  readAvailable();
  if (fd_.isOpen()) fail(format("writing to %s failed: %s", peer_.charPtr(), problem.charPtr()), io == Io::refused);
}

void AttrLogStream::fail(String8 const& reason, bool refused) {
  Handler* handler = handler_;
  close();
  if (handler) handler->onStreamClosed(reason, refused);
}

}  // namespace NboAttrLog
}  // namespace Zet
