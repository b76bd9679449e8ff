#pragma once
// The attribute-log service: how this process serves its entity tree to
// other processes. Its connection directory holds where the service listens:
// a TCP port, a local domain socket, or both. Setting an endpoint opens its
// listener at once (the service, AttrLogService, is the directory's
// Listeners): the value is stored, and the watchers told, only once the
// listener is open. A listener that cannot open throws ListenException
// saying why, and the directory keeps its previous value and listener.
//
// The connection directory is made on first use, lives as long as the
// process and appears in the global directory as /NboAttrLog/ConnectionDir.
// Not thread-safe: used on the activity-loop thread that owns the global
// directory.

#include <cstddef>
#include <cstdint>

#include "Zet/Entity.h"

namespace Zet {
namespace NboAttrLog {

class ConnectionDir : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<ConnectionDir> {
   public:
    virtual void onListenPort() {}
    virtual void onListenDomainSock() {}
    virtual void onControlDomainSock() {}
  };

  // What opens the listeners the directory asks for. Each call opens the
  // listener for the new value before the one it replaces closes (0 or ""
  // only closes it), and throws ListenException when it cannot.
  class Listeners {
   public:
    virtual void listenPortIs(unsigned short port) = 0;
    virtual void listenDomainSockIs(String8 const& path) = 0;
    virtual void controlDomainSockIs(String8 const& path) = 0;

   protected:
    ~Listeners() = default;
  };
  // Null: values are only recorded.
  void listenersIs(Listeners* listeners) { listeners_ = listeners; }

  // The TCP port listened on; 0 for none.
  unsigned short listenPort() const { return listenPort_; }
  void listenPortIs(unsigned short v);
  // The path of the domain socket listened on; empty for none.
  String8 const& listenDomainSock() const { return listenDomainSock_; }
  void listenDomainSockIs(String8 const& v);
  // A second domain socket, for the tools that look at a running process:
  // the same service, kept apart from the socket its exports set.
  String8 const& controlDomainSock() const { return controlDomainSock_; }
  void controlDomainSockIs(String8 const& v);

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<ConnectionDir> connectionDirFactory(Name const&, Entity*);
  ConnectionDir(Name name, Entity* parent) : Entity(std::move(name), parent) {}

  Listeners* listeners_ = nullptr;
  unsigned short listenPort_ = 0;
  String8 listenDomainSock_;
  String8 controlDomainSock_;
};

// A new connection directory, not listening anywhere.
Ptr<ConnectionDir> connectionDirFactory(Name const& name, Entity* parent = nullptr);

// The process's connection directory.
Ptr<ConnectionDir> connectionDir();

// How the process's service stands: the peers connected and the bytes
// waiting to be sent to them.
struct ServiceFigures {
  size_t sessions = 0;
  size_t pendingBytes = 0;
};
ServiceFigures serviceFigures();

}  // namespace NboAttrLog
}  // namespace Zet
