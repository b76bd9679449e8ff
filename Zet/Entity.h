#pragma once
// Entity: the base of every named, observable object of the framework.
//
// An entity has a name fixed at construction, a non-owning parent link, a
// type descriptor (fwkType) and a list of notifiees. Through the descriptor
// every entity can be read and written attribute by attribute, by identifier,
// and audited. Entities are reference-counted; they are not thread-safe and
// live on the activity-loop thread that owns them.

#include <cstdint>
#include <type_traits>
#include <vector>

#include "Zet/Exception.h"
#include "Zet/Notifiee.h"
#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/TypeDescriptor.h"

namespace Zet {

class Dir;

// Declares, in a class derived from Entity, its type accessors: type(), the
// class's descriptor, and fwkType(), the descriptor of the object's type.
// ZET_DEFINE_TYPE (TypeMap.h) defines them. Leaves the access public.
#define ZET_ENTITY_TYPE()                                      \
 public:                                                       \
  ::Zet::TypeDescriptor const& fwkType() const override;       \
  static ::Zet::TypeDescriptor const& type()

class Entity : public PtrInterface, public Notifier {
 public:
  // The notifiee interface of every entity. Each entity type derives its own
  // (T::NotifieeConst) adding one handler per attribute and a typed
  // notifierIs; binding is done through that typed call only, so a notifier
  // never holds a notifiee of the wrong interface.
  class NotifieeConst : public NotifieeBase {
   public:
    Ptr<Entity const> const& notifier() const { return notifier_; }
    virtual void onIsNondestructing() {}
    virtual void onZeroReferences() {}

   protected:
    NotifieeConst() = default;
    explicit NotifieeConst(bool catchAll) : NotifieeBase(catchAll) {}
    ~NotifieeConst() override { bind(nullptr); }
    // Registers on `notifier` (after leaving the previous one); null unbinds.
    void bind(Ptr<Entity const> notifier);

   private:
    Ptr<Entity const> notifier_;
  };

  // Hears of every notification of one entity, whatever its type, without
  // learning which attribute changed: for observers written once for all
  // types (the attribute-log service), which then read what they need
  // through the type descriptor. `member` names the member of a collection
  // (see MemberAccess) that was added or removed; it is null for a change of
  // an attribute.
  class ChangeNotifiee : public NotifieeConst {
   public:
    ChangeNotifiee() : NotifieeConst(true) {}
    void notifierIs(Ptr<Entity const> const& n) { bind(n); }
    virtual void onChange(Name const* member) = 0;

   private:
    void onAnyNotification(Name const* member) final { onChange(member); }
  };

  // While an entity mirrors one mounted from another process, only the
  // mount machinery changes it (inside a MirrorWriteScope); any other write
  // through an accessor is refused with PermissionException.
  class MirrorWriteScope {
   public:
    MirrorWriteScope() { ++depth_; }
    ~MirrorWriteScope() { --depth_; }
    MirrorWriteScope(MirrorWriteScope const&) = delete;
    MirrorWriteScope& operator=(MirrorWriteScope const&) = delete;
    static bool active() { return depth_ > 0; }

    // Notifications of a mirror's changes run outside the scope: what their
    // handlers write is refused like any other local write.
    class Suspended {
     public:
      explicit Suspended(bool suspend) : saved_(depth_) {
        if (suspend) depth_ = 0;
      }
      ~Suspended() { depth_ = saved_; }
      Suspended(Suspended const&) = delete;
      Suspended& operator=(Suspended const&) = delete;

     private:
      int saved_;
    };

   private:
    // Read on every attribute write: the initial-exec model reaches it at a
    // fixed offset from the thread pointer instead of through a call.
    [[gnu::tls_model("initial-exec")]] static thread_local int depth_;
  };
  bool isMirror() const { return flag(kMirror); }
  void mirrorIs(bool v) { flagIs(kMirror, v); }

  Name const& name() const { return name_; }
  Entity* parent() const { return reinterpret_cast<Entity*>(parentAndFlags_ & ~kFlags); }
  virtual TypeDescriptor const& fwkType() const = 0;

  bool isNondestructing() const { return flag(kNondestructing); }
  virtual void isNondestructingIs(bool v);
  bool zeroReferences() const { return flag(kZeroReferences); }
  virtual void zeroReferencesIs(bool v);

