#include "Zet/EntityUri.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <ostream>
#include <string>

namespace Zet {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decodes %XX escapes; false on a malformed escape.
bool percentDecode(std::string_view in, std::string& out) {
  out.clear();
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '%') {
      out += in[i];
      continue;
    }
    if (i + 2 >= in.size()) return false;
    int hi = hexDigit(in[i + 1]), lo = hexDigit(in[i + 2]);
    if (hi < 0 || lo < 0) return false;
    out += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  return true;
}

bool isSchemeChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '-' ||
         c == '.';
}

// The text without its trailing slashes, and where its last name begins.
std::pair<std::string_view, size_t> lastNameAt(std::string_view text) {
  size_t end = text.find_last_not_of('/');
  if (end == std::string_view::npos) return {{}, 0};
  text = text.substr(0, end + 1);
  size_t slash = text.rfind('/');
  return {text, slash == std::string_view::npos ? 0 : slash + 1};
}

}  // namespace

// ---- EntityUriPath -----------------------------------------------------------

void EntityUriPath::NameTexts::Iterator::advance() {
  size_t start = rest_.find_first_not_of('/');
  if (start == std::string_view::npos) {
    done_ = true;
    name_ = rest_ = {};
    return;
  }
  rest_.remove_prefix(start);
  name_ = rest_.substr(0, rest_.find('/'));
  rest_.remove_prefix(name_.size());
}

size_t EntityUriPath::names() const {
  size_t count = 0;
  for ([[maybe_unused]] std::string_view name : nameTexts()) ++count;
  return count;
}

EntityUriPath::NameTexts EntityUriPath::parentNameTexts() const {
  auto [text, last] = lastNameAt(text_.view());
  return NameTexts(text.substr(0, last));
}

std::string_view EntityUriPath::lastNameText() const {
  auto [text, last] = lastNameAt(text_.view());
  return text.substr(last);
}

EntityUriPath EntityUriPath::removeTrailingSlash() const {
  std::string_view t = textWithoutTrailingSlash();
  return t.size() == text_.size() ? *this : EntityUriPath(String8(t));
}

std::string_view EntityUriPath::textWithoutTrailingSlash() const {
  std::string_view t = text_.view();
  return t.size() > 1 && t.back() == '/' ? t.substr(0, t.size() - 1) : t;
}

EntityUriPath& EntityUriPath::operator+=(EntityUriPath const& suffix) {
  if (!suffix.hasNames()) return *this;
  std::string joined(text_.view());
  appendNames(joined, suffix.text_.view());
  *this = EntityUriPath(String8(joined));
  return *this;
}

void EntityUriPath::appendNames(std::string& joined, std::string_view text) {
  for (std::string_view name : NameTexts(text)) {
    if (!joined.empty() && joined.back() != '/') joined += '/';
    joined += name;
  }
}

std::ostream& operator<<(std::ostream& out, EntityUriPath const& path) { return out << path.text(); }

// ---- UriQuery ----------------------------------------------------------------

UriQuery::UriQuery(std::string_view text) {
  while (!text.empty()) {
    size_t amp = text.find('&');
    std::string_view pair = text.substr(0, amp);
    text = amp == std::string_view::npos ? std::string_view() : text.substr(amp + 1);
    if (pair.empty()) continue;
    size_t eq = pair.find('=');
    if (eq == std::string_view::npos)
      pairs_.emplace_back(String8(pair), String8());
    else
      pairs_.emplace_back(String8(pair.substr(0, eq)), String8(pair.substr(eq + 1)));
  }
}

UriQueryValue UriQuery::value(std::string_view name) const {
  for (auto const& [n, v] : pairs_)
    if (n == name) return UriQueryValue(v);
  return UriQueryValue();
}

String8 UriQuery::text() const {
  std::string t;
  for (auto const& [n, v] : pairs_) {
    if (!t.empty()) t += '&';
    t += n.view();
    if (!v.isEmpty()) t.append("=").append(v.view());
  }
  return String8(t);
}

// ---- EntityUri ---------------------------------------------------------------

constinit String8 const EntityUri::kNoText;

EntityUri::Parts const& EntityUri::parts() const {
  if (!rep_) {
    static Parts const* const empty = [] {
      auto* p = new Parts(std::string_view());
      p->newRef();  // never released
      return p;
    }();
    return *empty;
  }
  if (!rep_->parts) rep_->parts = Ptr<Parts const>(new Parts(rep_->text.view()));
  return *rep_->parts;
}

