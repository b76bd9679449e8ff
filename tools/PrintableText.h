#pragma once
// Text from configuration files or from another process, made safe to print
// on a terminal: a control byte (and, when asked, a byte above 126) becomes
// \xNN, so that no text can move the cursor, recolour the screen or split a
// line of a table.

#include <string>
#include <string_view>

namespace Zet::Tool {

std::string printable(std::string_view text, bool asciiOnly = false);

}  // namespace Zet::Tool
