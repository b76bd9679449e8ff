// The lexical side of configuration files, as a user meets it: which words
// are keywords, what counts as a blank, where diagnostics point, how strings
// and numbers are cut out of the text, and what happens to characters the
// language does not use.

#include <string>

#include "AgentEnv/ConfigReader.h"
#include "config_test_support.h"

namespace Zet::testing {
namespace {

using ConfigScanner = ConfigParserFixture;

TEST_F(ConfigScanner, KeywordsAreWholeCaseSensitiveWords) {
  read("words.conf",
       "store {\n"
       "  source0x = \"a\";\n"
       "  Source0 = \"b\";\n"
       "  typeNames = \"c\";\n"
       "  source0 = \"d\";\n"
       "  unmountType = stateRemoving;\n"
       "}\n");
  EXPECT_EQ(errorLines(), (Lines{"words.conf:2: error: unknown attribute name: source0x",
                                 "words.conf:3: error: unknown attribute name: Source0",
                                 "words.conf:4: error: unknown attribute name: typeNames"}));
  EXPECT_EQ(config("store")->source0().text(), "d");
  EXPECT_EQ(config("store")->unmountType(), AgentEnvConfig::stateRemoving);

  read("include.conf", "include \"words.conf\"\nother { timeoutPeriod = 1; }\n");
  EXPECT_EQ(errorLines().back(), "include.conf:1: error: syntax error") << "include needs its number sign";
}

TEST_F(ConfigScanner, OnlyTheSpaceIsABlankAndStrayCharactersAreEchoed) {
  read("stray.conf",
       "store {\n"
       "\tsource0 = \"a\";\r\n"
       "  _typeName = \"T\";   # \xe9@\n"
       "}\n");
  EXPECT_EQ(echoes.str(), "\t\r_#\xe9@") << "each stray character is copied once, spaces never";
  EXPECT_TRUE(errors.str().empty());
  EXPECT_EQ(config("store")->source0().text(), "a");
  EXPECT_EQ(config("store")->typeName(), "T") << "the identifier starts after the underscore";
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
  EXPECT_EQ(errorLines(), (Lines{"lines.conf:4: error: missing semi-colon",
                                 "lines.conf:9: error: missing semi-colon",
                                 "lines.conf:12: error: unknown attribute name: bogus",
                                 "lines.conf:13: error: syntax error",
                                 "lines.conf:13: error: unmatched bracket"}))
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
  EXPECT_TRUE(config("store")->typeName().isEmpty()) << "the text after the open quote is gone";
  EXPECT_TRUE(echoes.str().empty());

  errors.str("");
  read("open-at-end.conf", "late { source0 = \"a");
  EXPECT_EQ(errorLines().front(), "open-at-end.conf:1: error: unterminated string");
}

TEST_F(ConfigScanner, StringsKeepEveryCharacterBetweenTheirQuotes) {
  read("strings.conf",
       "store {\n"
       "  source0 = \"C:\\dir\\\";\n"
       "  typeName = \"a\\tb // not a comment\";\n"
       "  pathSuffix = \"caf\xc3\xa9\";\n"
       "}\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  EXPECT_EQ(config("store")->source0().text(), "C:\\dir\\") << "a backslash is an ordinary character";
  EXPECT_EQ(config("store")->typeName(), "a\\tb // not a comment");
  EXPECT_EQ(config("store")->pathSuffix().text(), "caf\xc3\xa9");
}

TEST_F(ConfigScanner, NumbersHaveNoSignExponentOrLeadingPoint) {
  read("point.conf", "a { timeoutPeriod = 5.; }\n");
  EXPECT_EQ(config("a")->timeoutPeriod(), 5.0) << "digits with a trailing point form a double";
  EXPECT_TRUE(errors.str().empty());

  struct Refused {
    char const* value;
    char const* why;
  };
  int n = 0;
  for (Refused r : {Refused{"1e5", "1 then the identifier e5"}, Refused{"-5", "'-' then 5"},
                    Refused{".5", "'.' then 5"}, Refused{"true", "booleans are scanned but never accepted"},
                    Refused{"!5", "'!' reaches the grammar"}}) {
    errors.str("");
    std::string name = "n" + std::to_string(n++) + ".conf";
    read(name, std::string("b { timeoutPeriod = ") + r.value + "; }\n");
    EXPECT_EQ(errorLines().front(), name + ":1: error: syntax error") << r.why;
  }
}

TEST_F(ConfigScanner, LongLinesAreScannedWhole) {
  std::string const longText(1 << 20, 'x');
  read("long.conf", "// " + longText + "\nstore { source0 = \"" + longText + "\"; typeName = \"T\"; }\n");
  EXPECT_TRUE(errors.str().empty());
  EXPECT_EQ(config("store")->source0().text().size(), longText.size());
  EXPECT_EQ(config("store")->typeName(), "T");
}

TEST_F(ConfigScanner, ALineLongerThanTheLimitEndsTheFile) {
  std::string text = "kept { typeName = \"T\"; }\n// ";
  text.append(ConfigReader::kMaxLineLength, 'x');
  text += "\nlost { typeName = \"T\"; }\n";
  try {
    read("huge.conf", text);
    FAIL() << "no exception";
  } catch (AgentException const& e) {
    EXPECT_STREQ(e.what(), "error: file 'huge.conf' has a line longer than 64 MiB");
  }
  EXPECT_TRUE(config("kept"));
  EXPECT_FALSE(config("lost"));
  read("small.conf", "small { typeName = \"T\"; }\n");
  EXPECT_TRUE(config("small")) << "the parser reads on";
}

TEST_F(ConfigScanner, NulAndHighBytesAreEchoedOutsideStringsAndKeptInside) {
  read("nul.conf", std::string("store {\0 source0 = \"a\0b\"; }\n", 28));
  EXPECT_EQ(echoes.str(), std::string(1, '\0'));
  EXPECT_EQ(config("store")->source0().text(), std::string_view("a\0b", 3));

  echoes.str("");
  std::string const high = std::string(4, '\0') + std::string(300, '\xff');
  read("high.conf", high + "pe");
  EXPECT_EQ(echoes.str(), high);
  EXPECT_EQ(errorLines().back(), "high.conf:1: error: syntax error") << "pe is an entity name without a body";
}

}  // namespace
}  // namespace Zet::testing
