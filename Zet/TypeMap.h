#pragma once
// The type map: entity types by registered name.
//
// Types register themselves when their library loads (ZET_REGISTER_TYPE).
// A name that is not registered is resolved through map files: each directory
// of ZET_TYPE_MAP_PATH (':'-separated) may hold files named "*.map" whose
// lines read "TypeName library.so"; the library is loaded with dlopen and is
// expected to register the type as it loads. Each way this can fail has its
// own exception: NoMapFileEntryException (no map line names the type),
// LibraryLoadException (dlopen failed), NoTypeNodeException (the library
// loaded but did not register the type). All derive from UnknownTypeException.
// Thread-safe.

#include <string_view>

#include "Zet/TypeDescriptor.h"

namespace Zet {

class TypeMap {
 public:
  static TypeMap& instance();

  // Registers a type. Registering the same descriptor again is a no-op;
  // another descriptor under a taken name is NameInUseException.
  void typeIs(TypeDescriptor const& type);
  // The registered type of that name, or null; loads nothing.
  TypeDescriptor const* type(std::string_view name) const;
  // The type of that name, loading its library through the map files when
  // it is not registered yet; throws as described above.
  TypeDescriptor const& typeResolved(std::string_view name);
  // What went wrong the last time the library for this type failed to load
  // (dlopen's report); empty when it did not fail.
  String8 loadReport(std::string_view name) const;

 private:
  TypeMap() = default;
  struct Impl;
  Impl& impl() const;
};

// Registers a descriptor at load time: ZET_REGISTER_TYPE(agentEnvConfigType());
struct TypeRegistration {
  explicit TypeRegistration(TypeDescriptor const& type) { TypeMap::instance().typeIs(type); }
};

#define ZET_REGISTER_TYPE_CONCAT2(a, b) a##b
#define ZET_REGISTER_TYPE_CONCAT(a, b) ZET_REGISTER_TYPE_CONCAT2(a, b)
#define ZET_REGISTER_TYPE(descriptor) \
  static ::Zet::TypeRegistration const ZET_REGISTER_TYPE_CONCAT(zetTypeRegistration_, __LINE__)(descriptor)

}  // namespace Zet
