#pragma once
// MountLink: the mounting end of one connection to a serving process,
// shared by every mount of this process from that endpoint. Each mount
// subscribes to a path and receives the frames of its subscription; when the
// link goes down, every subscriber hears why, as the mount status code it
// means (disconnected, protocolVersionMismatch, permissionDenied). A link
// with no subscriber left closes.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "Zet/EntityUri.h"
#include "Zet/MountStatus.h"
#include "Zet/attrlog/AttrLogStream.h"
#include "Zet/attrlog/HostResolution.h"

namespace Zet {

class MountLink : public PtrInterface, private NboAttrLog::AttrLogStream::Handler {
 public:
  class Subscriber {
   public:
    virtual void onFrame(NboAttrLog::Message const& frame) = 0;
    virtual void onLinkDown(MountStatus::Code code, String8 const& reason) = 0;

   protected:
    ~Subscriber() = default;
  };

  // The key links are shared by: the scheme and endpoint of a source URI.
  static String8 endpointKey(EntityUri const& source);

  // Starts connecting to the endpoint of source (a host name is resolved
  // first, off the loop); `gone` is told once, when the link closes, so that
  // its owner stops handing it out. Subscriptions may be made at once: their
  // frames wait until the connection is there.
  MountLink(EntityUri const& source, std::function<void(MountLink*)> gone);
  ~MountLink() override;

  // Asks for the entity at path; returns the subscription, whose frames go
  // to subscriber.
  uint32_t subscribe(Subscriber* subscriber, std::string_view path);
  void unsubscribe(uint32_t subscription);

 private:
  void connect(sockaddr const* address, socklen_t size);
  void connected(Socket::Connecting connection);
  // Where frames go: the stream, or a buffer until the stream is there.
  std::string& frames() { return stream_ ? stream_->out() : early_; }
  void sendSoon();
  void onMessage(NboAttrLog::Message const& message) override;
  void onStreamClosed(String8 const& reason, bool refused) override;
  void greet(NboAttrLog::Message const& message);
  void down(MountStatus::Code code, String8 const& reason);

  String8 peer_;
  String8 host_;  // the name the server's certificate must carry, over TLS
  bool tls_;
  std::unique_ptr<HostResolution> resolution_;
  std::string early_;  // frames written before the stream was there
  Ptr<NboAttrLog::AttrLogStream> stream_;
  std::function<void(MountLink*)> gone_;
  std::unordered_map<uint32_t, Subscriber*> subscribers_;
  uint32_t lastSubscription_ = 0;
  bool greeted_ = false;
  bool down_ = false;
};

}  // namespace Zet