  // The name of the attribute with this identifier: "name" and "parent" for
  // the built-in ones, the table's name for the type's own, else "unknown".
  virtual String8 attributeString(AttributeId id) const;
  // The value of an attribute as text; RangeException for an unknown id.
  String8 attributeValue(AttributeId id) const;
  // Sets an attribute from its text; RangeException for an unknown or
  // read-only attribute or text that does not parse.
  void attributeValueIs(AttributeId id, std::string_view text);

  // The labels of the audit rules that do not hold; empty when all do.
  std::vector<String8> zetAuditErrors() const;

  // Names from the root down to this entity, '/'-separated; given `child`,
  // the full name of a child of that name.
  String8 fullName(std::string_view child = {}) const;
  // The length of that name, without making it.
  size_t fullNameSize(std::string_view child = {}) const;

 protected:
  Entity(Name name, Entity* parent) : name_(std::move(name)), parentAndFlags_(reinterpret_cast<uintptr_t>(parent)) {}
  ~Entity() override = default;
  void parentIs(Entity* parent) { parentAndFlags_ = reinterpret_cast<uintptr_t>(parent) | (parentAndFlags_ & kFlags); }
  // Refuses a change of a mirror made outside the mount machinery.
  void checkWritable() const {
    if (isMirror() && !MirrorWriteScope::active()) [[unlikely]]
      refuseMirrorWrite();
  }

  // The accessor convention for a scalar attribute: store the value and call
  // handler on every notifiee only when it differs from the stored one.
  template <class N, class V>
  void attributeIs(V& field, V const& value, void (N::*handler)()) {
    checkWritable();
    if (field == value) return;
    field = value;
    MirrorWriteScope::Suspended outside(isMirror());
    notify<N>([handler](N& n) { (n.*handler)(); });
  }

 private:
  // A directory adopts the entities put into it and forgets them when they
  // leave, so that no parent link outlives its directory.
  friend class Dir;
  [[noreturn]] void refuseMirrorWrite() const;

  // The parent link carries the three flags in its low bits, which are
  // zero in the address of an entity (aligned to eight bytes): the flags
  // take no word of their own.
  enum : uintptr_t { kNondestructing = 1, kZeroReferences = 2, kMirror = 4, kFlags = 7 };
  bool flag(uintptr_t f) const { return parentAndFlags_ & f; }
  void flagIs(uintptr_t f, bool v) { parentAndFlags_ = v ? parentAndFlags_ | f : parentAndFlags_ & ~f; }

  Name name_;
  uintptr_t parentAndFlags_;
};

static_assert(alignof(Entity) >= 8, "an entity's address leaves three low bits free for its flags");

// The base of T::NotifieeConst: binds to a T only, and reads it back as T.
template <class T>
class TypedNotifiee : public Entity::NotifieeConst {
 public:
  Ptr<T const> notifier() const { return static_cast<T const*>(Entity::NotifieeConst::notifier().ptr()); }
  void notifierIs(Ptr<T const> const& n) { bind(n); }
};

// Generic access to an entity by attribute identifier through a handle that
// remembers whether it was given write access: a handle made from a
// Ptr<Entity const> refuses writes with PermissionException "attempting to
// modify a const instance".
class EntityHandle {
 public:
  // Writable exactly when made from a pointer to a non-const entity.
  template <class T>
    requires std::is_base_of_v<Entity, std::remove_const_t<T>>
  EntityHandle(Ptr<T> const& e) : entity_(e), writable_(!std::is_const_v<T>) {}
  Ptr<Entity const> const& entity() const { return entity_; }
  String8 attributeValue(AttributeId id) const { return entity_->attributeValue(id); }
  void attributeValueIs(AttributeId id, std::string_view text) const;

 private:
  Ptr<Entity const> entity_;
  bool writable_;
};

// Text form of an entity pointer: the entity's full name, "" for null.
template <class T>
  requires std::is_base_of_v<Entity, std::remove_const_t<T>>
struct ValueText<Ptr<T>> {
  static String8 text(Ptr<T> const& p) { return p ? p->fullName() : String8(); }
};

// The entity as T, or RangeException "Entity is the wrong type" (null stays null).
template <class T, class From>
Ptr<T> entityCast(Ptr<From> const& p) {
  if (!p) return nullptr;
  Ptr<T> t = ptr_cast<T>(p);
  if (!t) throwRangeException("Entity is the wrong type");
  return t;
}

}  // namespace Zet
