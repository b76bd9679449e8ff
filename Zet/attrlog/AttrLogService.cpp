#include "Zet/attrlog/AttrLogService.h"

#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/System.h"
#include "Zet/Trace.h"
#include "Zet/attrlog/TlsIdentity.h"

namespace Zet {
namespace NboAttrLog {
namespace {

constexpr size_t kDefaultMaxPending = size_t(64) << 20;
constexpr size_t kDefaultMaxWatched = size_t(1) << 18;
// How long listeners rest when accept has run out of descriptors and no
// session ends meanwhile.
constexpr double kRestSeconds = 0.25;
// How long after sessions end their memory is given back.
constexpr double kTrimDelaySeconds = 0.5;
// TLS handshakes that may be under way at once; peers beyond are dropped.
constexpr size_t kMaxTlsHandshakes = 256;

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
      Trace::write(
          "NboAttrLog", 0,
          format("ZET_ATTRLOG_PEER_UIDS: '%.*s' is not a user id; ignored", int(item.size()), item.data()).view());
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
  }
  return uids;
}

}  // namespace

AttrLogService::AttrLogService(Ptr<ConnectionDir> const& connections)
    : connections_(connections),
      owner_(::getpid()),
      allowedUids_(allowedUidsFromEnvironment()),
      bounds_{System::getenvCount("ZET_ATTRLOG_MAX_PENDING", kDefaultMaxPending),
              System::getenvCount("ZET_ATTRLOG_MAX_WATCHED", kDefaultMaxWatched)} {
  if (connections->listenPort()) listenPortIs(connections->listenPort());
  if (!connections->listenDomainSock().isEmpty()) listenDomainSockIs(connections->listenDomainSock());
  if (!connections->controlDomainSock().isEmpty()) controlDomainSockIs(connections->controlDomainSock());
  connections->listenersIs(this);
}

AttrLogService::~AttrLogService() {
  connections_->listenersIs(nullptr);
  if (wakeTimer_) loop().timerDel(wakeTimer_);
  if (trimTimer_) loop().timerDel(trimTimer_);
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

void AttrLogService::socketFilesDel() const {
  if (::getpid() != owner_) return;
  for (Listener const* listener : {&domain_, &control_})
    if (listener->fd.isOpen()) socketFileDel(*listener);
}

void AttrLogService::socketFileDel(Listener const& listener) {
  struct stat st;
  if (::lstat(listener.domainPath.charPtr(), &st) == 0 && st.st_dev == listener.device && st.st_ino == listener.inode)
    ::unlink(listener.domainPath.charPtr());
}

// With a TLS identity the TCP listener speaks TLS only; one that cannot be
// used keeps the port closed rather than serving the tree in plain text.
void AttrLogService::listenPortIs(unsigned short port) {
  TlsIdentity const& tls = TlsIdentity::process();
  if (port && !tls.problem().isEmpty())
    throw ListenException(format("cannot listen on TCP port %u with TLS: %s", unsigned(port), tls.problem().charPtr()));
  replace(tcp_, port ? Socket::listenTcp(port) : SocketFd(), {});
}

void AttrLogService::listenDomainSockIs(String8 const& path) {
  replace(domain_, path.isEmpty() ? SocketFd() : Socket::listenDomain(path), path);
}

void AttrLogService::controlDomainSockIs(String8 const& path) {
  replace(control_, path.isEmpty() ? SocketFd() : Socket::listenDomain(path), path);
}

void AttrLogService::replace(Listener& listener, SocketFd fd, String8 const& domainPath) {
  close(listener);
  if (!fd.isOpen()) return;
  listener.fd = std::move(fd);
  listener.domainPath = domainPath;
  struct stat st;
  if (listener.domain && ::lstat(domainPath.charPtr(), &st) == 0) {
    listener.device = st.st_dev;
    listener.inode = st.st_ino;
  }
  if (!resting_) watch(listener);
}

void AttrLogService::watch(Listener& listener) {
  loop().fdWatcherIs(listener.fd.get(), ActivityLoop::kReadable, [this, &listener](unsigned) { acceptAll(listener); });
}

void AttrLogService::close(Listener& listener) {
  if (!listener.fd.isOpen()) return;
  loop().fdWatcherDel(listener.fd.get());
  listener.fd.reset();
  if (listener.domain) socketFileDel(listener);
  listener.domainPath = String8();
}

void AttrLogService::acceptAll(Listener& listener) {
  while (true) {
    SocketFd fd = Socket::acceptFrom(listener.fd.get());
    if (!fd.isOpen()) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) rest(errno);
      return;
    }
    exhaustionSaid_ = false;
    String8 refused = listener.domain ? refusal(fd.get(), &listener == &control_) : String8();
    String8 peer = listener.domain ? format("peer on %s", listener.domainPath.charPtr())
                                   : "TCP peer " + Socket::peerAddress(fd.get());
    ssl_ctx_st* context = listener.domain ? nullptr : TlsIdentity::process().serverContext();
    if (context && TlsChannel::serverHandshakes() >= kMaxTlsHandshakes) {
      ZET_TRACE_AT("NboAttrLog", 0) << "dropping " << peer << ": " << kMaxTlsHandshakes
                                    << " TLS handshakes are under way already";
      continue;
    }
    std::unique_ptr<TlsChannel> tls = context ? TlsChannel::server(context, fd.get()) : nullptr;
    auto session = std::make_unique<AttrLogSession>(std::move(fd), std::move(tls), peer, refused, boundsFor(listener),
                                                    [this](AttrLogSession* s) { sessionEnded(s); });
    AttrLogSession* key = session.get();
    sessions_.emplace(key, std::move(session));
  }
}

