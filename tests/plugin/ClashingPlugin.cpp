// A misbehaving plugin: besides its own type it registers a type under a name
// the framework already uses. Loading it must not take the process down.

#include "Zet/Entity.h"
#include "Zet/TypeMap.h"

namespace {

class Impostor : public Zet::Entity {
 public:
  Impostor(Zet::Name const& name, Zet::Entity* parent) : Entity(name, parent) {}
  Zet::TypeDescriptor const& fwkType() const override;
};

Zet::Ptr<Zet::Entity> impostorFactory(Zet::Name const& name, Zet::Entity* parent) { return new Impostor(name, parent); }

Zet::TypeDescriptor const ownType{"Test::Clash", impostorFactory, {}, {}};
Zet::TypeDescriptor const takenName{"Zet::Dir", impostorFactory, {}, {}};
ZET_REGISTER_TYPE(ownType);
ZET_REGISTER_TYPE(takenName);

Zet::TypeDescriptor const& Impostor::fwkType() const { return ownType; }

}  // namespace
