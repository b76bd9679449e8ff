#pragma once
// The introspection registry (IntrospectionReactor): libraries announce the scoped names of the
// types they provide ("Zet" then "AgentEnvVersion", closed by two scope
// exits), so that generic tools can list them. Thread-safe.

#include <string_view>
#include <vector>

#include "Zet/String8.h"

namespace Zet {

class IntrospectionReactor {
 public:
  static IntrospectionReactor& instance();

  // Opens a namespace or type scope inside the current one.
  void handleNameSpace(std::string_view name);
  // Closes the innermost open scope; the first close of a scope records its
  // full name ("Zet::AgentEnvVersion").
  void handleScopeExit();
  // Every name recorded so far, in the order their scopes closed.
  std::vector<String8> names() const;

 private:
  IntrospectionReactor() = default;
};

}  // namespace Zet
