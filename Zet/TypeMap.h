#pragma once
// The type map: entity types by registered name.
//
// Types register themselves when their library loads (ZET_REGISTER_TYPE).
// A name that is not registered is resolved through map files: each directory
// of ZET_TYPE_MAP_PATH (':'-separated, read at every resolution) may hold
// files named "*.map", read in name order, whose lines read
// "TypeName library.so"; blank lines and lines starting with '#' are ignored,
// and a line that is malformed, longer than kMaxMapLineBytes or in a file
// larger than kMaxMapFileBytes is skipped (traced under "TypeMap", level 1).
// The first line naming the type wins. Its library is loaded with dlopen
// (RTLD_NOW | RTLD_GLOBAL; a bare file name is searched for the way dlopen
// searches) and is expected to register the type as it loads. A loaded
// library is never unloaded: it may have registered other types as well.
//
// Each way resolution can fail has its own exception, all derived from
// UnknownTypeException: NoMapFileEntryException (no map line names the
// type), LibraryLoadException (dlopen failed, or the library registered a
// name already taken; loadReport keeps the report),
// NoTypeNodeException (the library loaded but did not register the type).
// Thread-safe; resolutions that load a library run one at a time.

#include <cstddef>
#include <string>
#include <string_view>

#include "Zet/TypeDescriptor.h"

namespace Zet {

class TypeMap {
 public:
  static constexpr size_t kMaxMapFileBytes = 256 * 1024;
  static constexpr size_t kMaxMapLineBytes = 1024;

  static TypeMap& instance();

  // Registers a type; returns false when another descriptor has the name.
  // Registering the same descriptor again is a no-op. A clash never throws
  // (registration runs inside dlopen and static initialisation): it is
  // traced, the first descriptor keeps the name, and a library whose loading
  // met a clash is reported as failing to load, with the clash as reason.
  bool typeIs(TypeDescriptor const& type);
  // The registered type of that name, or null; loads nothing.
  TypeDescriptor const* type(std::string_view name) const;
  // The type of that name, loading its library through the map files when
  // it is not registered yet; throws as described above.
  TypeDescriptor const& typeResolved(std::string_view name);
  // Whether the directories of ZET_TYPE_MAP_PATH hold any map file.
  static bool mapFilesFound();
  // dlopen's report of the last failed attempt to load the library of this
  // type; empty when the last attempt did not fail that way.
  String8 loadReport(std::string_view name) const;

 private:
  TypeMap() = default;
  struct Impl;
  Impl& impl() const;
  // dlopens `library`, recording or clearing the load report of `name`;
  // LibraryLoadException when dlopen fails.
  void loadLibrary(std::string_view name, std::string const& library);
};

// Registers a descriptor at load time: ZET_REGISTER_TYPE(agentEnvConfigType());
struct TypeRegistration {
  explicit TypeRegistration(TypeDescriptor const& type) { TypeMap::instance().typeIs(type); }
};

#define ZET_REGISTER_TYPE_CONCAT2(a, b) a##b
#define ZET_REGISTER_TYPE_CONCAT(a, b) ZET_REGISTER_TYPE_CONCAT2(a, b)
#define ZET_REGISTER_TYPE(descriptor) \
  static ::Zet::TypeRegistration const ZET_REGISTER_TYPE_CONCAT(zetTypeRegistration_, __LINE__)(descriptor)

// Defines the accessors that ZET_ENTITY_TYPE (Entity.h) declares in Class as
// `descriptor`, and registers it: ZET_DEFINE_TYPE(AgentEnvConfig, descriptor);
#define ZET_DEFINE_TYPE(Class, descriptor)                                           \
  ZET_REGISTER_TYPE(descriptor);                                                     \
  [[maybe_unused]] ::Zet::TypeDescriptor const& Class::type() { return descriptor; } \
  ::Zet::TypeDescriptor const& Class::fwkType() const { return descriptor; }         \
  static_assert(true)

}  // namespace Zet
