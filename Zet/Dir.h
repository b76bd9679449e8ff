#pragma once
// Dir: a directory of named entries, the framework's tree of entities.
//
// Each entry (Dir::Entry) names one entity. An entry is `current` while its
// entity is there to use, `notCurrent` while the name is held for an entity
// still on its way (a mount in progress, say), and `deleted` once it has left
// its directory; watchers of an entry hear of each change. A directory makes
// entities of registered types by name through the type map (entityIs), makes
// child directories (dirIs) and walks paths (entityRef). globalDir() is the
// process's root.
//
// A directory adopts the entities put into it that have no parent (unless
// the entity is the directory itself or one above it: a link up the tree), and
// clears the parent link of those it adopted when they leave or when the
// directory goes, so that no parent link outlives its directory.
//
// Not thread-safe: a directory lives on the activity-loop thread that owns
// it. The local-instantiation switch may be read and set from any thread.

#include <cstdint>
#include <memory>
#include <string_view>

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"
#include "Zet/HashMap.h"

namespace Zet {

class Dir : public Entity {
 public:
  // One named entry of a directory. Entries are handed out so that callers
  // can watch them; only their directory changes them.
  class Entry : public PtrInterface, public Notifier {
   public:
    enum class Status : uint8_t { notCurrent = 0, current = 1, deleted = 2 };

    class NotifieeConst : public NotifieeBase {
     public:
      Ptr<Entry const> const& notifier() const { return notifier_; }
      // Registers on `entry` (after leaving the previous one); null unbinds.
      void notifierIs(Ptr<Entry const> entry);
      virtual void onStatus() {}
      virtual void onEntity() {}

     protected:
      ~NotifieeConst() override { notifierIs(nullptr); }

     private:
      Ptr<Entry const> notifier_;
    };

    Name const& name() const { return name_; }
    // Null unless the entry is current.
    Ptr<Entity> const& entity() const { return entity_; }
    Status status() const { return status_; }

   private:
    friend class Dir;
    explicit Entry(Name name) : name_(std::move(name)) {}
    void entityIs(Ptr<Entity> entity);
    void statusIs(Status status);

    Status status_ = Status::notCurrent;  // first: it fills the word the notifier base leaves open
    Name name_;
    Ptr<Entity> entity_;
  };

  class NotifieeConst : public TypedNotifiee<Dir> {
   public:
    // An entry was added, became current or was deleted.
    virtual void onEntry(Name const&) {}
  };

  using Entries = HashMap<Ptr<Entry>, KeyedByName>;

  ZET_ENTITY_TYPE();

  // The entry of that name, or null.
  Ptr<Entry> entry(Name const& name) const;
  Entries const& entries() const;
  size_t entryCount() const { return entries().size(); }

  // The entity of the current entry of that name; null when there is none.
  Ptr<Entity> entityRef(Name const& name) const;
  // The entity at a path: an absolute path is walked from the root of this
  // directory's tree, a relative one from this directory; a path without
  // names ("" or "/") names the directory it starts from. Null when any name
  // on the way is missing, not current, or (before the last) not a directory.
  Ptr<Entity> entityRef(EntityUriPath const& path) const;
  // Starts reading the index slot where the last name of `path` is looked
  // up, in the directory the names before it lead to (when they lead to
  // one). A caller about to make or look up many entries in a large
  // directory asks a few ahead, so that the waits for memory overlap.
  void prefetchEntry(EntityUriPath const& path) const;
  // The same for a path given as '/'-separated text.
  Ptr<Entity> entityRef(std::string_view path) const { return entityRef(EntityUriPath(String8(path))); }
  Ptr<Entity> entityRef(char const* path) const { return entityRef(std::string_view(path)); }

  // The child directory of that name, made when the name is free.
  // NameInUseException when the name holds anything else.
  Ptr<Dir> dirIs(Name const& name);
  // Makes an entity of the registered type `typeName` with the type's
  // factory, named `name` with this directory as parent, and enters it as
  // current. Throws DirInstantiationException when local instantiation is
  // off, NameInUseException when the name is taken, the type map's
  // exceptions when the type cannot be resolved, and RangeException "null
  // ValidPtr" when the factory makes nothing.
  Ptr<Entity> entityIs(Name const& name, std::string_view typeName);
  // The entry of that name, made `notCurrent` (holding the name for an
  // entity to come) when absent.
  Ptr<Entry> entryIs(Name const& name);
  // Enters `entity` under `name` as current: a new entry, or a notCurrent
  // one that is now filled. Entering the entity already there does nothing.
  // NameInUseException when the name holds another entity; RangeException
  // for a null entity.
  Ptr<Entry> entryIs(Name const& name, Ptr<Entity> entity);
  // Removes the entry, which becomes `deleted` and lets its entity go.
  void entryDel(Name const& name);

  // Whether entityIs may make entities (process-wide; on by default).
  static bool localInstantiation();
  static void localInstantiationIs(bool enabled);

 protected:
  Dir(Name name, Entity* parent) : Entity(std::move(name), parent) {}
  ~Dir() override;

 private:
  friend Ptr<Entity> dirFactory(Name const& name, Entity* parent);
  // RangeException for a name that no path could reach ("" or with '/').
  static void checkName(Name const& name);
  [[noreturn]] void throwNameInUse(Name const& name) const;
  // A new notCurrent entry, told to nobody yet; NameInUseException when taken.
  Ptr<Entry> newEntry(Name const& name);
  // Puts `entity` into the entry, adopting it unless that would close a loop
  // of parent links, and tells the watchers.
  void makeCurrent(Ptr<Entry> const& entry, Ptr<Entity> entity);
  // Marks a removed entry deleted and lets its entity go.
  void release(Entry& entry);
  void notifyEntry(Name const& name) const;
  // Whether `entity` is this directory or one above it.
  bool isWithin(Entity const& entity) const;
  // The topmost directory above this one.
  Dir const& root() const;
  // Where `names` lead from the start of `path` (the root of this tree for
  // an absolute path, this directory otherwise), or null; the walk takes no
  // reference on its way.
  Entity const* walk(EntityUriPath const& path, EntityUriPath::NameTexts names) const;

  // Made for the first entry: most directories made by the million are
  // leaves, and an empty map would take five words of each.
  std::unique_ptr<Entries> entries_;
};

// The type's factory: a new, empty directory.
Ptr<Entity> dirFactory(Name const& name, Entity* parent);

// The process's root directory, named "/", made on first use and never
// destroyed.
Ptr<Dir> globalDir();

template <>
struct EnumTexts<Dir::Entry::Status> {
  static constexpr std::string_view typeName = "Dir::Entry::Status";
  static constexpr std::array<std::string_view, 3> texts = {"notCurrent", "current", "deleted"};
};

}  // namespace Zet
