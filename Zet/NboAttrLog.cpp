#include "Zet/NboAttrLog.h"

#include "Zet/Dir.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace NboAttrLog {

Ptr<ConnectionDir> connectionDirFactory(Name const& name, Entity* parent) {
  return Ptr<ConnectionDir>(new ConnectionDir(name, parent));
}

Ptr<ConnectionDir> connectionDir() {
  // Made once and never destroyed, like the global directory that shows it.
  static Ptr<ConnectionDir> const* dir = [] {
    auto* made = new Ptr<ConnectionDir>(connectionDirFactory("ConnectionDir"));
    globalDir()->dirIs("NboAttrLog")->entryIs("ConnectionDir", *made);
    return made;
  }();
  return *dir;
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return connectionDirFactory(name, parent); }

using C = ConnectionDir;
TypeDescriptor const descriptor{
    "Zet::NboAttrLog::ConnectionDir",
    makeFromTypeMap,
    {
        {0x102, "listenPort", readAs<&C::listenPort>, writeAs<&C::listenPortIs>},
        {0x103, "listenDomainSock", readAs<&C::listenDomainSock>, writeAs<&C::listenDomainSockIs>},
    },
    {},
};
ZET_REGISTER_TYPE(descriptor);

}  // namespace

TypeDescriptor const& ConnectionDir::type() { return descriptor; }
TypeDescriptor const& ConnectionDir::fwkType() const { return descriptor; }

}  // namespace NboAttrLog
}  // namespace Zet
