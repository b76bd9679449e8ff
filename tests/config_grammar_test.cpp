// The grammar of configuration files as a user writes them: includes before
// entities, nested entities, every attribute form, the error rules and their
// diagnostics, substitutions and concatenation, and files far deeper or
// longer than people write.

#include "tests/config_test_support.h"

namespace Zet::testing {
namespace {

using ConfigGrammar = ConfigParserFixture;

TEST_F(ConfigGrammar, IncludesAndNestedEntitiesFillTheDirectory) {
  parser->substitutionsIs("T", "Widget");
  files.write("base.conf", "base { source0 = \"*\"; }\nstore { typeName = \"FromBase\"; }\n");
  read("main.conf",
       "#include \"base.conf\"\n"
       "store {\n"
       "  source0 = \"a\" + \"b\";\n"
       "  target = anyPort;\n"
       "  typeName = \"FromMain\";\n"
       "  child {\n"
       "    typeName = ${T};\n"
       "  }\n"
       "}\n");
  Ptr<AgentEnvConfig> store = config("store"), child = config("child");
  EXPECT_EQ(store->source0().text(), "ab");
  EXPECT_EQ(store->target().text(), "65535");
  EXPECT_EQ(store->typeName(), "FromMain") << "an included file is read after the file that names it";
  EXPECT_EQ(errorLines(), Lines{"base.conf: store: typeName already defined"});
  EXPECT_EQ(child->typeName(), "Widget");
  EXPECT_EQ(child->aggConfig(), store);
  EXPECT_EQ(store->nestedConfig("child"), child.ptr());
  EXPECT_EQ(config("base")->configFile(), "base.conf");
  EXPECT_EQ(store->dependency(), "") << "closing an entity without a dependency clears _NOT READY_";
}

TEST_F(ConfigGrammar, EntitiesAreNeverEmptyAndIncludesComeFirst) {
  files.write("x.conf", "x { timeoutPeriod = 1; }\n");
  read("only-includes.conf", "#include \"x.conf\"\n");
  read("empty.conf", "e { }\n");
  read("late-include.conf", "a { timeoutPeriod = 1; }\n#include \"x.conf\"\n");
  EXPECT_EQ(errorLines(), (Lines{"only-includes.conf:1: error: syntax error", "empty.conf:1: error: syntax error",
                                 "late-include.conf:2: error: syntax error"}));
  EXPECT_TRUE(config("x")) << "the include was queued before the error was found";
}

TEST_F(ConfigGrammar, ErrorRulesReportAndParsingGoesOn) {
  read("rules.conf",
       "e {\n"
       "  source0 = \"s0\"\n"
       "  source1 = \"s1\"\n"
       "  pathSuffix = \"p\"\n"
       "  target = \"/t\"\n"
       "  dependency = \"d\"\n"
       "  typeName = \"T\"\n"
       "  timeoutPeriod = \"5\"\n"
       "  colour = \"red\";\n"
       "  size = 3;\n"
       "  weight = 2.5;\n"
       "  dependency = \"_NOT READY_\";\n"
       "  unmountType = stateRemoving;\n"
       "}\n");
  Lines expected;
  for (int line = 2; line <= 8; ++line) expected.push_back("rules.conf:" + std::to_string(line) + ": error: missing semi-colon");
  for (std::string name : {"colour", "size", "weight"})
    expected.push_back("rules.conf:" + std::to_string(expected.size() + 2) + ": error: unknown attribute name: " + name);
  expected.push_back("rules.conf:12: error: dependency cannot have value '_NOT READY_'");
  EXPECT_EQ(errorLines(), expected);
  Ptr<AgentEnvConfig> e = config("e");
  EXPECT_TRUE(e->source0().isEmpty() && e->source1().isEmpty() && e->pathSuffix().isEmpty());
  EXPECT_TRUE(e->target().isEmpty() && e->typeName().isEmpty());
  EXPECT_EQ(e->timeoutPeriod(), 600.0);
  EXPECT_EQ(e->dependency(), "") << "the refused line left no dependency";
  EXPECT_EQ(e->unmountType(), AgentEnvConfig::stateRemoving);

  // A number for timeoutPeriod, and unmountType, have no missing-semicolon rule.
  errors.str("");
  read("number.conf", "f {\n  timeoutPeriod = 5\n}\n");
  read("unmount.conf", "g {\n  unmountType = stateRemoving\n}\n");
  read("quoted.conf", "h { unmountType = \"stateRemoving\"; }\n");
  EXPECT_EQ(errorLines(), (Lines{"number.conf:3: error: syntax error", "unmount.conf:3: error: syntax error",
                                 "quoted.conf:1: error: syntax error"}));
}

TEST_F(ConfigGrammar, ValuesAreNormalisedAsTheLanguageSays) {
  parser->substitutionsIs("P", "anyPort");
  parser->substitutionsIs("N", "2.5");
  parser->substitutionsIs("WORD", "soon");
  parser->substitutionsIs("EMPTY", "");
  read("values.conf",
       "a { target = anyPort; timeoutPeriod = 30; unmountType = sideways; }\n"
       "b { target = \"anyPort\"; timeoutPeriod = 0.5; source0 = \"\"; source0 = \"s\"; }\n"
       "c { target = ${P}; timeoutPeriod = 1234567; typeName = ${EMPTY}; typeName = ${UNSET}; typeName = \"T\"; }\n"
       "d { timeoutPeriod = 1000000; dependency = \"\"; dependency = \"late\"; }\n"
       "e { timeoutPeriod = ${N}; }\n"
       "f {\n"
       "  timeoutPeriod = ${WORD};\n"
       "}\n");
  EXPECT_EQ(errorLines(), Lines{"values.conf:6: error: missing semi-colon"})
      << "a substitution that is not a number is reported one line up, in the missing-semicolon words";
  for (char const* name : {"a", "b", "c"}) EXPECT_EQ(config(name)->target().text(), "65535") << name;
  EXPECT_EQ(config("a")->timeoutPeriod(), 30.0);
  EXPECT_EQ(config("a")->unmountType(), AgentEnvConfig::statePreserving) << "an unknown word changes nothing";
  EXPECT_EQ(config("b")->timeoutPeriod(), 0.5);
  EXPECT_EQ(config("b")->source0().text(), "s") << "an empty value defines nothing";
  EXPECT_EQ(config("c")->timeoutPeriod(), 1234570.0) << "the number travels as text with six significant digits";
  EXPECT_EQ(config("c")->typeName(), "T");
  EXPECT_EQ(config("d")->timeoutPeriod(), 1e6);
  EXPECT_EQ(config("d")->dependency(), "late") << "an empty dependency is passed on and defines nothing";
  EXPECT_EQ(config("e")->timeoutPeriod(), 2.5);
  EXPECT_EQ(config("f")->timeoutPeriod(), 0.0);
}

TEST_F(ConfigGrammar, ConcatenationJoinsFromTheRightTrimmingOneQuoteAtEachSeam) {
  parser->substitutionsIs("OPEN", "x\"");
  parser->substitutionsIs("CLOSE", "\"y");
  parser->substitutionsIs("QUOTE", "\"");
  parser->substitutionsIs("TWO", "\"\"z");
  read("join.conf",
       "a { source0 = \"tcp://\" + \"db:1\" + \"/store\"; }\n"
       "b { typeName = ${OPEN} + ${CLOSE}; }\n"
       "c { typeName = \"w\" + ${QUOTE} + ${TWO}; }\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  EXPECT_EQ(config("a")->source0().text(), "tcp://db:1/store");
  EXPECT_EQ(config("b")->typeName(), "xy");
  EXPECT_EQ(config("c")->typeName(), "wz") << "w + (\" + \"\"z): grouped from the right, each seam trims once";
}

TEST_F(ConfigGrammar, UnmatchedBracketLeavesTheEntityOpen) {
  read("open.conf", "a {\n  source0 = \"x\";\n  dependency = \"d\";\n");
  read("stray.conf", "d {\n  typeName = \"T\";\n  colour = \"x\" (\n}\ne { timeoutPeriod = 1; }\n");
  EXPECT_EQ(errorLines(), (Lines{"open.conf:3: error: syntax error", "open.conf:3: error: unmatched bracket",
                                 "stray.conf:3: error: syntax error", "stray.conf:3: error: unmatched bracket"}));
  EXPECT_EQ(config("a")->source0().text(), "x");
  EXPECT_EQ(config("a")->dependency(), AgentEnvConfig::notReady()) << "the scope was never left";
  EXPECT_FALSE(config("d")->aggConfig()) << "an open scope does not reach into the next file";
  EXPECT_EQ(config("d")->typeName(), "T");
  EXPECT_FALSE(config("e")) << "at the outer level the error rule cannot recover past the stray '}'";
}

TEST_F(ConfigGrammar, TenThousandNestedEntitiesEachKeepTheirDependency) {
  constexpr int kDepth = 10000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) {
    std::string n = std::to_string(i);
    text.append("e").append(n).append(" { dependency = \"d").append(n).append("\";\n");
  }
  read("deep.conf", text + "source0 = \"innermost\";\n" + std::string(kDepth, '}') + "\n");
  EXPECT_TRUE(errors.str().empty());
  ASSERT_EQ(dir->agentEnvConfigCount(), size_t(kDepth));
  EXPECT_FALSE(config("e0")->aggConfig());
  for (int i : {1, kDepth / 2, kDepth - 1}) {
    Ptr<AgentEnvConfig> e = config("e" + std::to_string(i));
    EXPECT_EQ(e->aggConfig()->name().str(), "e" + std::to_string(i - 1));
    EXPECT_EQ(e->dependency().str(), "d" + std::to_string(i)) << "every level gets back its own pending dependency";
  }
  EXPECT_EQ(config("e0")->dependency(), "d0");
  EXPECT_EQ(config("e" + std::to_string(kDepth - 1))->source0().text(), "innermost");
}

TEST_F(ConfigGrammar, AMegabyteOfJoinedStringsIsOneValueAndDeeperNestingExhaustsTheStack) {
  std::string joined = "a { typeName = \"x\"";
  for (int i = 0; i < 200000; ++i) joined += "+\"ab\"";
  read("joined.conf", joined + "; }\n");
  EXPECT_TRUE(errors.str().empty());
  EXPECT_EQ(config("a")->typeName().size(), 400001u);

  std::string deep;
  for (int i = 0; i < 600000; ++i) deep += "b{";
  read("too-deep.conf", deep);
  EXPECT_EQ(errorLines(), Lines{"too-deep.conf:1: error: memory exhausted"});
}

}  // namespace
}  // namespace Zet::testing
