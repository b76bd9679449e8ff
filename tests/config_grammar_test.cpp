// The grammar of configuration files, rule by rule as a user writes them:
// includes before entities, nested entities, every attribute form, the
// error rules and their diagnostics, substitutions and concatenation, and
// files far larger or deeper than people write.

#include <string>

#include "config_test_support.h"

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
  ASSERT_TRUE(store && child && config("base"));
  EXPECT_EQ(store->source0().text(), "ab");
  EXPECT_EQ(store->target().text(), "65535");
  EXPECT_EQ(store->typeName(), "FromMain") << "an included file is read after the file that names it";
  EXPECT_EQ(errorLines(), Lines{"base.conf: store: typeName already defined"});
  EXPECT_EQ(parser->parsingErrorsCount(), 0u);
  EXPECT_EQ(child->typeName(), "Widget");
  EXPECT_EQ(child->aggConfig(), store);
  EXPECT_EQ(store->nestedConfig("child"), child.ptr());
  EXPECT_EQ(child->configFile(), "main.conf");
  EXPECT_EQ(config("base")->configFile(), "base.conf");
  EXPECT_EQ(store->dependency(), "") << "closing an entity without a dependency clears _NOT READY_";
}

TEST_F(ConfigGrammar, EntitiesAreNeverEmptyAndIncludesComeFirst) {
  files.write("x.conf", "x { timeoutPeriod = 1; }\n");
  read("only-includes.conf", "#include \"x.conf\"\n");
  EXPECT_EQ(errorLines(), Lines{"only-includes.conf:1: error: syntax error"}) << "a file needs an entity";
  EXPECT_TRUE(config("x")) << "the include was queued before the error was found";

  errors.str("");
  read("empty.conf", "e { }\n");
  EXPECT_EQ(errorLines().back(), "empty.conf:1: error: syntax error") << "an entity holds at least one item";

  errors.str("");
  read("late-include.conf", "a { timeoutPeriod = 1; }\n#include \"x.conf\"\n");
  EXPECT_EQ(errorLines(), Lines{"late-include.conf:2: error: syntax error"});
}

TEST_F(ConfigGrammar, MissingSemicolonIsReportedAndTheAttributeLeftUndefined) {
  read("semi.conf",
       "e {\n"
       "  source0 = \"s0\"\n"
       "  source1 = \"s1\"\n"
       "  pathSuffix = \"p\"\n"
       "  target = \"/t\"\n"
       "  dependency = \"d\"\n"
       "  typeName = \"T\"\n"
       "  timeoutPeriod = \"5\"\n"
       "}\n");
  Lines expected;
  for (int line = 2; line <= 8; ++line) expected.push_back("semi.conf:" + std::to_string(line) + ": error: missing semi-colon");
  EXPECT_EQ(errorLines(), expected);
  Ptr<AgentEnvConfig> e = config("e");
  EXPECT_TRUE(e->source0().isEmpty() && e->source1().isEmpty() && e->pathSuffix().isEmpty());
  EXPECT_TRUE(e->target().isEmpty() && e->typeName().isEmpty());
  EXPECT_EQ(e->dependency(), "");
  EXPECT_EQ(e->timeoutPeriod(), 600.0);

  // A number for timeoutPeriod, and unmountType, have no missing-semicolon rule.
  errors.str("");
  read("semi-number.conf", "f {\n  timeoutPeriod = 5\n}\n");
  read("semi-unmount.conf", "g {\n  unmountType = stateRemoving\n}\n");
  EXPECT_EQ(errorLines(), (Lines{"semi-number.conf:3: error: syntax error", "semi-unmount.conf:3: error: syntax error"}));
}

