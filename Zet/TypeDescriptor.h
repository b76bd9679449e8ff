#pragma once
// The descriptor of an entity type: its registered name, its factory and its
// attribute table. Introspection, generic reads and writes by identifier and
// audits are written once over this table (see Entity), not for each type.

#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/Value.h"

namespace Zet {

class Entity;

using AttributeId = uint32_t;
// Identifiers every entity has; a type's own attributes start at 0x102.
inline constexpr AttributeId kNameAttributeId = 0x100;
inline constexpr AttributeId kParentAttributeId = 0x101;

struct AttributeDescriptor {
  AttributeId id;
  std::string_view name;
  // The value as text; a collection gives its member keys, ", "-separated.
  String8 (*read)(Entity const&);
  // Sets the value from its text; null when the attribute cannot be written
  // generically (constants, constructor parameters, pointers, collections).
  void (*write)(Entity&, std::string_view);
};

struct AuditRule {
  std::string_view label;
  bool (*holds)(Entity const&);
};

// How the members of an entity that owns a collection of entities (a config
// directory, say) are listed, and made or removed by name, generically: the
// attribute-log service serves them like the entries of a directory, and a
// mirror makes them through their owner. The owner tells of a member added
// or removed through Notifier::notify with the member's name.
struct MemberAccess {
  // The members, in the owner's order; they live as long as the owner
  // holds them.
  std::vector<Entity*> (*members)(Entity const& owner);
  Ptr<Entity> (*member)(Entity const& owner, Name const& name);
  Ptr<Entity> (*make)(Entity& owner, Name const& name);
  void (*remove)(Entity& owner, Name const& name);
};

struct TypeDescriptor {
  using Factory = Ptr<Entity> (*)(Name const& name, Entity* parent);

  std::string_view name;  // as registered, e.g. "Zet::AgentEnvConfig"
  Factory factory;
  std::vector<AttributeDescriptor> attributes;
  std::vector<AuditRule> auditRules;
  MemberAccess const* members = nullptr;  // for owners of a collection of entities

  AttributeDescriptor const* attribute(AttributeId id) const {
    for (auto const& a : attributes)
      if (a.id == id) return &a;
    return nullptr;
  }
  AttributeDescriptor const* attribute(std::string_view attributeName) const {
    for (auto const& a : attributes)
      if (a.name == attributeName) return &a;
    return nullptr;
  }
};

// Helpers that make table rows from accessor member pointers, so a type's
// table names each accessor once and the generic code does the rest:
//   {0x102, "source0", readAs<&AgentEnvConfig::source0>, writeAs<&AgentEnvConfig::source0Is>}
namespace detail {
template <class M>
struct MemberTraits;
template <class C, class R>
struct MemberTraits<R (C::*)() const> {
  using Class = C;
  using Result = std::decay_t<R>;
};
template <class C, class R, class A>
struct MemberTraits<R (C::*)(A)> {
  using Class = C;
  using Arg = std::decay_t<A>;
};
}  // namespace detail

template <auto Getter>
String8 readAs(Entity const& e) {
  using T = typename detail::MemberTraits<decltype(Getter)>::Class;
  return stringValue((static_cast<T const&>(e).*Getter)());
}

template <auto Setter>
void writeAs(Entity& e, std::string_view text) {
  using Traits = detail::MemberTraits<decltype(Setter)>;
  using T = typename Traits::Class;
  (static_cast<T&>(e).*Setter)(strepToValue<typename Traits::Arg>(text));
}

// Member keys of a collection: Getter returns a HashMap (or anything iterable
// with members having key()).
template <auto Getter>
String8 readKeys(Entity const& e) {
  using T = typename detail::MemberTraits<decltype(Getter)>::Class;
  std::string text;
  for (auto const& m : (static_cast<T const&>(e).*Getter)()) {
    if (!text.empty()) text += ", ";
    text += m.key().view();
  }
  return String8(text);
}

// The MemberAccess of an owner from its accessors: Members returns the
// member map, MemberIs makes (or returns) a member, MemberDel removes one.
template <auto Members, auto MemberIs, auto MemberDel>
MemberAccess const* memberAccess() {
  using Owner = typename detail::MemberTraits<decltype(Members)>::Class;
  static MemberAccess const access{
      [](Entity const& owner) {
        std::vector<Entity*> out;
        for (auto const& m : (static_cast<Owner const&>(owner).*Members)()) out.push_back(m.value().ptr());
        return out;
      },
      [](Entity const& owner, Name const& name) -> Ptr<Entity> {
        return (static_cast<Owner const&>(owner).*Members)().value(name);
      },
      [](Entity& owner, Name const& name) -> Ptr<Entity> { return (static_cast<Owner&>(owner).*MemberIs)(name); },
      [](Entity& owner, Name const& name) { (static_cast<Owner&>(owner).*MemberDel)(name); },
  };
  return &access;
}

}  // namespace Zet
