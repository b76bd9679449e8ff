#include "Zet/AttrLogService.h"

#include <unistd.h>

#include <charconv>

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/System.h"
#include "Zet/Trace.h"

namespace Zet {
namespace NboAttrLog {
namespace {

constexpr size_t kDefaultMaxPending = size_t(64) << 20;

ActivityLoop& loop() { return ActivityFacility::loop(); }

std::vector<uid_t> allowedUidsFromEnvironment() {
  String8 text = System::getenv("ZET_ATTRLOG_PEER_UIDS");
  if (text.isEmpty()) return {::geteuid()};
  std::vector<uid_t> uids;
  std::string_view rest = text.view();
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string_view item = rest.substr(0, comma);
    unsigned long uid = 0;
    auto [end, ec] = std::from_chars(item.data(), item.data() + item.size(), uid);
    if (ec == std::errc() && end == item.data() + item.size())
      uids.push_back(uid_t(uid));
    else
      Trace::write("NboAttrLog", 0, format("ZET_ATTRLOG_PEER_UIDS: '%.*s' is not a user id; ignored", int(item.size()), item.data()).view());
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  }
  return uids;
}

size_t maxPendingFromEnvironment() {
  String8 text = System::getenv("ZET_ATTRLOG_MAX_PENDING");
  size_t bytes = 0;
  auto [end, ec] = std::from_chars(text.charPtr(), text.charPtr() + text.size(), bytes);
  return ec == std::errc() && end == text.charPtr() + text.size() && bytes > 0 ? bytes : kDefaultMaxPending;
}

}  // namespace

AttrLogService::AttrLogService(Ptr<ConnectionDir> const& connections)
    : allowedUids_(allowedUidsFromEnvironment()), maxPendingBytes_(maxPendingFromEnvironment()) {
  notifierIs(connections);
  if (connections->listenPort()) onListenPort();
  if (!connections->listenDomainSock().isEmpty()) onListenDomainSock();
  if (!connections->controlDomainSock().isEmpty()) onControlDomainSock();
}

AttrLogService::~AttrLogService() {
  close(tcp_);
  close(domain_);
  close(control_);
}

ServiceFigures AttrLogService::figures() const {
  ServiceFigures f;
  f.sessions = sessions_.size();
  for (auto const& [key, session] : sessions_) f.pendingBytes += session->pendingBytes();
  return f;
}

void AttrLogService::onListenPort() { open(tcp_, false); }
void AttrLogService::onListenDomainSock() { open(domain_, true); }
void AttrLogService::onControlDomainSock() { open(control_, true); }

void AttrLogService::open(Listener& listener, bool domain) {
  close(listener);
  auto const& connections = *notifier();
  try {
    if (domain) {
      String8 const& path = &listener == &control_ ? connections.controlDomainSock() : connections.listenDomainSock();
      if (path.isEmpty()) return;
      listener.fd = Socket::listenDomain(path);
      listener.domainPath = path;
    } else {
      if (connections.listenPort() == 0) return;
      listener.fd = Socket::listenTcp(connections.listenPort());
    }
    loop().fdWatcherIs(listener.fd.get(), ActivityLoop::kReadable,
                       [this, &listener, domain](unsigned) { acceptAll(listener, domain); });
  } catch (std::exception const& e) {
    close(listener);
    // Said whatever the trace selection: a listener that is not there is
    // something the person running the process must see.
    Trace::write("NboAttrLog", 0, format("attribute-log service: %s", e.what()).view());
  }
}

void AttrLogService::close(Listener& listener) {
  if (!listener.fd.isOpen()) return;
  loop().fdWatcherDel(listener.fd.get());
  listener.fd.reset();
  if (!listener.domainPath.isEmpty()) ::unlink(listener.domainPath.charPtr());
  listener.domainPath = String8();
}

void AttrLogService::acceptAll(Listener const& listener, bool domain) {
  while (true) {
    SocketFd fd = Socket::acceptFrom(listener.fd.get());
    if (!fd.isOpen()) return;
    String8 refused = domain ? refusal(fd.get()) : String8();
    String8 peer = domain ? format("peer on %s", listener.domainPath.charPtr()) : String8("TCP peer");
    auto session = std::make_unique<AttrLogSession>(std::move(fd), peer, refused, maxPendingBytes_,
                                                    [this](AttrLogSession* s) { sessionEnded(s); });
    AttrLogSession* key = session.get();
    sessions_.emplace(key, std::move(session));
  }
}

String8 AttrLogService::refusal(int fd) const {
  auto uid = Socket::peerUid(fd);
  if (!uid) return "the peer's credentials cannot be read";
  for (uid_t allowed : allowedUids_)
    if (*uid == allowed) return String8();
  return format("user %u may not mount from this process", unsigned(*uid));
}

void AttrLogService::sessionEnded(AttrLogSession* session) {
  // Called from within the session: it is destroyed once that call is over.
  loop().deferredCallIs([this, session] { sessions_.erase(session); });
}

}  // namespace NboAttrLog
}  // namespace Zet
