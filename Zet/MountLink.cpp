#include "Zet/MountLink.h"

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"

namespace Zet {

using NboAttrLog::FrameWriter;
using NboAttrLog::Kind;

String8 MountLink::endpointKey(EntityUri const& source) {
  if (source.scheme() == EntityUri::Scheme::domainSocket) return "unix:" + source.socketPath();
  return format("tcp:%s:%u", source.host().charPtr(), unsigned(source.port()));
}

MountLink::MountLink(EntityUri const& source, std::function<void(MountLink*)> gone) : gone_(std::move(gone)) {
  String8 peer = source.scheme() == EntityUri::Scheme::domainSocket
                     ? format("domain socket '%s'", source.socketPath().charPtr())
                     : format("%s port %u", source.host().charPtr(), unsigned(source.port()));
  try {
    Socket::Connecting c = Socket::connectTo(source);
    stream_ = new NboAttrLog::AttrLogStream(std::move(c.fd), c.connecting, this, peer);
    FrameWriter(stream_->out()).hello();
    stream_->sendSoon();
  } catch (std::exception const& e) {
    // Told on the loop, once the subscribers that are about to come are there.
    String8 reason(e.what());
    ActivityFacility::loop().deferredCallIs(
        [self = Ptr<MountLink>(this), reason] { self->down(MountStatus::disconnected, reason); });
  }
}

MountLink::~MountLink() {
  if (stream_) stream_->close();
}

uint32_t MountLink::subscribe(Subscriber* subscriber, std::string_view path) {
  uint32_t subscription = ++lastSubscription_;
  subscribers_.emplace(subscription, subscriber);
  if (stream_ && stream_->isOpen()) {
    FrameWriter(stream_->out()).subscribe(subscription, path);
    stream_->sendSoon();
  }
  return subscription;
}

void MountLink::unsubscribe(uint32_t subscription) {
  if (!subscribers_.erase(subscription) || down_) return;
  if (!subscribers_.empty()) {
    FrameWriter(stream_->out()).unsubscribe(subscription);
    stream_->sendSoon();
    return;
  }
  down_ = true;
  if (stream_) stream_->close();
  gone_(this);
}

void MountLink::onMessage(NboAttrLog::Message const& m) {
  Ptr<MountLink> keep(this);  // a subscriber may let the link go
  if (!greeted_) return greet(m);
  if (m.kind == Kind::hello || m.kind == Kind::subscribe || m.kind == Kind::unsubscribe)
    return down(MountStatus::disconnected,
                format("%s sent a frame of kind %u, which only a client sends", stream_->peer().charPtr(),
                       unsigned(m.kind)));
  // Frames of a subscription given up are still on their way: dropped.
  if (auto found = subscribers_.find(m.subscription); found != subscribers_.end()) found->second->onFrame(m);
}

void MountLink::greet(NboAttrLog::Message const& m) {
  if (m.kind == Kind::refused)
    return down(MountStatus::permissionDenied, format("%s refused us: %.*s", stream_->peer().charPtr(),
                                                      int(m.name.size()), m.name.data()));
  if (m.kind != Kind::hello)
    return down(MountStatus::disconnected, format("%s did not begin with a greeting", stream_->peer().charPtr()));
  if (m.version != NboAttrLog::kProtocolVersion)
    return down(MountStatus::protocolVersionMismatch,
                format("%s speaks protocol version %u, this process %u", stream_->peer().charPtr(),
                       unsigned(m.version), unsigned(NboAttrLog::kProtocolVersion)));
  greeted_ = true;
}

void MountLink::onStreamClosed(String8 const& reason) { down(MountStatus::disconnected, reason); }

void MountLink::down(MountStatus::Code code, String8 const& reason) {
  if (down_) return;
  down_ = true;
  Ptr<MountLink> keep(this);
  ZET_TRACE_AT("MountFacility", 1) << "link down: " << reason;
  if (stream_) stream_->close();
  gone_(this);
  auto subscribers = std::move(subscribers_);
  subscribers_.clear();
  for (auto& [subscription, subscriber] : subscribers) subscriber->onLinkDown(code, reason);
}

}  // namespace Zet
