#pragma once
// AttrLogStream: one attribute-log connection on the process's activity
// loop, from either end. It reads frames as they arrive and hands each,
// decoded, to its handler; frames written into out() are sent soon after
// (once per loop turn, however many were written), without ever blocking:
// what the socket does not take waits in out() until it is writable.
//
// The stream ends when the peer closes, a read or write fails, or a frame is
// malformed; the handler hears why once (onStreamClosed) and the stream
// closes its socket. A handler may drop the stream from any of its callbacks.
//
// Given a TlsChannel, the stream speaks TLS: frames written before the
// handshake is done wait for it, and a handshake that does not end within
// the identity's bound ends the stream. A server stream refuses, with a
// `refused` frame and a trace line, a peer that does not speak TLS (in
// plain text) and a client certificate its identity does not allow (over
// TLS); a handshake that fails is traced and ends the stream.
//
// Memory follows need: a stream keeps received bytes only while a frame is
// incomplete, and gives back the storage of a buffer it has emptied once it
// grew past a few KiB. What the streams of accepted peers hold together for
// incomplete frames is bounded (ZET_ATTRLOG_MAX_INPUT bytes, 64 MiB by
// default): such a stream whose partial frame, larger than one read, would
// pass the bound ends. Streams this process connected are not counted: a
// peer it never chose cannot starve its mounts.

#include <memory>
#include <string>

#include "Zet/ActivityLoop.h"
#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/attrlog/AttrLogProtocol.h"
#include "Zet/attrlog/Socket.h"
#include "Zet/attrlog/TlsChannel.h"

namespace Zet {
namespace NboAttrLog {

class AttrLogStream : public PtrInterface {
 public:
  class Handler {
   public:
    virtual void onMessage(Message const& message) = 0;
    // The stream has ended; reason says why, for traces and statuses.
    // `refused`: one end turned the other down before anything was
    // exchanged (a certificate, TLS spoken to plain text or the reverse).
    virtual void onStreamClosed(String8 const& reason, bool refused) = 0;
    // Everything written so far has gone out (or nothing was written): the
    // handler may write what it has held back. Called again as long as it
    // writes something and the socket takes it.
    virtual void onRoom() {}

   protected:
    ~Handler() = default;
  };

  // Takes over fd; `connecting` when a connect is still under way. `peer`
  // names the other end in traces. With `tls`, the stream speaks TLS.
  AttrLogStream(SocketFd fd, bool connecting, Handler* handler, String8 peer,
                std::unique_ptr<TlsChannel> tls = nullptr);
  ~AttrLogStream() override;

  String8 const& peer() const { return peer_; }
  // Counts the stream's partial frames against the process's bound (for
  // the streams of accepted peers).
  void inputBoundedIs(bool bounded) { inputBounded_ = bounded; }
  int fd() const { return fd_.get(); }
  bool isOpen() const { return handler_ != nullptr; }

  // Frames appended here go out on the next flush, which sendSoon asks for.
  std::string& out() { return out_; }
  void sendSoon();
  // Bytes written but not yet taken by the socket.
  size_t pendingBytes() const { return out_.size() - sent_; }
  // Sends what is pending, then closes without telling the handler.
  void closeAfterSending();
  // Closes at once; the handler hears nothing more.
  void close();

 private:
  using Io = TlsChannel::Io;

  void onEvents(unsigned events);
  void onConnected();
  void shakeHands();
  void handshakeTimerIs(bool armed);
  // Refuses the peer of a server stream: it hears why, then the stream
  // closes; the handler hears it as a refusal.
  void refuse(String8 why);
  // Reads and sends through TLS or on the bare socket; a problem leaves
  // its description in problem_.
  Io receive(char* bytes, size_t capacity, size_t& n);
  Io transmit(char const* bytes, size_t size, size_t& n);
  // The loop's interest for an operation that could not go on.
  void await(Io io);
  void readAvailable();
  void received(std::string_view bytes);
  size_t deliverFrames(std::string_view bytes);
  // Counts `bytes` as what this stream holds for a partial frame; false
  // when that takes the process past its bound.
  bool holdInput(size_t bytes);
  void flush();
  void watchFor(unsigned events);
  void writeFailed(Io io);
  // Ends the stream and tells the handler why.
  void fail(String8 const& reason, bool refused = false);

  SocketFd fd_;
  Handler* handler_;
  String8 peer_;
  std::string in_;     // the start of a frame still incomplete
  size_t held_ = 0;    // in_'s bytes as counted in the process's total
  bool inputBounded_ = false;
  std::string out_;    // bytes to send; out_[0, sent_) are sent
  size_t sent_ = 0;
  unsigned watching_ = 0;
  bool connecting_;
  bool flushQueued_ = false;
  bool closing_ = false;
  Message message_;  // reused for every frame
  std::unique_ptr<TlsChannel> tls_;
  ActivityLoop::TimerId handshakeTimer_ = 0;
  String8 problem_;  // what the last failed receive or transmit met
  Ptr<AttrLogStream> selfWhileClosing_;
};

}  // namespace NboAttrLog
}  // namespace Zet
