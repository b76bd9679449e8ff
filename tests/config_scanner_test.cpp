// The lexical side of configuration files, as a user meets it: which words
// are keywords, what counts as a blank, where diagnostics point, how strings
// and numbers are cut out of the text, and how long a line may be.

#include <thread>

#include "AgentEnv/ConfigReader.h"
#include "Zet/Trace.h"
#include "tests/config_test_support.h"

namespace Zet::testing {
namespace {

using ConfigScanner = ConfigParserFixture;

TEST_F(ConfigScanner, WordsStringsAndStrayCharacters) {
  std::string const nul(1, '\0'), high(300, '\xff');
  read("lexical.conf", "store {\n"
                       "  source0x = \"a\";\n"
                       "  Source0 = \"b\";\n"
                       "\tsource0 = \"C:\\dir\\\";\r\n"
                       "  _typeName = \"a\\tb // no comment\";   # \xe9@\n"
                       "  pathSuffix = \"caf\xc3\xa9" + nul + "\";" + nul + high + "\n}\n");
  EXPECT_EQ(errorLines(), (Lines{"lexical.conf:2: error: unknown attribute name: source0x",
                                 "lexical.conf:3: error: unknown attribute name: Source0"}))
      << "keywords are whole, case-sensitive words";
  EXPECT_EQ(echoes.str(), "\t\r_#\xe9@" + nul + high) << "spaces are the only blanks";
  Ptr<AgentEnvConfig> store = config("store");
  EXPECT_EQ(store->source0().text(), "C:\\dir\\") << "no escapes: a string ends at its second quote";
  EXPECT_EQ(store->typeName(), "a\\tb // no comment") << "the identifier starts after the underscore";
  EXPECT_EQ(store->pathSuffix().text(), std::string_view("caf\xc3\xa9\0", 6));

  read("include.conf", "include \"lexical.conf\"\nother { timeoutPeriod = 1; }\n");
  EXPECT_EQ(errorLines().back(), "include.conf:1: error: syntax error") << "include needs its number sign";
}

TEST_F(ConfigScanner, DiagnosticsNameTheLineOfTheLastScannedText) {
  read("lines.conf",
       "// leading comment\n"
       "\n"
       "a {\n"
       "  source0 = \"x\"\n"
       "}\n"
       "b {\n"
       "  source0 = \"y\"\n"
       "  // the next token is further down\n"
       "\n"
       "}\n"
       "c {\n"
       "  bogus = 1;\n"
       "  typeName = \"T\";\n");
  EXPECT_EQ(errorLines(), (Lines{"lines.conf:4: error: missing semi-colon", "lines.conf:9: error: missing semi-colon",
                                 "lines.conf:12: error: unknown attribute name: bogus",
                                 "lines.conf:13: error: syntax error", "lines.conf:13: error: unmatched bracket"}))
      << "a missing semicolon is noticed at the next token and reported one line above it; "
         "at the end of the file the last newline's line counts";
  EXPECT_EQ(parser->parsingErrorsCount(), 5u);
  EXPECT_EQ(config("c")->typeName(), "T");
}

TEST_F(ConfigScanner, UnterminatedStringDropsTheRestOfItsLineOnly) {
  read("open.conf",
       "store {\n"
       "  source0 = \"a\"; pathSuffix = \"b; typeName = T;\n"
       "  target = \"/t\";\n"
       "}\n");
  EXPECT_EQ(errorLines(), (Lines{"open.conf:2: error: unterminated string", "open.conf:3: error: syntax error",
                                 "open.conf:3: error: unmatched bracket"}));
  EXPECT_EQ(config("store")->source0().text(), "a");
  EXPECT_TRUE(config("store")->typeName().isEmpty() && echoes.str().empty());
}

TEST_F(ConfigScanner, NumbersHaveNoSignExponentOrLeadingPoint) {
  read("point.conf", "a { timeoutPeriod = 5.; }\n");
  EXPECT_EQ(config("a")->timeoutPeriod(), 5.0) << "digits with a trailing point form a double";
  int n = 0;
  for (char const* refused : {"1e5", "-5", ".5", "true", "!5"}) {
    errors.str("");
    std::string name = std::to_string(n++) + "-number.conf";
    read(name, std::string("b { timeoutPeriod = ") + refused + "; }\n");
    EXPECT_EQ(errorLines().front(), name + ":1: error: syntax error") << refused;
  }
}

TEST_F(ConfigScanner, LinesOfAMegabyteAreFineAndOfSixtyFourMegabytesTooLong) {
  std::string const megabyte(1 << 20, 'x');
  read("long.conf", "// " + megabyte + "\nstore { source0 = \"" + megabyte + "\"; typeName = \"T\"; }\n");
  EXPECT_TRUE(errors.str().empty());
  EXPECT_EQ(config("store")->source0().text().size(), megabyte.size());

  // Such a file is read on a thread of its own; what ends the read is
  // traced on the caller's thread, under the caller's expectations.
  std::vector<std::thread::id> traced;
  Trace::configIs("Exception/1");
  Trace::sinkIs([&](std::string_view facility, int, std::string_view line) {
    if (facility == "Exception" && line.find("huge") != line.npos) traced.push_back(std::this_thread::get_id());
  });
  std::string huge = "kept { typeName = \"T\"; }\n// ";
  huge.append(ConfigReader::kMaxLineLength, 'x');
  huge += "\nlost { typeName = \"T\"; }\n";
  try {
    read("huge.conf", huge);
    FAIL() << "no exception";
  } catch (AgentException const& e) {
    EXPECT_STREQ(e.what(), "error: file 'huge.conf' has a line longer than 64 MiB");
  }
  EXPECT_TRUE(config("kept"));
  EXPECT_FALSE(config("lost"));
  EXPECT_EQ(traced, std::vector<std::thread::id>{std::this_thread::get_id()});
  {
    Expect expected(kAgentException);
    EXPECT_THROW(read("huge2.conf", huge), AgentException);
  }
  EXPECT_EQ(traced.size(), 1u) << "an expected failure is not traced";
  Trace::sinkIs({});
  char const* env = std::getenv("ZET_TRACE");
  Trace::configIs(env ? env : "");
}

}  // namespace
}  // namespace Zet::testing
