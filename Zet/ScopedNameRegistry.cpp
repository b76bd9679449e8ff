#include "Zet/ScopedNameRegistry.h"

#include <mutex>
#include <string>

namespace Zet {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<std::string> open;
  std::vector<String8> names;
};

Registry& registry() {
  static Registry* r = new Registry;
  return *r;
}

}  // namespace

IntrospectionReactor& IntrospectionReactor::instance() {
  static IntrospectionReactor r;
  return r;
}

void IntrospectionReactor::handleNameSpace(std::string_view name) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::string full = r.open.empty() ? std::string(name) : r.open.back() + "::" + std::string(name);
  r.open.push_back(std::move(full));
}

void IntrospectionReactor::handleScopeExit() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (r.open.empty()) return;
  String8 full(r.open.back());
  r.open.pop_back();
  for (auto const& n : r.names)
    if (n == full) return;
  r.names.push_back(full);
}

std::vector<String8> IntrospectionReactor::names() const {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return r.names;
}

}  // namespace Zet
