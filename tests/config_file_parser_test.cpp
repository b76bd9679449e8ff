// The configuration file parser as a program loading its configuration uses
// it: files read once whatever includes them, the search path, what a second
// definition of an entry does, nested entries and their pending
// dependencies, and carrying on after a missing file or a refusing directory.

#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "AgentEnv/ConfigFileSearch.h"
#include "AgentEnv/ConfigReader.h"
#include "tests/comma_locale.h"
#include "tests/config_test_support.h"

namespace Zet::testing {
namespace {

using ConfigFileParserTest = ConfigParserFixture;

TEST_F(ConfigFileParserTest, EveryFileIsReadOnceWhateverIncludesIt) {
  files.write("b.conf", "#include \"a.conf\"\nb { typeName = \"B\"; }\n");
  read("a.conf", "#include \"a.conf\"\n#include \"b.conf\"\na { typeName = \"A\"; }\n");
  EXPECT_TRUE(errors.str().empty()) << errors.str();
  EXPECT_EQ(config("b")->configFile(), "b.conf");
  EXPECT_EQ(parser->parsedConfigFileCount(), 2u);
  EXPECT_TRUE(parser->configFile().empty() && parser->currentFile().isEmpty());

  read("a.conf", "a { typeName = \"changed\"; }\n");
  EXPECT_EQ(config("a")->typeName(), "A") << "a name read before is not read again";
}

TEST_F(ConfigFileParserTest, ASecondDefinitionKeepsTheFirstValue) {
  auto entry = [](std::string v) {
    return "store {\n  source0 = \"" + v + "\"; source1 = \"" + v + "\"; pathSuffix = \"" + v + "\"; target = \"/" + v +
           "\"; typeName = \"" + v + "\";\n  timeoutPeriod = " + v + "; dependency = \"" + v + "\";\n}\n";
  };
  read("first.conf", entry("1"));
  read("second.conf", entry("2"));
  Lines expected;
  for (char const* a : {"source0", "source1", "pathSuffix", "target", "typeName"})
    expected.push_back(std::string("second.conf: store: ") + a + " already defined");
  EXPECT_EQ(errorLines(), expected);
  EXPECT_EQ(parser->parsingErrorsCount(), 0u) << "duplicates are not syntax errors";
  EXPECT_EQ(parser->attributeErrorsCount(), 5u);
  Ptr<AgentEnvConfig> store = config("store");
  EXPECT_EQ(store->source0().text(), "1");
  EXPECT_EQ(store->target().text(), "/1");
  EXPECT_EQ(store->typeName(), "1");
  EXPECT_EQ(store->timeoutPeriod(), 2.0) << "timeoutPeriod has no first-value rule";
  EXPECT_EQ(store->dependency(), "2") << "a dependency is pending per block and applied when it closes";

  errors.str("");
  read("twice.conf", "store {\n  dependency = \"x\";\n  dependency = \"y\";\n}\n");
  EXPECT_EQ(errorLines(), Lines{"twice.conf: store: dependency already defined"});
  EXPECT_EQ(store->dependency(), "x");
  read("without.conf", "store { timeoutPeriod = 1; }\n");
  EXPECT_EQ(store->dependency(), "") << "a block without a dependency clears it";
  EXPECT_EQ(parser->attributeErrorsCount(), 0u) << "counts belong to one run";
}

// Records the parser's pending dependencies whenever an entry is created.
class PendingDependencies : public AgentEnvConfigDir::NotifieeConst {
 public:
  explicit PendingDependencies(ConfigFileParser const& parser) : parser_(parser) {}
  void onAgentEnvConfig(Name const& name) override {
    seen.push_back(name.str() + ": " + parser_.currentDependency().str() + "/" + parser_.parentDependency().str());
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
       "}\n");
  EXPECT_EQ(pending.seen, (Lines{"outer: /", "inner: /base", "innermost: /outer"}))
      << "entering an entity saves the enclosing one's pending dependency as parentDependency";
  Ptr<AgentEnvConfig> outer = config("outer"), inner = config("inner");
  EXPECT_EQ(inner->aggConfig(), outer);
  EXPECT_EQ(config("innermost")->aggConfig(), inner);
  EXPECT_EQ(outer->dependency(), "base");
  EXPECT_EQ(inner->dependency(), "outer");
  EXPECT_EQ(inner->source1().text(), "back in inner");
  EXPECT_EQ(outer->source0().text(), "back in outer");
  EXPECT_FALSE(parser->currentEntity());
  EXPECT_TRUE(parser->currentDependency().isEmpty() && parser->parentDependency().isEmpty());
}

// Watchers of the config dir that do what the parser does not expect: delete
// an entry the moment it appears, or drop the last reference to the parser.
class Meddler : public AgentEnvConfigDir::NotifieeConst {
 public:
  std::function<void(Name const&)> action;
  void onAgentEnvConfig(Name const& name) override { action(name); }
};

TEST_F(ConfigFileParserTest, WatchersMayDeleteEntriesAndDropTheParserWhileItReads) {
  Meddler meddler;
  meddler.notifierIs(dir);
  meddler.action = [&](Name const& name) {
    if (name == "bad" && config("bad")) dir->agentEnvConfigDel(name);
  };
  read("meddled.conf", "agg {\n  bad { typeName = \"T\"; }\n  good { typeName = \"T\"; }\n}\n");
  Ptr<AgentEnvConfig> agg = config("agg");
  EXPECT_FALSE(config("bad"));
  EXPECT_EQ(agg->nestedConfig("bad"), nullptr) << "a config that died is no member of its aggregate";
  EXPECT_NE(agg->nestedConfig("good"), nullptr);
  EXPECT_TRUE(agg->zetAuditErrors().empty());

  meddler.action = [&](Name const&) { parser = nullptr; };
  files.write("dropped.conf", "first { typeName = \"T\"; }\nsecond { typeName = \"T\"; }\n");
  ConfigFileParser* raw = parser.ptr();
  raw->configFileEnq("dropped.conf");
  EXPECT_FALSE(parser);
  EXPECT_TRUE(config("first") && config("second")) << "the read went on to the end";
}

TEST_F(ConfigFileParserTest, NumbersAreReadTheSameUnderADecimalCommaLocale) {
  ZET_UNDER_COMMA_LOCALE(locale);
  parser->substitutionsIs("HALF", "0.25");
  read("numbers.conf", "a { timeoutPeriod = 0.5; }\nb { timeoutPeriod = ${HALF}; }\nc { timeoutPeriod = 1234567.0; }\n");
  EXPECT_EQ(config("a")->timeoutPeriod(), 0.5);
  EXPECT_EQ(config("b")->timeoutPeriod(), 0.25);
  EXPECT_EQ(config("c")->timeoutPeriod(), 1234570.0) << "six significant digits, as before";
}

TEST_F(ConfigFileParserTest, FilesAreFoundAlongTheSearchPath) {
  TempDir first, second;
  first.write("both.conf", "both { typeName = \"first\"; }\n");
  second.write("both.conf", "both { typeName = \"second\"; }\n");
  second.write("second-only.conf", "secondOnly { typeName = \"T\"; }\n");
  std::filesystem::create_directory(first.path() + "/dir.conf");
  second.write("dir.conf", "fromDir { typeName = \"T\"; }\n");
  ::mkfifo((first.path() + "/pipe.conf").c_str(), 0600);
  std::string const absolute = files.write("absolute.conf", "absolute { typeName = \"T\"; }\n");
  {
    ScopedEnv path("AGENTENV_CONFIGS", first.path() + ":" + second.path());
    for (std::string name : {std::string("both.conf"), std::string("second-only.conf"), std::string("dir.conf"), absolute})
      parser->configFileEnq(String8(name));
    EXPECT_EQ(config("both")->typeName(), "first");
    EXPECT_TRUE(config("secondOnly") && config("absolute"));
    EXPECT_TRUE(config("fromDir")) << "a directory of that name is passed over";
    EXPECT_THROW(parser->configFileEnq("pipe.conf"), AgentException) << "a pipe is passed over and never blocks";
  }
  ScopedEnv unset("AGENTENV_CONFIGS", std::nullopt);
  EXPECT_EQ(configSearchPath(), "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc");
  ScopedEnv empty("AGENTENV_CONFIGS", "");
  EXPECT_EQ(configSearchPath(), "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc");
}

TEST_F(ConfigFileParserTest, AMissingFileIsAnExceptionAndTheParserCarriesOn) {
  files.write("later.conf", "later { typeName = \"T\"; }\n");
  try {
    read("first.conf", "#include \"missing.conf\"\n#include \"later.conf\"\nfirst { typeName = \"T\"; }\n");
    FAIL() << "no exception";
  } catch (AgentException const& e) {
    EXPECT_STREQ(e.what(), "error: file 'missing.conf' not found");
  }
  EXPECT_TRUE(config("first")) << "what was read before stays";
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
  EXPECT_THROW(configFileParserFactory(nullptr), RangeException);
  Ptr<AgentEnvConfigDir> refusing(new RefusingDir);
  Ptr<ConfigFileParser> p = configFileParserFactory(refusing);
  p->errorStreamIs(errors);
  files.write("refuse.conf", "kept { source0 = \"a\" + \"b\"; refused { typeName = \"x\" + \"y\"; } }\n");
  EXPECT_THROW(p->configFileEnq("refuse.conf"), RangeException);
  EXPECT_EQ(refusing->agentEnvConfig("kept")->source0().text(), "ab");
  EXPECT_TRUE(p->currentFile().isEmpty() && !p->currentEntity());
  EXPECT_TRUE(errors.str().empty()) << "abandoning the parse reports nothing more";

  files.write("fine.conf", "fine { typeName = \"T\"; }\n");
  p->configFileEnq("fine.conf");
  EXPECT_FALSE(refusing->agentEnvConfig("fine")->aggConfig());
}

// Records the remarks of a read as "file:line: what".
class RecordedRemarks : public ConfigFileParser::Remarks {
 public:
  void onIgnoredByteBesideName(String8 const& file, unsigned long line, unsigned char byte) override {
    seen.push_back(file.str() + ":" + std::to_string(line) + ": byte " + std::to_string(byte));
  }
  void onUndefinedSubstitution(String8 const& file, unsigned long line, std::string_view name) override {
    seen.push_back(file.str() + ":" + std::to_string(line) + ": ${" + std::string(name) + "}");
  }
  Lines seen;
};

// Entries enough to make a file that is read on a thread of its own, in
// more batches of events than may wait at once.
std::string manyEntries(char const* prefix, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    std::string name = prefix + std::to_string(i);
    text += name + " { typeName = \"T\"; target = \"/" + name + "\"; }\n";
  }
  return text;
}
constexpr size_t kManyEntries = 10000;

TEST_F(ConfigFileParserTest, ALargeFileReadOnAThreadOfItsOwnTellsEverythingInFileOrder) {
  RecordedRemarks remarks;
  parser->remarksIs(&remarks);
  parser->sourceLinesKeptIs(true);
  files.write("small.conf", "small { typeName = \"T\"; }\n");
  std::string const head =
      "#include \"small.conf\"\n"
      "first {\n  bogus = 1;\n  typeName = \"T\"; typeName = \"U\";\n  source0 = ${UNSET};\n}\n"
      "caf\xe9 { typeName = \"T\"; }\n";
  std::string const tail = "last {\n  \"unterminated\n  target = \"/a\"; target = \"/b\";\n}\n";
  std::string const many = manyEntries("p", kManyEntries);
  ASSERT_GE(head.size() + many.size(), ConfigReader::kReadAheadBytes);
  read("big.conf", head + many + tail);

  unsigned long const last = 8 + kManyEntries;  // the line of "last {"
  EXPECT_EQ(errorLines(), (Lines{"big.conf:3: error: unknown attribute name: bogus",
                                 "big.conf: first: typeName already defined",
                                 "big.conf:" + std::to_string(last + 1) + ": error: unterminated string",
                                 "big.conf: last: target already defined"}))
      << "syntax errors and repeated attributes are told in the order of the file";
  EXPECT_EQ(parser->parsingErrorsCount(), 2u);
  EXPECT_EQ(parser->attributeErrorsCount(), 2u);
  EXPECT_EQ(remarks.seen, (Lines{"big.conf:5: ${UNSET}", "big.conf:7: byte 233"}));
  EXPECT_EQ(echoes.str(), "\xe9");

  EXPECT_EQ(dir->agentEnvConfigCount(), kManyEntries + 4) << "every entry, and those of the file included";
  EXPECT_EQ(config("first")->typeName(), "T");
  EXPECT_EQ(config("p9999")->target().text(), "/p9999");
  EXPECT_EQ(config("last")->target().text(), "/a");
  EXPECT_EQ(config("p0")->typeName().charPtr(), config("p9999")->typeName().charPtr())
      << "a value repeated entry after entry is one text";
  EXPECT_EQ(parser->sourceLines(Name("last")).entry, last);
  EXPECT_EQ(parser->sourceLines(Name("last")).attribute[unsigned(ConfigFileParser::AttributeType::target)], last + 2);
  ConfigFileParser::IncludeSite site = parser->includeSite("small.conf");
  EXPECT_EQ(site.file, "big.conf");
  EXPECT_EQ(site.line, 1u);
}

// Read on the caller's thread or on one of its own, a file whose entries
// fill several batches of events before and after the one refused.
TEST_F(ConfigFileParserTest, AnExceptionWhileAFileIsReadStopsItsReaderWhereItIs) {
  for (size_t entries : {size_t(100), kManyEntries}) {
    SCOPED_TRACE(entries);
    Ptr<AgentEnvConfigDir> refusing(new RefusingDir);
    Ptr<ConfigFileParser> p = configFileParserFactory(refusing);
    p->errorStreamIs(errors);
    std::string const file = "refuse" + std::to_string(entries) + ".conf";
    files.write(file, manyEntries("before", entries) + "refused { typeName = \"T\"; }\n" +
                          manyEntries("after", entries) + "broken { bogus = 1; }\n");
    EXPECT_THROW(p->configFileEnq(String8(file)), RangeException);
    EXPECT_TRUE(refusing->agentEnvConfig(Name("before" + std::to_string(entries - 1))));
    EXPECT_FALSE(refusing->agentEnvConfig(Name("after0")));
    EXPECT_TRUE(errors.str().empty()) << "nothing after the exception is told";
    EXPECT_TRUE(p->currentFile().isEmpty() && !p->currentEntity());

    files.write("fine.conf", "fine { typeName = \"T\"; }\n");
    p->configFileEnq("fine.conf");
    EXPECT_EQ(refusing->agentEnvConfig(Name("fine"))->typeName(), "T") << "the next file starts afresh";
  }
}

TEST_F(ConfigFileParserTest, SubstitutionsQueuesAndDirectCallsFollowTheSameRules) {
  SubstitutionsCollection defaults;
  defaults.mapIs("HOST", "db");
  defaults.mapIs("PORT", "4000");
  parser->substitutionsIs(defaults);
  defaults.mapIs("HOST", "elsewhere");
  parser->substitutionsDel("PORT");
  read("subst.conf", "s { source0 = \"tcp://\" + ${HOST} + \":\" + ${PORT} + \"/x\"; }\n");
  EXPECT_EQ(config("s")->source0().text(), "tcp://db:/x") << "the parser holds its own copy";

  ConfigCollection queue;
  queue.configEnq("a");
  EXPECT_EQ(queue.configEnq("b"), 1u);
  ConfigCollection copy = queue;
  EXPECT_EQ(queue.configDeq(), "a");
  EXPECT_EQ(queue.config(1), "b") << "a name keeps its index";
  EXPECT_THROW(queue.config(0), RangeException);
  EXPECT_EQ(copy.size(), 2u);

  parser->handleAttribute(ConfigFileParser::AttributeType::source0, Name("ignored"));  // no entity is open
  parser->handleEntityScopeEnter(Name("direct"));
  parser->handleAttribute(ConfigFileParser::AttributeType::timeoutPeriod, Name("12.5s"));
  parser->handleAttribute(ConfigFileParser::AttributeType(8), Name("x"));
  parser->handleEntityScopeExit();
  EXPECT_EQ(config("direct")->timeoutPeriod(), 12.5) << "the leading number counts";
  EXPECT_EQ(dir->agentEnvConfigCount(), 2u);
  EXPECT_EQ(stringValue(ConfigFileParser::AttributeType::uType), "uType");
  EXPECT_EQ(stringValue(ConfigFileParser::AttributeType(8)), "ConfigFileParser::AttributeType(8)");
}

}  // namespace
}  // namespace Zet::testing
