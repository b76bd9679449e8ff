#pragma once
// AttrLogService: the attribute-log service of a process. It follows the
// connection directory: a listen port opens a TCP listener (on the address
// of ZET_ATTRLOG_BIND, loopback by default), a listen domain socket or a
// control domain socket opens a listener there; a new value replaces the
// listener, 0 or "" closes it. Each peer that connects gets an
// AttrLogSession.
//
// Settings, read from the environment when the service starts:
//   ZET_ATTRLOG_PEER_UIDS        users whose processes may connect through a
//                                domain socket, comma-separated (default:
//                                this process's user)
//   ZET_ATTRLOG_MAX_PENDING      bytes that may wait for a slow peer before
//                                it is disconnected (default 64 MiB)
//
// A listener that cannot open (port in use, no permission, bad path) is
// reported on standard error and leaves the process as it was.

#include <sys/types.h>

#include <memory>
#include <unordered_map>
#include <vector>

#include "Zet/AttrLogSession.h"
#include "Zet/NboAttrLog.h"
#include "Zet/Socket.h"

namespace Zet {
namespace NboAttrLog {

class AttrLogService : private ConnectionDir::NotifieeConst {
 public:
  explicit AttrLogService(Ptr<ConnectionDir> const& connections);
  ~AttrLogService() override;

  ServiceFigures figures() const;

 private:
  struct Listener {
    SocketFd fd;
    String8 domainPath;  // of a domain-socket listener, removed on close
  };

  void onListenPort() override;
  void onListenDomainSock() override;
  void onControlDomainSock() override;

  // Opens the listener on what the connection directory now says for it.
  void open(Listener& listener, bool domain);
  void close(Listener& listener);
  void acceptAll(Listener const& listener, bool domain);
  // Why a domain-socket peer may not connect; empty when it may.
  String8 refusal(int fd) const;
  void sessionEnded(AttrLogSession* session);

  Listener tcp_;
  Listener domain_;
  Listener control_;
  std::vector<uid_t> allowedUids_;
  size_t maxPendingBytes_;
  std::unordered_map<AttrLogSession*, std::unique_ptr<AttrLogSession>> sessions_;
};

}  // namespace NboAttrLog
}  // namespace Zet
