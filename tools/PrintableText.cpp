#include "PrintableText.h"

#include <cstdio>

namespace Zet::Tool {

std::string printable(std::string_view text, bool asciiOnly) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f || (asciiOnly && c > 0x7f)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", c);
      out += escape;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

}  // namespace Zet::Tool
