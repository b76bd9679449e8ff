#pragma once
// Keyed collections whose members are made from constructor parameters
// (state machines made for a config and a status, say) return the existing
// member when asked for one again with the same parameters. Asking with a
// different value is a use error; this check raises it.

#include <string_view>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/Value.h"

namespace Zet {

// Throws NameInUseException "Reinstantiating the pointer interface where
// constructor parameter attribute <attribute> has a different value of
// <requested> than the current value of <current> not allowed" unless the
// two values are equal. `attribute` is the parameter's member name ("_status").
template <class V>
void constructorParameterCheck(std::string_view attribute, V const& current, V const& requested) {
  if (current == requested) return;
  String8 requestedText = stringValue(requested), currentText = stringValue(current);
  throw NameInUseException(format(
      "Reinstantiating the pointer interface where constructor parameter attribute %.*s has a different value of "
      "%s than the current value of %s not allowed",
      static_cast<int>(attribute.size()), attribute.data(), requestedText.charPtr(), currentText.charPtr()));
}

}  // namespace Zet
