#include "Zet/attrlog/AttrLogSession.h"

#include <algorithm>
#include <cstdint>

#include "Zet/Format.h"
#include "Zet/Trace.h"

namespace Zet {
namespace NboAttrLog {
namespace {

// Changes are written in slices of this size, so one flush never holds
// more than this beyond what is already waiting.
constexpr size_t kChangeSlice = 256 * 1024;
// Subscriptions one peer may hold at a time.
constexpr size_t kMaxSubscriptions = 65536;

}  // namespace

AttrLogSession::AttrLogSession(SocketFd fd, std::unique_ptr<TlsChannel> tls, String8 peer, String8 const& refusal,
                               Bounds bounds, Ended ended)
    : stream_(new AttrLogStream(std::move(fd), false, this, std::move(peer), std::move(tls))),
      bounds_(bounds),
      ended_(std::move(ended)) {
  stream_->inputBoundedIs(true);
  FrameWriter writer(stream_->out());
  if (!refusal.isEmpty()) {
    ZET_TRACE_AT("NboAttrLog", 0) << "refusing " << stream_->peer() << ": " << refusal;
    writer.refused(refusal.view());
    stream_->closeAfterSending();
    finish();
    return;
  }
  writer.hello();
  stream_->sendSoon();
}

AttrLogSession::~AttrLogSession() {
  trees_.clear();
  if (stream_->isOpen()) stream_->close();
}

void AttrLogSession::finish() {
  if (finished_) return;
  finished_ = true;
  // The trees stay until the session is destroyed: one of them may be on the
  // call stack now. Nothing they write goes out any more.
  ended_(this);
}

void AttrLogSession::onMessage(Message const& m) {
  if (!greeted_) return greet(m);
  switch (m.kind) {
    case Kind::subscribe: {
      if (trees_.size() >= kMaxSubscriptions && !trees_.count(m.subscription))
        return end(format("%s holds more than %zu subscriptions", stream_->peer().charPtr(), kMaxSubscriptions));
      Served& served = trees_[m.subscription];
      liveSnapshotBytes_ -= served.snapshotBytes;  // a subscription replaced
      served.tree = std::make_unique<ServedTree>(static_cast<ServedTree::Outlet&>(*this), m.subscription, watched_);
      size_t before = frames().size();
      served.tree->serve(m.name);
      served.snapshotBytes = frames().size() - before;
      liveSnapshotBytes_ += served.snapshotBytes;
      return framesAdded();
    }
    case Kind::unsubscribe:
      if (auto found = trees_.find(m.subscription); found != trees_.end()) {
        liveSnapshotBytes_ -= found->second.snapshotBytes;
        trees_.erase(found);
      }
      return;
    default:
      end(format("%s sent a frame of kind %u, which only a server sends", stream_->peer().charPtr(), unsigned(m.kind)));
  }
}

void AttrLogSession::greet(Message const& m) {
  Greeting greeting = greetingOf(m);
  if (greeting == Greeting::missing) return end(String8(greetingProblem(greeting, m, stream_->peer().view())));
  if (greeting == Greeting::otherVersion) {
    // Our greeting, already sent, tells the peer which version we speak.
    ZET_TRACE_AT("NboAttrLog", 0) << greetingProblem(greeting, m, stream_->peer().view()) << "; closing";
    stream_->closeAfterSending();
    return finish();
  }
  greeted_ = true;
}

void AttrLogSession::framesAdded() {
  if (finished_) return;
  size_t bound = bounds_.pendingBytes;
  if (bounds_.snapshotsAside) bound += std::min(liveSnapshotBytes_, SIZE_MAX - bound);
  if (stream_->pendingBytes() > bound)
    return end(format("%s stays behind: %zu bytes wait to be sent, more than the bound of %zu",
                      stream_->peer().charPtr(), stream_->pendingBytes(), bound));
  if (watched_ > bounds_.watchedEntities)
    return end(format("%s watches %zu entities through its subscriptions, more than the bound of %zu",
                      stream_->peer().charPtr(), watched_, bounds_.watchedEntities));
  stream_->sendSoon();
}

void AttrLogSession::onRoom() {
  // What does not fit goes out with the next slice, once this one has gone.
  for (auto& [subscription, served] : trees_) served.tree->writeChanges(kChangeSlice);
}

void AttrLogSession::onStreamClosed(String8 const& reason, bool) {
  ZET_TRACE_AT("NboAttrLog", 1) << "session with " << stream_->peer() << " ended: " << reason;
  finish();
}

void AttrLogSession::end(String8 const& reason) {
  ZET_TRACE_AT("NboAttrLog", 0) << reason << "; disconnecting";
  stream_->close();
  finish();
}

}  // namespace NboAttrLog
}  // namespace Zet
