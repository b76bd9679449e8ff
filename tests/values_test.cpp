// Values and their text forms: strings, numbers, URIs and paths, both ways.

#include <gtest/gtest.h>

#include <iostream>

#include <cstdio>
#include <filesystem>

#include <cmath>

#include <cstdlib>
#include <thread>
#include <vector>

#include "Zet/Zet.h"

#include "comma_locale.h"

namespace Zet {
namespace {

TEST(String8, SharesTextComparesByContentAndHashesOnce) {
  String8 a("agent"), b(std::string("agent")), empty;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_STREQ(empty.charPtr(), "");
  EXPECT_EQ(String8(""), empty);
  EXPECT_EQ(a + "-env", "agent-env");
  EXPECT_NE(String8("ab"), String8("ba"));
  EXPECT_LT(String8("a"), String8("b"));
  String8 withNul(std::string_view("a\0b", 3));
  EXPECT_EQ(withNul.size(), 3u);
  EXPECT_NE(withNul, String8("a"));

  // Copies from many threads share one buffer without losing a count.
  String8 shared("shared");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) String8 copy(shared);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared, "shared");
}

// Prints this process's hash of a fixed name, for the test below.
TEST(String8, HashOfAFixedNameInThisProcess) { std::cout << "hash " << String8("bucket-key").hash() << "\n"; }

// The hash is keyed by a seed of each process: names a peer chooses to
// collide in one process do not collide in another.
TEST(String8, HashesDependOnASeedDrawnByEachProcess) {
  EXPECT_EQ(String8("k").hash(), String8::hashOf("k", String8::hashSeed()));
  EXPECT_NE(String8::hashOf("k", 1), String8::hashOf("k", 3));
  std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  auto hashInAnotherProcess = [&] {
    FILE* out = popen(("'" + self + "' --gtest_filter=String8.HashOfAFixedNameInThisProcess").c_str(), "r");
    std::string text;
    for (char buf[256]; out && fgets(buf, sizeof buf, out);)
      if (std::string_view(buf).starts_with("hash ")) text = buf;
    if (out) pclose(out);
    return text;
  };
  std::string first = hashInAnotherProcess(), second = hashInAnotherProcess();
  ASSERT_FALSE(first.empty());
  EXPECT_NE(first, second);
}

TEST(ValueText, NumbersAndFlagsRoundTripAndJunkIsReported) {
  EXPECT_EQ(stringValue(42u), "42");
  EXPECT_EQ(stringValue(-7), "-7");
  EXPECT_EQ(stringValue(2.5), "2.5");
  EXPECT_EQ(stringValue(true), "true");
  EXPECT_EQ(strepToValue<double>(stringValue(0.1)), 0.1);
  EXPECT_EQ(strepToValue<uint64_t>("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(strepToValue<bool>("false"), false);
  size_t used = 0;
  double d = 0;
  used = sequenceToValue("12.5kg", d);
  EXPECT_EQ(used, 4u);
  EXPECT_EQ(d, 12.5);
  try {
    strepToValue<int>("12abc");
    FAIL();
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "junk at column 2 deserializing 12abc");
  }
  EXPECT_THROW(strepToValue<int>("abc"), RangeException);
  EXPECT_THROW(strepToValue<uint8_t>("300"), RangeException);
  EXPECT_EQ(format("%s:%d", "f", 3), "f:3");
  EXPECT_EQ(format("%0300d", 1).size(), 300u) << "long results are not truncated";
}

TEST(ValueText, NumbersReadAndWriteTheSameUnderADecimalCommaLocale) {
  ZET_UNDER_COMMA_LOCALE(locale);
  EXPECT_EQ(strepToValue<double>("0.5"), 0.5);
  EXPECT_EQ(stringValue(0.5), "0.5");
  EXPECT_EQ(strepToValue<double>("1.5e400"), HUGE_VAL);
  EXPECT_EQ(strepToValue<double>("-1.5e400"), -HUGE_VAL);
  EXPECT_EQ(strepToValue<double>("1.5e-400"), 0.0);
  EXPECT_THROW(strepToValue<double>("0,5"), RangeException);
  double x = 1.0 / 3;
  EXPECT_EQ(strepToValue<double>(stringValue(x)), x);
}

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
  ASSERT_EQ(p.names(), 2u);
  EXPECT_EQ(p.name(0), "agent");
  EXPECT_EQ(p.name(1), "env");
  EXPECT_EQ(p.name(2), "");
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

TEST(System, ReadsTheEnvironmentAndHostName) {
  setenv("ZET_VALUES_TEST", "on", 1);
  EXPECT_EQ(System::getenv("ZET_VALUES_TEST"), "on");
  unsetenv("ZET_VALUES_TEST");
  EXPECT_TRUE(System::getenv("ZET_VALUES_TEST").isEmpty());
  EXPECT_FALSE(System::hostname().isEmpty());
}

TEST(Trace, SelectsByFacilityAndLevelAndSkipsUnselectedArguments) {
  std::vector<std::string> lines;
  auto previous = Trace::sinkIs([&](std::string_view f, int level, std::string_view line) {
    lines.push_back(std::string(f) + "/" + std::to_string(level) + " " + std::string(line));
  });
  Trace::configIs("AgentEnvSm/2,*/0");
  int evaluated = 0;
  ZET_TRACE_AT("AgentEnvSm", 2) << "e1" << ": Trying to mount.";
  ZET_TRACE_AT("AgentEnvSm", 3) << ++evaluated;
  ZET_TRACE_AT("Other", 0) << "error";
  ZET_TRACE_AT("Other", 1) << ++evaluated;
  Trace::configIs("");
  Trace::sinkIs(previous);
  EXPECT_EQ(lines, (std::vector<std::string>{"AgentEnvSm/2 e1: Trying to mount.", "Other/0 error"}));
  EXPECT_EQ(evaluated, 0);
}

TEST(Expect, MarksKindsForItsScopeOnly) {
  EXPECT_FALSE(Expect::isExpected(kUnknownTypeException));
  {
    Expect guard(kUnknownTypeException);
    EXPECT_TRUE(Expect::isExpected(NoTypeNodeException("x").kinds()));
    EXPECT_FALSE(Expect::isExpected(kPermissionException));
  }
  EXPECT_FALSE(Expect::isExpected(kUnknownTypeException));
  NoMapFileEntryException e("no entry");
  EXPECT_TRUE(e.isKind(kUnknownTypeException));
  EXPECT_TRUE(e.isKind(kException));
  EXPECT_FALSE(e.isKind(kRangeException));
}

}  // namespace
}  // namespace Zet
