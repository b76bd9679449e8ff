// Names of entities: URIs of every form, kept even when bad, and paths
// joined and trimmed.

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "Zet/EntityUri.h"

namespace Zet {
namespace {

TEST(EntityUri, ReadsEveryFormItServesAndKeepsBadOnes) {
  EntityUri tcp(String8("tcp://db.local:4000/store/items?persist&timeout=5"));
  EXPECT_TRUE(tcp.isValid());
  EXPECT_EQ(tcp.scheme(), EntityUri::Scheme::tcp);
  EXPECT_EQ(tcp.host(), "db.local");
  EXPECT_EQ(tcp.port(), 4000);
  EXPECT_EQ(tcp.entityPath().text(), "/store/items");
  EXPECT_TRUE(tcp.query().value("persist").isPresent());
  EXPECT_EQ(tcp.query().value("timeout").text(), "5");
  EXPECT_FALSE(tcp.query().value("other").isPresent());
  EXPECT_EQ(stringValue(tcp), "tcp://db.local:4000/store/items?persist&timeout=5");
  EntityUri tls(String8("tls://[::1]:4001/store"));
  EXPECT_TRUE(tls.isValid());
  EXPECT_EQ(tls.scheme(), EntityUri::Scheme::tls);
  EXPECT_EQ(tls.host(), "::1");
  EXPECT_EQ(tls.port(), 4001);
  EXPECT_FALSE(EntityUri(String8("tls://host/store")).isValid());

  EntityUri local(String8("unix://%2Ftmp%2Fagent.sock/a/b"));
  EXPECT_TRUE(local.isValid());
  EXPECT_EQ(local.socketPath(), "/tmp/agent.sock");
  EXPECT_EQ(local.entityPath().names(), 2u);

  EXPECT_TRUE(EntityUri().isEmpty());
  EXPECT_TRUE(EntityUri(String8("*")).isExport());
  EXPECT_EQ(EntityUri(String8("*")), EntityUri::exportUri());
  EXPECT_TRUE(EntityUri(String8("relative/path")).isValid());

  EntityUri v6(String8("tcp://[::1]:4000/a"));
  EXPECT_TRUE(v6.isValid());
  EXPECT_EQ(v6.host(), "::1") << "without brackets, as a resolver takes it";
  EXPECT_EQ(v6.port(), 4000);

  // Addresses from files and peers that must not pass for good ones: bare
  // IPv6, colons in a host name, ports out of range or not decimal, a NUL
  // hidden in a socket path (binding would use the part before it).
  for (char const* bad : {"tcp://host/x", "tcp://host:99999/x", "tcp://:1/x", "unix://%2/x", "unix:///x",
                          "tcp://::1/a", "tcp://a:b:80/x", "tcp://[::1/a", "tcp://[]:80/a", "tcp://[::1]/a",
                          "tcp://host:0/x", "tcp://host:+80/x", "tcp://host: 80/x", "tcp://ho st:80/x",
                          "tcp://[::g]:80/x", "unix://a%00b/x", "unix://%zz/x"}) {
    EntityUri u{String8(bad)};
    EXPECT_FALSE(u.isValid()) << bad;
    EXPECT_TRUE(u.checkScheme()) << bad;
    EXPECT_EQ(stringValue(u), bad) << "the text is kept for reporting";
  }
  EXPECT_FALSE(EntityUri(String8("http://x:1/y")).checkScheme());
  EXPECT_FALSE(EntityUri(String8("mailto:x")).checkScheme());

  // A path below a URI joins with one '/' and keeps the query at the end.
  EXPECT_EQ(local.below(EntityUriPath(String8("orders"))).text(), "unix://%2Ftmp%2Fagent.sock/a/b/orders");
  EXPECT_EQ(tcp.below(EntityUriPath(String8("/x/y/"))).text(), "tcp://db.local:4000/store/items/x/y?persist&timeout=5");
  EXPECT_EQ(EntityUri(String8("tcp://h:1")).below(EntityUriPath(String8("x"))).text(), "tcp://h:1/x");
  EXPECT_EQ(local.below(EntityUriPath()), local);
}

TEST(EntityUriPath, NamesJoinsAndTrims) {
  EntityUriPath p(String8("/agent//env/"));
  EXPECT_TRUE(p.isAbsolute());
  EXPECT_EQ(p.names(), 2u);
  auto texts = [](EntityUriPath::NameTexts names) {
    std::vector<std::string_view> out;
    for (std::string_view name : names) out.push_back(name);
    return out;
  };
  EXPECT_EQ(texts(p.nameTexts()), (std::vector<std::string_view>{"agent", "env"}));
  EXPECT_EQ(texts(p.parentNameTexts()), std::vector<std::string_view>{"agent"});
  EXPECT_EQ(p.lastNameText(), "env");
  EXPECT_EQ(EntityUriPath(String8("//")).lastNameText(), "");
  EXPECT_FALSE(EntityUriPath(String8("//")).hasNames());
  EXPECT_EQ(EntityUriPath(String8("top")).lastNameText(), "top");
  EXPECT_TRUE(texts(EntityUriPath(String8("top")).parentNameTexts()).empty());
  EXPECT_EQ(p.removeTrailingSlash().text(), "/agent//env");
  EXPECT_EQ(EntityUriPath(String8("/")).removeTrailingSlash().text(), "/");
  EXPECT_FALSE(EntityUriPath(String8("rel/x")).isAbsolute());

  EntityUriPath joined(String8("/a"));
  joined += EntityUriPath(String8("b/c"));
  EXPECT_EQ(joined.text(), "/a/b/c");
  joined += EntityUriPath(String8("/d"));
  EXPECT_EQ(joined.text(), "/a/b/c/d");
  joined += EntityUriPath();
  EXPECT_EQ(joined.text(), "/a/b/c/d");
  EntityUriPath root(String8("/"));
  root += EntityUriPath(String8("x"));
  EXPECT_EQ(root.text(), "/x");
}

}  // namespace
}  // namespace Zet