EntityUri const& EntityUri::exportUri() {
  static EntityUri const uri(String8("*"));
  return uri;
}

bool EntityUri::Parts::parse(std::string_view t) {
  if (t.empty() || t == "*") return true;
  size_t question = t.find('?');
  if (question != std::string_view::npos) {
    query = UriQuery(t.substr(question + 1));
    t = t.substr(0, question);
  }
  size_t colon = t.find("://");
  std::string_view head = t.substr(0, colon);
  bool hasScheme = colon != std::string_view::npos && colon > 0 && std::all_of(head.begin(), head.end(), isSchemeChar);
  if (!hasScheme) {
    size_t firstColon = t.find(':');
    if (firstColon != std::string_view::npos && firstColon < t.find('/')) {
      // "name:..." without "//" reads as a scheme we do not serve.
      schemeKnown = false;
      return false;
    }
    path = EntityUriPath(String8(t));
    return true;
  }
  if (head == "tcp") {
    scheme = Scheme::tcp;
  } else if (head == "tls") {
    scheme = Scheme::tls;
  } else if (head == "unix") {
    scheme = Scheme::domainSocket;
  } else {
    schemeKnown = false;
    return false;
  }
  std::string_view rest = t.substr(colon + 3);
  size_t slash = rest.find('/');
  std::string_view authority = rest.substr(0, slash);
  path = EntityUriPath(String8(slash == std::string_view::npos ? std::string_view("/") : rest.substr(slash)));
  return parseAuthority(authority);
}

// A host name: letters, digits, '-', '_' and '.'.
static bool isHostName(std::string_view host) {
  return !host.empty() && std::all_of(host.begin(), host.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '-' || c == '_' || c == '.';
  });
}

// The inside of an IPv6 literal's brackets: hex digits, ':' and '.' (for an
// embedded IPv4 address), with at least one ':'.
static bool isIpv6Literal(std::string_view host) {
  return host.find(':') != std::string_view::npos && std::all_of(host.begin(), host.end(), [](unsigned char c) {
           return std::isxdigit(c) || c == ':' || c == '.';
         });
}

// "host:port" or "[ipv6]:port" for tcp and tls, with a port of 1 to 65535 in decimal
// digits; the percent-encoded socket path, without NUL, for unix.
bool EntityUri::Parts::parseAuthority(std::string_view authority) {
  if (authority.empty()) return false;
  if (scheme == Scheme::domainSocket) {
    std::string socket;
    if (!percentDecode(authority, socket) || socket.empty() || socket.find('\0') != std::string::npos) return false;
    host = String8(socket);
    return true;
  }
  size_t colon = authority.rfind(':');
  if (colon == std::string_view::npos) return false;
  std::string_view hostText = authority.substr(0, colon), portText = authority.substr(colon + 1);
  if (hostText.starts_with('[')) {
    if (!hostText.ends_with(']')) return false;
    hostText = hostText.substr(1, hostText.size() - 2);
    if (!isIpv6Literal(hostText)) return false;
  } else if (!isHostName(hostText)) {
    return false;
  }
  unsigned number = 0;
  auto r = std::from_chars(portText.data(), portText.data() + portText.size(), number);
  bool digitsOnly = !portText.empty() && std::all_of(portText.begin(), portText.end(), [](unsigned char c) {
    return std::isdigit(c);
  });
  if (!digitsOnly || r.ec != std::errc() || number == 0 || number > 65535) return false;
  host = String8(hostText);
  port = static_cast<uint16_t>(number);
  return true;
}

EntityUri EntityUri::below(EntityUriPath const& suffix) const {
  if (isEmpty() || !suffix.hasNames()) return *this;
  std::string_view t = text().view();
  size_t question = t.find('?');
  std::string joined(t.substr(0, question));
  for (std::string_view name : suffix.nameTexts()) {
    if (joined.empty() || joined.back() != '/') joined += '/';
    joined += name;
  }
  if (question != std::string_view::npos) joined += t.substr(question);
  return EntityUri(String8(joined));
}

std::ostream& operator<<(std::ostream& out, EntityUri const& uri) { return out << uri.text(); }

}  // namespace Zet
