#include "Zet/TypeMap.h"

#include <map>
#include <mutex>
#include <string>

#include "Zet/Exception.h"
#include "Zet/Format.h"

namespace Zet {

struct TypeMap::Impl {
  mutable std::mutex mutex;
  std::map<std::string, TypeDescriptor const*, std::less<>> types;
  std::map<std::string, String8, std::less<>> loadReports;
};

TypeMap& TypeMap::instance() {
  static TypeMap* map = new TypeMap;
  return *map;
}

TypeMap::Impl& TypeMap::impl() const {
  static Impl* impl = new Impl;
  return *impl;
}

void TypeMap::typeIs(TypeDescriptor const& type) {
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto [at, inserted] = m.types.emplace(std::string(type.name), &type);
  if (!inserted && at->second != &type)
    throw NameInUseException(format("type %.*s is already registered", int(type.name.size()), type.name.data()));
}

TypeDescriptor const* TypeMap::type(std::string_view name) const {
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto at = m.types.find(name);
  return at == m.types.end() ? nullptr : at->second;
}

TypeDescriptor const& TypeMap::typeResolved(std::string_view name) {
  if (auto const* t = type(name)) return *t;
  throw NoMapFileEntryException(format("no map file entry for type %.*s", int(name.size()), name.data()));
}

String8 TypeMap::loadReport(std::string_view name) const {
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto at = m.loadReports.find(name);
  return at == m.loadReports.end() ? String8() : at->second;
}

}  // namespace Zet
