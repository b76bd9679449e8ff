#pragma once
// Names of entities: paths in the directory tree and URIs naming an entity
// in this or another process.
//
// EntityUriPath is a '/'-separated path; it is absolute when it starts with
// '/'. EntityUri is one of:
//   ""                                  the empty URI (nothing named)
//   "*"                                 this process's own tree (export)
//   "path/to/entity", "/path"           a path without a scheme
//   "tcp://host:port/path?query"        an entity of a process on a TCP port
//   "tcp://[::1]:port/path"             the same with an IPv6 literal
//   "tls://host:port/path?query"        the same over TLS (certificates
//                                       checked both ways)
//   "unix://%2Fsocket%2Fpath/path?query" one behind a domain socket; the
//                                       socket path is percent-encoded
// The query ("a=1&b") carries mount flags. A URI is made from any text and
// never throws: isValid() tells whether the text had one of these forms, so
// a bad URI can be stored and reported later.
//
// Both keep their text and read it the first time a part is asked for:
// configurations hold hundreds of thousands of them, most of which are only
// stored, compared and printed. Values; not thread-safe, not even for
// reading one object from two threads.

#include <cstdint>
#include <iosfwd>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/Value.h"

namespace Zet {

class EntityUriPath {
 public:
  // The non-empty names of a path, in order ("/a//b/" has the names a and
  // b), read from its text as a walk goes: a range of string views into the
  // path's text.
  class NameTexts {
   public:
    class Iterator {
     public:
      using value_type = std::string_view;
      using difference_type = std::ptrdiff_t;
      Iterator() = default;
      explicit Iterator(std::string_view text) : rest_(text) { advance(); }
      std::string_view operator*() const { return name_; }
      Iterator& operator++() {
        advance();
        return *this;
      }
      Iterator operator++(int) {
        Iterator before = *this;
        advance();
        return before;
      }
      bool operator==(std::default_sentinel_t) const { return done_; }

     private:
      void advance();
      std::string_view rest_;
      std::string_view name_;
      bool done_ = false;
    };
    explicit NameTexts(std::string_view text) : text_(text) {}
    Iterator begin() const { return Iterator(text_); }
    std::default_sentinel_t end() const { return {}; }

   private:
    std::string_view text_;
  };

  EntityUriPath() = default;
  explicit EntityUriPath(String8 text) : text_(std::move(text)) {}

  bool isEmpty() const { return text_.isEmpty(); }
  bool isAbsolute() const { return text_.view().starts_with('/'); }
  // How many names the path has; counts them.
  size_t names() const;
  bool hasNames() const { return !(NameTexts(text_.view()).begin() == std::default_sentinel); }
  NameTexts nameTexts() const { return NameTexts(text_.view()); }
  // The names before the last one: the directories down to where the last
  // name lives.
  NameTexts parentNameTexts() const;
  // The last name; empty when the path has none.
  std::string_view lastNameText() const;
  // The same path without one trailing '/' ("/" stays "/"), and its text.
  EntityUriPath removeTrailingSlash() const;
  std::string_view textWithoutTrailingSlash() const;
  // Appends a relative path below this one; an absolute or empty one is
  // appended as its names.
  EntityUriPath& operator+=(EntityUriPath const& suffix);
  // Appends the names of a path's text to `joined`, the text of a path
  // being built, each after one '/': several paths are joined into one text
  // the way += joins two.
  static void appendNames(std::string& joined, std::string_view text);

  String8 const& text() const { return text_; }
  friend bool operator==(EntityUriPath const& a, EntityUriPath const& b) { return a.text_ == b.text_; }

 private:
  String8 text_;
};

// One value of a query: present or not, with its text ("" for a bare flag).
class UriQueryValue {
 public:
  UriQueryValue() = default;
  explicit UriQueryValue(String8 text) : text_(std::move(text)), present_(true) {}
  bool isPresent() const { return present_; }
  String8 const& text() const { return text_; }

 private:
  String8 text_;
  bool present_ = false;
};

// The query of a URI: "name=value" pairs separated by '&', in order.
class UriQuery {
 public:
  UriQuery() = default;
  explicit UriQuery(std::string_view text);
  bool isEmpty() const { return pairs_.empty(); }
  size_t size() const { return pairs_.size(); }
  // The value of the first pair with this name.
  UriQueryValue value(std::string_view name) const;
  String8 text() const;
  friend bool operator==(UriQuery const& a, UriQuery const& b) { return a.pairs_ == b.pairs_; }

 private:
  std::vector<std::pair<String8, String8>> pairs_;
};

class EntityUri {
 public:
  enum class Scheme { none, tcp, domainSocket, tls };

  EntityUri() = default;
  explicit EntityUri(String8 text) : rep_(text.isEmpty() ? nullptr : new Rep(std::move(text))) {}
  // The one URI that names this process's own tree.
  static EntityUri const& exportUri();

  bool isEmpty() const { return !rep_; }
  bool isExport() const { return text() == "*"; }
  bool isValid() const { return parts().valid; }
  // True when the scheme is one this framework serves (or there is none).
  bool checkScheme() const { return parts().schemeKnown; }
  Scheme scheme() const { return parts().scheme; }
  // tcp and tls: host (a name, or an IPv6 literal given in brackets, returned
  // without them) and port (1 to 65535); unix: the decoded socket path,
  // which holds no NUL.
  String8 const& host() const { return parts().host; }
  uint16_t port() const { return parts().port; }
  String8 const& socketPath() const { return parts().host; }
  // The path of the entity in its process's tree.
  EntityUriPath const& entityPath() const { return parts().path; }
  UriQuery const& query() const { return parts().query; }
  // The URI of the entity at `suffix` below this one: the suffix's names
  // appended to the path, one '/' before each, the query kept.
  EntityUri below(EntityUriPath const& suffix) const;

  String8 const& text() const { return rep_ ? rep_->text : kNoText; }
  friend bool operator==(EntityUri const& a, EntityUri const& b) { return a.rep_ == b.rep_ || a.text() == b.text(); }

 private:
  // What was read from the text, made when first asked for and shared by
  // the copies made after that.
  struct Parts : PtrInterface {
    explicit Parts(std::string_view text) { valid = parse(text); }
    bool parse(std::string_view text);
    bool parseAuthority(std::string_view authority);

    Scheme scheme = Scheme::none;
    String8 host;
    uint16_t port = 0;
    EntityUriPath path;
    UriQuery query;
    bool valid = true;
    bool schemeKnown = true;
  };
  Parts const& parts() const;

  // The text and what was read from it, shared by every copy: one pointer
  // in each holder (null for the empty URI), the parts made when first asked
  // for. Like the entities holding them, URIs are read on one thread.
  struct Rep : PtrInterface {
    explicit Rep(String8 t) : text(std::move(t)) {}
    String8 text;
    mutable Ptr<Parts const> parts;  // null until a part is asked for
  };
  static String8 const kNoText;  // the text of the empty URI
  Ptr<Rep const> rep_;
};

template <>
struct ValueText<EntityUri> {
  static String8 text(EntityUri const& v) { return v.text(); }
  static size_t parse(std::string_view t, EntityUri& v) {
    v = EntityUri(String8(t));
    return t.size();
  }
};
template <>
struct ValueText<EntityUriPath> {
  static String8 text(EntityUriPath const& v) { return v.text(); }
  static size_t parse(std::string_view t, EntityUriPath& v) {
    v = EntityUriPath(String8(t));
    return t.size();
  }
};

std::ostream& operator<<(std::ostream& out, EntityUri const& uri);
std::ostream& operator<<(std::ostream& out, EntityUriPath const& path);

}  // namespace Zet
