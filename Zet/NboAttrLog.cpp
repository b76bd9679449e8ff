#include "Zet/NboAttrLog.h"

#include <cstdlib>

#include "Zet/Dir.h"
#include "Zet/TypeMap.h"
#include "Zet/attrlog/AttrLogService.h"

namespace Zet {
namespace NboAttrLog {

Ptr<ConnectionDir> connectionDirFactory(Name const& name, Entity* parent) {
  return Ptr<ConnectionDir>(new ConnectionDir(name, parent));
}

void ConnectionDir::listenPortIs(unsigned short v) {
  if (v == listenPort_) return;
  if (listeners_) listeners_->listenPortIs(v);
  attributeIs(listenPort_, v, &NotifieeConst::onListenPort);
}

void ConnectionDir::listenDomainSockIs(String8 const& v) {
  if (v == listenDomainSock_) return;
  if (listeners_) listeners_->listenDomainSockIs(v);
  attributeIs(listenDomainSock_, v, &NotifieeConst::onListenDomainSock);
}

void ConnectionDir::controlDomainSockIs(String8 const& v) {
  if (v == controlDomainSock_) return;
  if (listeners_) listeners_->controlDomainSockIs(v);
  attributeIs(controlDomainSock_, v, &NotifieeConst::onControlDomainSock);
}

namespace {

struct Service {
  Ptr<ConnectionDir> connections = connectionDirFactory("ConnectionDir");
  AttrLogService service{connections};
};

// Made once, with the service that follows it, and never destroyed, like
// the global directory that shows it; its socket files go when the process
// exits.
Service& service() {
  static Service* made = [] {
    auto* s = new Service;
    globalDir()->dirIs("NboAttrLog")->entryIs("ConnectionDir", s->connections);
    std::atexit([] { made->service.socketFilesDel(); });
    return s;
  }();
  return *made;
}

}  // namespace

Ptr<ConnectionDir> connectionDir() { return service().connections; }

ServiceFigures serviceFigures() { return service().service.figures(); }

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return connectionDirFactory(name, parent); }

using C = ConnectionDir;
TypeDescriptor const descriptor{
    "Zet::NboAttrLog::ConnectionDir",
    makeFromTypeMap,
    {
        {0x102, "listenPort", readAs<&C::listenPort>, writeAs<&C::listenPortIs>},
        {0x103, "listenDomainSock", readAs<&C::listenDomainSock>, writeAs<&C::listenDomainSockIs>},
        {0x104, "controlDomainSock", readAs<&C::controlDomainSock>, writeAs<&C::controlDomainSockIs>},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(ConnectionDir, descriptor);

}  // namespace NboAttrLog
}  // namespace Zet
