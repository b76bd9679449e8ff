#include "Zet/mount/MountLink.h"

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"
#include "Zet/attrlog/TlsIdentity.h"

namespace Zet {

using NboAttrLog::FrameWriter;
using NboAttrLog::Kind;

String8 MountLink::endpointKey(EntityUri const& source) {
  if (source.scheme() == EntityUri::Scheme::domainSocket) return "unix:" + source.socketPath();
  bool tls = source.scheme() == EntityUri::Scheme::tls;
  return format("%s:%s:%u", tls ? "tls" : "tcp", source.host().charPtr(), unsigned(source.port()));
}

MountLink::MountLink(EntityUri const& source, std::function<void(MountLink*)> gone)
    : host_(source.host()), tls_(source.scheme() == EntityUri::Scheme::tls), gone_(std::move(gone)) {
  FrameWriter(early_).hello();
  bool domain = source.scheme() == EntityUri::Scheme::domainSocket;
  peer_ = domain ? format("domain socket '%s'", source.socketPath().charPtr())
                 : format("%s port %u", source.host().charPtr(), unsigned(source.port()));
  // What goes wrong from here is told on the loop, once the subscribers
  // that are about to come are there.
  if (tls_ && !NboAttrLog::TlsIdentity::process().clientContext()) {
    NboAttrLog::TlsIdentity const& identity = NboAttrLog::TlsIdentity::process();
    String8 reason = format("cannot mount from %s over TLS: %s", peer_.charPtr(),
                            identity.configured() ? identity.problem().charPtr()
                                                  : "this process has no certificate (ZET_ATTRLOG_TLS_CERT, "
                                                    "ZET_ATTRLOG_TLS_KEY and ZET_ATTRLOG_TLS_CA)");
    ActivityFacility::loop().deferredCallIs(
        [self = Ptr<MountLink>(this), reason] { self->down(MountStatus::permissionDenied, reason); });
    return;
  }
  try {
    HostResolution::Address address;
    if (domain) {
      connected(Socket::connectToDomain(source.socketPath()));
    } else if (numericAddress(source.host(), source.port(), address)) {
      connect(reinterpret_cast<sockaddr const*>(&address.storage), address.size);
    } else {
      resolution_ = std::make_unique<HostResolution>(
          source.host(), source.port(), [this](HostResolution::Address const* address, String8 const& error) {
            Ptr<MountLink> keep(this);
            if (!address) return down(MountStatus::disconnected, format("cannot resolve %s: %s", peer_.charPtr(), error.charPtr()));
            connect(reinterpret_cast<sockaddr const*>(&address->storage), address->size);
          });
    }
  } catch (std::exception const& e) {
    String8 reason(e.what());
    ActivityFacility::loop().deferredCallIs(
        [self = Ptr<MountLink>(this), reason] { self->down(MountStatus::disconnected, reason); });
  }
}

MountLink::~MountLink() {
  if (stream_) stream_->close();
}

void MountLink::connect(sockaddr const* address, socklen_t size) {
  try {
    connected(Socket::connectTo(address, size, format("cannot connect to %s", peer_.charPtr())));
  } catch (std::exception const& e) {
    String8 reason(e.what());
    ActivityFacility::loop().deferredCallIs(
        [self = Ptr<MountLink>(this), reason] { self->down(MountStatus::disconnected, reason); });
  }
}

void MountLink::connected(Socket::Connecting connection) {
  std::unique_ptr<NboAttrLog::TlsChannel> tls;
  if (tls_) tls = NboAttrLog::TlsChannel::client(NboAttrLog::TlsIdentity::process().clientContext(),
                                                 connection.fd.get(), host_);
  stream_ = new NboAttrLog::AttrLogStream(std::move(connection.fd), connection.connecting, this, peer_,
                                          std::move(tls));
  stream_->out() = std::move(early_);
  early_.clear();
  stream_->sendSoon();
}

void MountLink::sendSoon() {
  if (stream_) stream_->sendSoon();
}

uint32_t MountLink::subscribe(Subscriber* subscriber, std::string_view path) {
  uint32_t subscription = ++lastSubscription_;
  subscribers_.emplace(subscription, subscriber);
  if (!down_) {
    FrameWriter(frames()).subscribe(subscription, path);
    sendSoon();
  }
  return subscription;
}

void MountLink::unsubscribe(uint32_t subscription) {
  if (!subscribers_.erase(subscription) || down_) return;
  if (!subscribers_.empty()) {
    FrameWriter(frames()).unsubscribe(subscription);
    sendSoon();
    return;
  }
  down_ = true;
  resolution_.reset();
  if (stream_) stream_->close();
  gone_(this);
}

void MountLink::onMessage(NboAttrLog::Message const& m) {
  Ptr<MountLink> keep(this);  // a subscriber may let the link go
  if (!greeted_) return greet(m);
  if (m.kind == Kind::hello || m.kind == Kind::subscribe || m.kind == Kind::unsubscribe)
    return down(MountStatus::disconnected,
                format("%s sent a frame of kind %u, which only a client sends", peer_.charPtr(),
                       unsigned(m.kind)));
  // Frames of a subscription given up are still on their way: dropped.
  if (auto found = subscribers_.find(m.subscription); found != subscribers_.end()) found->second->onFrame(m);
}

void MountLink::greet(NboAttrLog::Message const& m) {
  if (m.kind == Kind::refused)
    return down(MountStatus::permissionDenied, format("%s refused us: %.*s", peer_.charPtr(),
                                                      int(m.name.size()), m.name.data()));
  NboAttrLog::Greeting greeting = NboAttrLog::greetingOf(m);
  if (greeting != NboAttrLog::Greeting::accepted)
    return down(greeting == NboAttrLog::Greeting::missing ? MountStatus::disconnected
                                                           : MountStatus::protocolVersionMismatch,
                String8(NboAttrLog::greetingProblem(greeting, m, peer_.view())));
  greeted_ = true;
}

// A refusal cannot pass by trying again: the certificates or the scheme
// must change first.
void MountLink::onStreamClosed(String8 const& reason, bool refused) {
  down(refused ? MountStatus::permissionDenied : MountStatus::disconnected, reason);
}

void MountLink::down(MountStatus::Code code, String8 const& reason) {
  if (down_) return;
  down_ = true;
  Ptr<MountLink> keep(this);
  ZET_TRACE_AT("MountFacility", 1) << "link down: " << reason;
  resolution_.reset();
  if (stream_) stream_->close();
  gone_(this);
  auto subscribers = std::move(subscribers_);
  subscribers_.clear();
  for (auto& [subscription, subscriber] : subscribers) subscriber->onLinkDown(code, reason);
}

}  // namespace Zet