// A peer of the control socket is this process's own user looking at it
// with the tools, which mount whole trees (every status and config of an
// agent of a million entries): what it watches is not bounded, and what
// may wait for it is counted beside its snapshots.
AttrLogSession::Bounds AttrLogService::boundsFor(Listener const& listener) const {
  if (&listener != &control_) return bounds_;
  return {bounds_.pendingBytes, SIZE_MAX, true};
}

void AttrLogService::rest(int error) {
  if (resting_) return;
  resting_ = true;
  // Said once whatever the trace selection, until peers are accepted again:
  // peers are being kept waiting.
  if (!exhaustionSaid_)
    Trace::write("NboAttrLog", 0,
                 format("attribute-log service: cannot accept: %s; new peers wait until a connection closes",
                        std::strerror(error))
                     .view());
  exhaustionSaid_ = true;
  for (Listener* listener : {&tcp_, &domain_, &control_})
    if (listener->fd.isOpen()) loop().fdWatcherDel(listener->fd.get());
  wakeTimer_ = loop().timerIs(kRestSeconds, [this] {
    wakeTimer_ = 0;
    wake();
  });
}

void AttrLogService::wake() {
  if (!resting_) return;
  resting_ = false;
  if (wakeTimer_) loop().timerDel(wakeTimer_);
  wakeTimer_ = 0;
  for (Listener* listener : {&tcp_, &domain_, &control_})
    if (listener->fd.isOpen()) watch(*listener);
}

// The control socket is this process's user's alone, whoever else may
// mount from its exports.
String8 AttrLogService::refusal(int fd, bool control) const {
  auto uid = Socket::peerUid(fd);
  if (!uid) return "the peer's credentials cannot be read";
  if (control ? *uid == ::geteuid() : std::find(allowedUids_.begin(), allowedUids_.end(), *uid) != allowedUids_.end())
    return String8();
  return format("user %u may not mount from this process", unsigned(*uid));
}

void AttrLogService::sessionEnded(AttrLogSession* session) {
  // Called from within the session: it is destroyed once that call is over,
  // and its descriptor is free for a peer that waits.
  loop().deferredCallIs([this, session] {
    sessions_.erase(session);
    wake();
    memoryReturnSoon();
  });
}

// What a session kept (its trees, its buffers) is given back to the system
// shortly after it ends, once for all the sessions that end together: the
// allocator would otherwise keep the freed pages of a large session for good.
void AttrLogService::memoryReturnSoon() {
#ifdef __GLIBC__
  if (trimTimer_) return;
  trimTimer_ = loop().timerIs(kTrimDelaySeconds, [this] {
    trimTimer_ = 0;
    ::malloc_trim(0);
  });
#endif
}

}  // namespace NboAttrLog
}  // namespace Zet
