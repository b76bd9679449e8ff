// Reads arbitrary bytes as an entity URI and as an entity path, the way
// source names arrive from configuration files and from peers, and checks
// what the rest of the framework relies on, beyond "no crash":
//   - a URI read again from its own text is the same URI;
//   - a valid tcp URI has a port of 1 to 65535 and a host that is a name, or
//     an IPv6 literal (the only host with ':');
//   - a valid unix URI has a non-empty socket path without NUL;
//   - a path's names are non-empty and hold no '/', and joining them gives
//     the same names back.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

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
  std::vector<std::string_view> names;
  for (std::string_view name : path.nameTexts()) {
    require(!name.empty() && name.find('/') == std::string_view::npos);
    if (!names.empty()) joined += '/';
    joined += name;
    names.push_back(name);
  }
  require(names.size() == path.names() && path.hasNames() == !names.empty());
  require(path.lastNameText() == (names.empty() ? std::string_view() : names.back()));
  size_t parents = 0;
  for (std::string_view parent : path.parentNameTexts()) require(parent == names.at(parents++));
  require(parents + 1 == names.size() || (names.empty() && parents == 0));
  Zet::EntityUriPath rebuilt{Zet::String8(joined)};
  require(std::ranges::equal(names, rebuilt.nameTexts()));
  require(path.removeTrailingSlash().names() == path.names());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string_view text(reinterpret_cast<char const*>(data), size);
  checkUri(text);
  checkPath(text);
  return 0;
}
