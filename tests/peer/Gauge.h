#pragma once
// Test::Gauge: a small entity type with two writable attributes, known to
// the test processes on both ends of a mount (each links this file).

#include <cstdint>

#include "Zet/Entity.h"

namespace Test {

class Gauge : public Zet::Entity {
 public:
  class NotifieeConst : public Zet::TypedNotifiee<Gauge> {
   public:
    virtual void onValue() {}
    virtual void onLabel() {}
  };

  Gauge(Zet::Name const& name, Zet::Entity* parent) : Entity(name, parent) {}

  uint64_t value() const { return value_; }
  void valueIs(uint64_t v) { attributeIs(value_, v, &NotifieeConst::onValue); }
  Zet::String8 const& label() const { return label_; }
  void labelIs(Zet::String8 const& v) { attributeIs(label_, v, &NotifieeConst::onLabel); }

  ZET_ENTITY_TYPE();

 private:
  uint64_t value_ = 0;
  Zet::String8 label_;
};

}  // namespace Test
