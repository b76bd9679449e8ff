// The configuration file parser as a program loading its configuration uses
// it: queueing files, includes read once, the search path, what a second
// definition of an entry does, nested entries and their pending
// dependencies, substitutions, and recovering from files that are missing
// or refused.

#include <sys/stat.h>

#include <filesystem>

#include "AgentEnv/ConfigFileSearch.h"
#include "config_test_support.h"

namespace Zet::testing {
namespace {

using ConfigFileParserTest = ConfigParserFixture;

TEST(ConfigFileParserFactory, RefusesANullDirectory) {
  try {
    configFileParserFactory(nullptr);
    FAIL() << "no exception";
  } catch (RangeException const& e) {
    EXPECT_STREQ(e.what(), "null ValidPtr");
  }
}

TEST_F(ConfigFileParserTest, EveryFileIsReadOnceWhateverIncludesIt) {
  files.write("b.conf", "#include \"a.conf\"\nb { typeName = \"B\"; }\n");
  read("a.conf", "#include \"a.conf\"\n#include \"b.conf\"\na { typeName = \"A\"; }\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  EXPECT_EQ(config("a")->configFile(), "a.conf");
  EXPECT_EQ(config("b")->configFile(), "b.conf");
  EXPECT_TRUE(parser->parsedConfigFile("a.conf") && parser->parsedConfigFile("b.conf"));
  EXPECT_EQ(parser->parsedConfigFileCount(), 2u);
  EXPECT_TRUE(parser->configFile().empty());
  EXPECT_TRUE(parser->currentFile().isEmpty());

  read("a.conf", "a { typeName = \"changed\"; }\n");
  EXPECT_EQ(config("a")->typeName(), "A") << "a name read before is not read again";
}

TEST_F(ConfigFileParserTest, ASecondDefinitionKeepsTheFirstValue) {
  std::string const attributes =
      "  source0 = \"%\"; source1 = \"%\"; pathSuffix = \"%\"; target = \"/%\"; typeName = \"%\";\n"
      "  timeoutPeriod = %; unmountType = stateRemoving; dependency = \"%\";\n";
  auto entry = [&](std::string value) {
    std::string text = "store {\n" + attributes + "}\n";
    for (size_t at; (at = text.find('%')) != std::string::npos;) text.replace(at, 1, value);
    return text;
  };
  read("first.conf", entry("1"));
  read("second.conf", entry("2"));
  EXPECT_EQ(errorLines(), (Lines{"second.conf: store: source0 already defined", "second.conf: store: source1 already defined",
                                 "second.conf: store: pathSuffix already defined", "second.conf: store: target already defined",
                                 "second.conf: store: typeName already defined"}));
  EXPECT_EQ(parser->parsingErrorsCount(), 0u) << "duplicates are not syntax errors";
  EXPECT_EQ(parser->attributeErrorsCount(), 5u);
  Ptr<AgentEnvConfig> store = config("store");
  EXPECT_EQ(store->source0().text(), "1");
  EXPECT_EQ(store->source1().text(), "1");
  EXPECT_EQ(store->pathSuffix().text(), "1");
  EXPECT_EQ(store->target().text(), "/1");
  EXPECT_EQ(store->typeName(), "1");
  EXPECT_EQ(store->configFile(), "second.conf");
  EXPECT_EQ(store->timeoutPeriod(), 2.0) << "timeoutPeriod has no first-value rule";
  EXPECT_EQ(store->dependency(), "2") << "a dependency is pending per entity block and applied when it closes";

  errors.str("");
  read("twice.conf", "store {\n  dependency = \"x\";\n  dependency = \"y\";\n}\n");
  EXPECT_EQ(errorLines(), Lines{"twice.conf: store: dependency already defined"});
  EXPECT_EQ(store->dependency(), "x");
  read("without.conf", "store { timeoutPeriod = 1; }\n");
  EXPECT_EQ(store->dependency(), "") << "a block without a dependency clears it";
}

// Records the parser's pending dependencies whenever an entry is created.
class PendingDependencies : public AgentEnvConfigDir::NotifieeConst {
 public:
  explicit PendingDependencies(ConfigFileParser const& parser) : parser_(parser) {}
  void onAgentEnvConfig(Name const& name) override {
    seen.push_back(name.str() + ": current=" + parser_.currentDependency().str() +
                   " parent=" + parser_.parentDependency().str());
  }
  Lines seen;

 private:
  ConfigFileParser const& parser_;
};

TEST_F(ConfigFileParserTest, NestedEntriesJoinTheirAggregateAndRestoreItsPendingDependency) {
  PendingDependencies pending(*parser);
  pending.notifierIs(dir);
  read("nested.conf",
       "outer {\n"
       "  dependency = \"base\";\n"
       "  inner {\n"
       "    dependency = \"outer\";\n"
       "    innermost { typeName = \"T\"; }\n"
       "    source1 = \"back in inner\";\n"
       "  }\n"
       "  source0 = \"back in outer\";\n"
       "}\n"
       "next { timeoutPeriod = 1; }\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  EXPECT_EQ(pending.seen, (Lines{"outer: current= parent=", "inner: current= parent=base",
                                 "innermost: current= parent=outer", "next: current= parent="}));
  Ptr<AgentEnvConfig> outer = config("outer"), inner = config("inner"), innermost = config("innermost");
  EXPECT_EQ(inner->aggConfig(), outer);
  EXPECT_EQ(innermost->aggConfig(), inner);
  EXPECT_FALSE(config("next")->aggConfig());
  EXPECT_EQ(outer->dependency(), "base");
  EXPECT_EQ(inner->dependency(), "outer");
  EXPECT_EQ(innermost->dependency(), "");
  EXPECT_EQ(inner->source1().text(), "back in inner");
  EXPECT_EQ(outer->source0().text(), "back in outer");
  EXPECT_FALSE(parser->currentEntity());
  EXPECT_TRUE(parser->currentDependency().isEmpty() && parser->parentDependency().isEmpty());
}

TEST_F(ConfigFileParserTest, FilesAreFoundAlongTheSearchPath) {
  TempDir first, second;
  first.write("both.conf", "both { typeName = \"first\"; }\n");
  second.write("both.conf", "both { typeName = \"second\"; }\n");
  second.write("second-only.conf", "secondOnly { timeoutPeriod = 1; }\n");
  std::filesystem::create_directory(first.path() + "/dir.conf");
  second.write("dir.conf", "fromDir { timeoutPeriod = 1; }\n");
  ::mkfifo((first.path() + "/pipe.conf").c_str(), 0600);
  std::string const absolute = files.write("absolute.conf", "absolute { timeoutPeriod = 1; }\n");
  {
    ScopedEnv path("AGENTENV_CONFIGS", first.path() + ":" + second.path());
    for (char const* name : {"both.conf", "second-only.conf", "dir.conf"}) parser->configFileEnq(name);
    parser->configFileEnq(String8(absolute));
    EXPECT_EQ(config("both")->typeName(), "first");
    EXPECT_TRUE(config("secondOnly"));
    EXPECT_TRUE(config("fromDir")) << "a directory of that name is passed over";
    EXPECT_TRUE(config("absolute"));
    EXPECT_THROW(parser->configFileEnq("pipe.conf"), AgentException) << "a pipe is not a file and never blocks";
  }
  {
    ScopedEnv unset("AGENTENV_CONFIGS", std::nullopt);
    EXPECT_EQ(configSearchPath(), "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc");
    ScopedEnv empty("AGENTENV_CONFIGS", "");
    EXPECT_EQ(configSearchPath(), "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc");
  }
}

TEST_F(ConfigFileParserTest, AMissingFileIsAnExceptionAndTheParserCarriesOn) {
  files.write("later.conf", "later { timeoutPeriod = 1; }\n");
  try {
    read("first.conf", "#include \"missing.conf\"\n#include \"later.conf\"\nfirst { timeoutPeriod = 1; }\n");
    FAIL() << "no exception";
  } catch (AgentException const& e) {
    EXPECT_STREQ(e.what(), "error: file 'missing.conf' not found");
  }
  EXPECT_TRUE(config("first")) << "what was read before stays";
  EXPECT_FALSE(config("later"));
  EXPECT_TRUE(parser->currentFile().isEmpty());
  EXPECT_EQ(parser->configFile().size(), 1u) << "the names after the missing one stay queued";

  parser->handleConfigFile();
  EXPECT_TRUE(config("later"));
  read("then.conf", "then {\n  bogus = 1;\n}\n");
  EXPECT_EQ(errorLines(), Lines{"then.conf:2: error: unknown attribute name: bogus"}) << "lines count from 1 again";
}

// A directory that cannot make an entry called "refused".
class RefusingDir : public AgentEnvConfigDir {
 public:
  RefusingDir() : AgentEnvConfigDir(Name("refusing")) {}

