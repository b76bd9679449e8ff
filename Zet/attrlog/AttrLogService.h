#pragma once
// AttrLogService: the attribute-log service of a process. It opens the
// listeners its connection directory asks for: a listen port opens a TCP
// listener (on the address of ZET_ATTRLOG_BIND, loopback by default), a
// listen domain socket or a control domain socket a listener there; a new
// value replaces the listener once the new one is open, 0 or "" closes it,
// and a listener that cannot open throws ListenException to whoever set
// the value. Each peer that connects gets an AttrLogSession.
//
// Settings, read from the environment when the service starts:
//   ZET_ATTRLOG_PEER_UIDS        users whose processes may connect through the
//                                listen domain socket, comma-separated
//                                (default: this process's user; the control
//                                socket takes this process's user only)
//   ZET_ATTRLOG_MAX_PENDING      bytes that may wait for a slow peer before
//                                it is disconnected (default 64 MiB; for a
//                                peer of the control socket, beside the
//                                snapshots its subscriptions were sent)
//   ZET_ATTRLOG_MAX_WATCHED      entities one peer's subscriptions may watch
//                                together before it is disconnected (default
//                                262144; a peer of the control socket, the
//                                process's own tools, is not bounded)
//   ZET_ATTRLOG_MAX_INPUT        bytes of partial frames all peers may hold
//                                together (default 64 MiB; AttrLogStream)
//
// When accept runs out of descriptors, the listeners rest until a session
// ends or a short pause has passed, instead of waking the loop for the same
// waiting peer again and again.

#include <sys/types.h>

#include <memory>
#include <unordered_map>
#include <vector>

#include "Zet/NboAttrLog.h"
#include "Zet/attrlog/AttrLogSession.h"
#include "Zet/attrlog/Socket.h"

namespace Zet {
namespace NboAttrLog {

class AttrLogService : private ConnectionDir::Listeners {
 public:
  // Opens the listeners `connections` already asks for, and those it asks
  // for from now on.
  explicit AttrLogService(Ptr<ConnectionDir> const& connections);
  ~AttrLogService();

  ServiceFigures figures() const;
  // Removes the domain-socket files of this process's listeners (at exit:
  // a forked child that exits leaves its parent's alone).
  void socketFilesDel() const;

 private:
  struct Listener {
    SocketFd fd;
    String8 domainPath;  // of a domain-socket listener, removed on close
    bool domain = false;
    // The socket file made, so that a file someone else put at the path
    // since is never removed.
    dev_t device = 0;
    ino_t inode = 0;
  };

  void listenPortIs(unsigned short port) override;
  void listenDomainSockIs(String8 const& path) override;
  void controlDomainSockIs(String8 const& path) override;

  // Puts the listener `fd` (closed for none) in place of the one `listener`
  // had.
  void replace(Listener& listener, SocketFd fd, String8 const& domainPath);
  void close(Listener& listener);
  static void socketFileDel(Listener const& listener);
  void watch(Listener& listener);
  void acceptAll(Listener& listener);
  AttrLogSession::Bounds boundsFor(Listener const& listener) const;
  // Accept ran out of descriptors: the listeners stop being watched until a
  // session ends or a short pause has passed.
  void rest(int error);
  void wake();
  // Why a domain-socket peer may not connect; empty when it may.
  String8 refusal(int fd, bool control) const;
  void sessionEnded(AttrLogSession* session);
  void memoryReturnSoon();

  Ptr<ConnectionDir> connections_;
  Listener tcp_;
  Listener domain_{{}, {}, true};
  Listener control_{{}, {}, true};
  pid_t owner_;  // the process whose socket files these are
  ActivityLoop::TimerId wakeTimer_ = 0;
  ActivityLoop::TimerId trimTimer_ = 0;
  bool resting_ = false;
  bool exhaustionSaid_ = false;  // until an accept succeeds again
  std::vector<uid_t> allowedUids_;
  AttrLogSession::Bounds bounds_;
  std::unordered_map<AttrLogSession*, std::unique_ptr<AttrLogSession>> sessions_;
};

}  // namespace NboAttrLog
}  // namespace Zet