TEST_F(ConfigGrammar, UnknownAttributesAreReportedWhateverTheirValue) {
  read("unknown.conf",
       "e {\n"
       "  colour = \"red\";\n"
       "  size = 3;\n"
       "  weight = 2.5;\n"
       "  typeName = \"T\";\n"
       "}\n");
  EXPECT_EQ(errorLines(), (Lines{"unknown.conf:2: error: unknown attribute name: colour",
                                 "unknown.conf:3: error: unknown attribute name: size",
                                 "unknown.conf:4: error: unknown attribute name: weight"}));
  EXPECT_EQ(config("e")->typeName(), "T") << "parsing goes on after the error";
  EXPECT_EQ(parser->parsingErrorsCount(), 3u);
}

TEST_F(ConfigGrammar, AttributeValuesAreNormalisedAsTheLanguageSays) {
  parser->substitutionsIs("P", "anyPort");
  parser->substitutionsIs("N", "2.5");
  read("values.conf",
       "a { target = anyPort; timeoutPeriod = 30; unmountType = stateRemoving; }\n"
       "b { target = \"anyPort\"; timeoutPeriod = 0.5; unmountType = sideways; }\n"
       "c { target = ${P}; timeoutPeriod = 1234567; }\n"
       "d { timeoutPeriod = 1000000; }\n"
       "e { timeoutPeriod = ${N}; }\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  for (char const* name : {"a", "b", "c"}) EXPECT_EQ(config(name)->target().text(), "65535") << name;
  EXPECT_EQ(config("a")->timeoutPeriod(), 30.0);
  EXPECT_EQ(config("b")->timeoutPeriod(), 0.5);
  EXPECT_EQ(config("c")->timeoutPeriod(), 1234570.0) << "the number travels as text with six significant digits";
  EXPECT_EQ(config("d")->timeoutPeriod(), 1e6);
  EXPECT_EQ(config("e")->timeoutPeriod(), 2.5);
  EXPECT_EQ(config("a")->unmountType(), AgentEnvConfig::stateRemoving);
  EXPECT_EQ(config("b")->unmountType(), AgentEnvConfig::statePreserving) << "an unknown word changes nothing";

  read("quoted-unmount.conf", "f { unmountType = \"stateRemoving\"; }\n");
  EXPECT_EQ(errorLines().front(), "quoted-unmount.conf:1: error: syntax error") << "unmountType takes a bare word";
}

TEST_F(ConfigGrammar, NumericSubstitutionThatIsNotANumberCountsAsZero) {
  parser->substitutionsIs("WORD", "soon");
  read("numeric.conf",
       "a {\n"
       "  timeoutPeriod = ${WORD};\n"
       "}\n"
       "b {\n"
       "  timeoutPeriod = ${UNSET};\n"
       "}\n");
  EXPECT_EQ(errorLines(), (Lines{"numeric.conf:1: error: missing semi-colon", "numeric.conf:4: error: missing semi-colon"}))
      << "reported one line above, in the words of the missing-semicolon rule";
  EXPECT_EQ(config("a")->timeoutPeriod(), 0.0);
  EXPECT_EQ(config("b")->timeoutPeriod(), 0.0);
}

TEST_F(ConfigGrammar, DependencyIsNeverNotReadyAndEmptyValuesDefineNothing) {
  parser->substitutionsIs("EMPTY", "");
  read("dep.conf",
       "a {\n"
       "  dependency = \"_NOT READY_\";\n"
       "}\n"
       "b {\n"
       "  dependency = \"_NOT READY_\";\n"
       "  dependency = \"base\";\n"
       "  source0 = \"\";\n"
       "  source0 = \"tcp://db:1/x\";\n"
       "  typeName = ${EMPTY};\n"
       "  typeName = ${UNSET};\n"
       "  typeName = \"T\";\n"
       "}\n"
       "c {\n"
       "  dependency = \"\";\n"
       "  dependency = \"late\";\n"
       "}\n");
  EXPECT_EQ(errorLines(), (Lines{"dep.conf:2: error: dependency cannot have value '_NOT READY_'",
                                 "dep.conf:5: error: dependency cannot have value '_NOT READY_'"}));
  EXPECT_EQ(config("a")->dependency(), "") << "the refused line leaves no dependency";
  EXPECT_EQ(config("b")->dependency(), "base");
  EXPECT_EQ(config("b")->source0().text(), "tcp://db:1/x") << "an empty string defined nothing";
  EXPECT_EQ(config("b")->typeName(), "T");
  EXPECT_EQ(config("c")->dependency(), "late") << "an empty dependency is passed on, and defines nothing";
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
  read("open.conf",
       "a {\n"
       "  source0 = \"x\";\n"
       "  dependency = \"d\";\n");
  EXPECT_EQ(errorLines(), (Lines{"open.conf:3: error: syntax error", "open.conf:3: error: unmatched bracket"}));
  EXPECT_EQ(config("a")->source0().text(), "x");
  EXPECT_EQ(config("a")->dependency(), AgentEnvConfig::notReady()) << "the scope was never left";

  read("next.conf", "c { timeoutPeriod = 1; }\n");
  EXPECT_FALSE(config("c")->aggConfig()) << "an open scope does not reach into the next file";
  EXPECT_FALSE(parser->currentEntity());

  // Inside the file, the error rule absorbs the rest of the entity body only
  // when the parse can go on from there; here the stray '}' ends it.
  errors.str("");
  read("stray.conf", "d {\n  typeName = \"T\";\n  (\n}\ne { timeoutPeriod = 1; }\n");
  EXPECT_EQ(errorLines(), (Lines{"stray.conf:3: error: syntax error", "stray.conf:3: error: unmatched bracket"}));
  EXPECT_EQ(config("d")->typeName(), "T");
  EXPECT_FALSE(config("e"));
}

TEST_F(ConfigGrammar, TenThousandNestedEntitiesEachKeepTheirDependency) {
  constexpr int kDepth = 10000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) {
    std::string n = std::to_string(i);
    text.append("e").append(n).append(" { dependency = \"d").append(n).append("\";\n");
  }
  text += "source0 = \"innermost\";\n";
  text += std::string(kDepth, '}') + "\n";
  read("deep.conf", text);
  EXPECT_TRUE(errors.str().empty()) << errors.str().substr(0, 200);
  ASSERT_EQ(dir->agentEnvConfigCount(), size_t(kDepth));
  EXPECT_FALSE(config("e0")->aggConfig());
  for (int i : {1, 2, kDepth / 2, kDepth - 1}) {
    Ptr<AgentEnvConfig> e = dir->agentEnvConfig(Name("e" + std::to_string(i)));
    EXPECT_EQ(e->aggConfig()->name().str(), "e" + std::to_string(i - 1));
    EXPECT_EQ(e->dependency().str(), "d" + std::to_string(i)) << "every level gets back its own pending dependency";
  }
  EXPECT_EQ(config("e0")->dependency(), "d0");
  EXPECT_EQ(dir->agentEnvConfig(Name("e" + std::to_string(kDepth - 1)))->source0().text(), "innermost");
}

TEST_F(ConfigGrammar, NestingBeyondTheGrammarStackIsMemoryExhausted) {
  std::string text;
  for (int i = 0; i < 600000; ++i) text += "a{";
  read("too-deep.conf", text);
  EXPECT_EQ(errorLines(), Lines{"too-deep.conf:1: error: memory exhausted"});
  read("after.conf", "b { timeoutPeriod = 1; }\n");
  EXPECT_FALSE(config("b")->aggConfig()) << "the parser starts the next file afresh";
}

TEST_F(ConfigGrammar, AMegabyteOfJoinedStringsIsOneValue) {
  std::string text = "a { typeName = \"x\"";
  for (int i = 0; i < 200000; ++i) text += "+\"ab\"";
  read("joined.conf", text + "; }\n");
  EXPECT_TRUE(errors.str().empty());
  std::string_view value = config("a")->typeName().view();
  EXPECT_EQ(value.size(), 400001u);
  EXPECT_EQ(value.substr(0, 5), "xabab");
}

}  // namespace
}  // namespace Zet::testing
