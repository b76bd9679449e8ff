// Values and their text forms: shared strings and their hashes, numbers and
// flags both ways, under any locale.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "Zet/Zet.h"
#include "tests/comma_locale.h"

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

}  // namespace
}  // namespace Zet
