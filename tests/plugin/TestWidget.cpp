// A plugin the type map's tests load with dlopen: it registers the entity
// type "Test::Widget" as it loads, as every plugin named by a map file must.

#include "Zet/Entity.h"
#include "Zet/TypeMap.h"

namespace {

class Widget : public Zet::Entity {
 public:
  Widget(Zet::Name const& name, Zet::Entity* parent) : Entity(name, parent) {}
  ZET_ENTITY_TYPE();
};

Zet::Ptr<Zet::Entity> widgetFactory(Zet::Name const& name, Zet::Entity* parent) { return new Widget(name, parent); }

Zet::TypeDescriptor const widgetType{"Test::Widget", widgetFactory, {}, {}};
ZET_DEFINE_TYPE(Widget, widgetType);

}  // namespace
