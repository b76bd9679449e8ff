#pragma once
// AttrLogSession: the serving end of one connection from a mounting peer.
//
// It greets the peer with its protocol version (or, for a domain-socket
// peer whose user is not allowed, with a refusal, then closes), checks the
// peer's greeting, and serves each subscription the peer asks for as a
// ServedTree. Changed entities go out when the connection has room; frames
// that must go out in order (entities added and removed) are written at
// once, and a peer that lets more than the bound of bytes wait is
// disconnected, so a slow peer costs bounded memory and never blocks the
// process. The bound counts snapshots too: it must exceed the largest
// snapshot a peer may ask for, unless its bounds set snapshots aside (for
// the process's own tools, which mount whole trees). What a peer's
// subscriptions keep is bounded as well: a peer whose subscriptions
// together watch more entities than its bound (each subscription counts
// every entity below its path, though subscriptions of one entity share
// their record of it) is disconnected, and it may hold 65536 subscriptions
// at most.

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "Zet/attrlog/AttrLogStream.h"
#include "Zet/attrlog/ServedTree.h"

namespace Zet {
namespace NboAttrLog {

class AttrLogSession final : private AttrLogStream::Handler, private ServedTree::Outlet {
 public:
  // Told once when the session has ended and may be destroyed (not from
  // within the session's own call stack: the owner defers it).
  using Ended = std::function<void(AttrLogSession*)>;

  // What one peer may cost.
  struct Bounds {
    size_t pendingBytes;     // bytes waiting to be sent
    size_t watchedEntities;  // entities its subscriptions watch together
    // Whether pendingBytes is counted beside the bytes of the snapshots
    // its subscriptions were sent, however large, rather than over them.
    bool snapshotsAside = false;
  };

  // Serves the accepted connection fd, over TLS when given `tls`;
  // `refusal` non-empty refuses it.
  AttrLogSession(SocketFd fd, std::unique_ptr<TlsChannel> tls, String8 peer, String8 const& refusal, Bounds bounds,
                 Ended ended);
  ~AttrLogSession();

  String8 const& peer() const { return stream_->peer(); }
  size_t pendingBytes() const { return stream_->pendingBytes(); }

 private:
  void onMessage(Message const& message) override;
  void onStreamClosed(String8 const& reason, bool refused) override;
  void onRoom() override;
  std::string& frames() override { return stream_->out(); }
  void framesAdded() override;
  void changesWaiting() override {
    if (!finished_) stream_->sendSoon();
  }

  struct Served {
    std::unique_ptr<ServedTree> tree;
    size_t snapshotBytes = 0;  // of the snapshot it was sent
  };

  void greet(Message const& message);
  // Ends the session with a trace line saying why.
  void end(String8 const& reason);
  // Tells the owner, once, that the session may be destroyed.
  void finish();

  Ptr<AttrLogStream> stream_;
  Bounds bounds_;
  size_t watched_ = 0;  // entities watched by all the trees
  size_t liveSnapshotBytes_ = 0;  // of the snapshots its subscriptions were sent
  Ended ended_;
  bool greeted_ = false;
  bool finished_ = false;
  std::unordered_map<uint32_t, Served> trees_;  // by subscription
};

}  // namespace NboAttrLog
}  // namespace Zet
