// Reads arbitrary bytes as an entity URI and as an entity path, the way
// source names arrive from configuration files and from peers, and checks
// what the rest of the framework relies on, beyond "no crash":
//   - a URI read again from its own text is the same URI;
//   - a valid tcp URI has a port of 1 to 65535 and a host that is a name, or
//     an IPv6 literal (the only host with ':');
//   - a valid unix URI has a non-empty socket path without NUL;
//   - a path's names are non-empty and hold no '/', and joining them gives
//     the same names back.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Zet/EntityUri.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void checkUri(std::string_view text) {
  Zet::EntityUri uri{Zet::String8(text)};
  require(uri.text().view() == text);
  Zet::EntityUri again{uri.text()};
  require(again.isValid() == uri.isValid() && again.scheme() == uri.scheme());
  require(again.host() == uri.host() && again.port() == uri.port());
  require(again.entityPath().text() == uri.entityPath().text());
  if (!uri.isValid()) return;
  std::string_view host = uri.host().view();
  switch (uri.scheme()) {
    case Zet::EntityUri::Scheme::tcp:
    case Zet::EntityUri::Scheme::tls:
      require(uri.port() >= 1 && !host.empty());
      require(host.find(':') == std::string_view::npos || text.find('[') != std::string_view::npos);
      break;
    case Zet::EntityUri::Scheme::domainSocket:
      require(!host.empty() && host.find('\0') == std::string_view::npos);
      break;
    case Zet::EntityUri::Scheme::none:
      require(host.empty() && uri.port() == 0);
      break;
  }
}

void checkPath(std::string_view text) {
  Zet::EntityUriPath path{Zet::String8(text)};
  std::string joined = path.isAbsolute() ? "/" : "";
  for (size_t i = 0; i < path.names(); ++i) {
    std::string_view name = path.nameText(i);
    require(!name.empty() && name.find('/') == std::string_view::npos);
    require(path.name(i).view() == name);
    if (i) joined += '/';
    joined += name;
  }
  Zet::EntityUriPath rebuilt{Zet::String8(joined)};
  require(rebuilt.names() == path.names());
  for (size_t i = 0; i < path.names(); ++i) require(rebuilt.nameText(i) == path.nameText(i));
  require(path.removeTrailingSlash().names() == path.names());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string_view text(reinterpret_cast<char const*>(data), size);
  checkUri(text);
  checkPath(text);
  return 0;
}