 protected:
  Ptr<AgentEnvConfig> newAgentEnvConfig(Name const& name) override {
    return name == "refused" ? nullptr : AgentEnvConfigDir::newAgentEnvConfig(name);
  }
};

TEST_F(ConfigFileParserTest, AnExceptionFromTheDirectoryAbandonsTheFileCleanly) {
  Ptr<AgentEnvConfigDir> refusing(new RefusingDir);
  Ptr<ConfigFileParser> p = configFileParserFactory(refusing);
  p->errorStreamIs(errors);
  files.write("refuse.conf", "kept { source0 = \"a\" + \"b\"; refused { typeName = \"x\" + \"y\"; } }\n");
  EXPECT_THROW(p->configFileEnq("refuse.conf"), RangeException);
  EXPECT_EQ(refusing->agentEnvConfig("kept")->source0().text(), "ab");
  EXPECT_TRUE(p->currentFile().isEmpty());
  EXPECT_FALSE(p->currentEntity());
  EXPECT_TRUE(errors.str().empty()) << "abandoning the parse reports nothing more";

  files.write("fine.conf", "fine { timeoutPeriod = 1; }\n");
  p->configFileEnq("fine.conf");
  EXPECT_FALSE(refusing->agentEnvConfig("fine")->aggConfig());
}

TEST_F(ConfigFileParserTest, ErrorCountsBelongToOneRun) {
  read("bad.conf", "a { x = 1; y = 2; source0 = \"s\"; source0 = \"t\"; }\n");
  EXPECT_EQ(parser->parsingErrorsCount(), 2u);
  EXPECT_EQ(parser->attributeErrorsCount(), 1u);
  read("good.conf", "b { timeoutPeriod = 1; }\n");
  EXPECT_EQ(parser->parsingErrorsCount(), 0u);
  EXPECT_EQ(parser->attributeErrorsCount(), 0u);
}

TEST_F(ConfigFileParserTest, SubstitutionsAndQueuesAreValues) {
  SubstitutionsCollection defaults;
  defaults.mapIs("HOST", "db");
  defaults.mapIs("PORT", "4000");
  parser->substitutionsIs(defaults);
  defaults.mapIs("HOST", "elsewhere");
  EXPECT_EQ(parser->substitutions("HOST"), "db") << "the parser holds its own copy";
  parser->substitutionsDel("PORT");
  EXPECT_TRUE(parser->substitutions("PORT").isEmpty());
  read("subst.conf", "s { source0 = \"tcp://\" + ${HOST} + \":\" + ${PORT} + \"/x\"; }\n");
  EXPECT_EQ(config("s")->source0().text(), "tcp://db:/x");
  parser->substitutionsDelAll();
  EXPECT_EQ(parser->substitutions().size(), 0u);

  ConfigCollection queue;
  EXPECT_EQ(queue.configEnq("a"), 0u);
  EXPECT_EQ(queue.configEnq("b"), 1u);
  ConfigCollection copy = queue;
  EXPECT_EQ(queue.configDeq(), "a");
  EXPECT_EQ(queue.config(1), "b") << "a name keeps its index";
  EXPECT_THROW(queue.config(0), RangeException);
  EXPECT_EQ(copy.size(), 2u);
  EXPECT_TRUE(ConfigCollection().configDeq().isEmpty());
}

TEST_F(ConfigFileParserTest, AttributesHandedOverDirectlyFollowTheSameRules) {
  parser->handleAttribute(ConfigFileParser::AttributeType::source0, Name("ignored"));  // no entity is open
  parser->handleEntityScopeEnter(Name("direct"));
  parser->handleAttribute(ConfigFileParser::AttributeType::timeoutPeriod, Name("12.5s"));
  parser->handleAttribute(ConfigFileParser::AttributeType(8), Name("x"));
  parser->handleEntityScopeExit();
  EXPECT_EQ(config("direct")->timeoutPeriod(), 12.5) << "the leading number counts";
  EXPECT_EQ(dir->agentEnvConfigCount(), 1u);

  EXPECT_EQ(stringValue(ConfigFileParser::AttributeType::uType), "uType");
  EXPECT_EQ(stringValue(ConfigFileParser::AttributeType::unmountType), "unmountType");
  EXPECT_EQ(stringValue(ConfigFileParser::AttributeType(8)), "ConfigFileParser::AttributeType(8)");
}

}  // namespace
}  // namespace Zet::testing
