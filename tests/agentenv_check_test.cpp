// `agentenv check` as a person runs it: clean files pass silently, errors are
// listed with the exit status telling what kind of trouble there was, -D
// supplies substitutions and --dump shows what the files declare.

#include <spawn.h>
#include <sys/wait.h>

#include <fcntl.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>

#include "config_test_support.h"

extern char** environ;

namespace Zet::testing {
namespace {

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

class AgentenvCheck : public ::testing::Test {
 protected:
  // Runs agentenv with `arguments` and AGENTENV_CONFIGS naming the files'
  // directory; returns its exit status and what it wrote.
  Result agentenv(std::vector<std::string> arguments) {
    ScopedEnv path("AGENTENV_CONFIGS", files.path());
    std::string const outFile = scratch.path() + "/out", errFile = scratch.path() + "/err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    arguments.insert(arguments.begin(), AGENTENV_COMMAND);
    std::vector<char*> argv;
    for (std::string& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    Result r;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
      int status = 0;
      ::waitpid(pid, &status, 0);
      r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    r.out = contents(outFile);
    r.err = contents(errFile);
    return r;
  }
  static std::string contents(std::string const& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  TempDir files;
  TempDir scratch;
};

TEST_F(AgentenvCheck, CleanFilesPassSilently) {
  files.write("base.conf", "base {\n  source0 = \"*\";\n  target = anyPort;\n}\n");
  files.write("main.conf", "#include \"base.conf\"\nstore {\n  source0 = \"tcp://db:4000/store\";\n  dependency = \"base\";\n}\n");
  Result r = agentenv({"check", "main.conf"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
}

TEST_F(AgentenvCheck, ErrorsAreListedAndTheStatusIsOne) {
  files.write("a.conf", "a {\n\tsource0 = \"x\"\n  colour = \"red\";\n}\n");
  files.write("b.conf", "a {\n  source0 = \"y\";\n  source0 = \"z\";\n}\n");
  Result r = agentenv({"check", "a.conf", "b.conf"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "a.conf:2: error: missing semi-colon\n"
            "a.conf:3: error: unknown attribute name: colour\n"
            "b.conf: a: source0 already defined\n");
  EXPECT_EQ(r.out, "\t") << "stray characters reach standard output, as when an agent reads the file";

  Result duplicateOnly = agentenv({"check", "b.conf"});
  EXPECT_EQ(duplicateOnly.status, 1) << "a duplicate attribute is a problem too";
}

// The attribute lines of one entry in the dump, indented by `indent`.
std::string dumped(std::string const& indent, std::string const& name, std::map<std::string, std::string> changed) {
  std::vector<std::pair<std::string, std::string>> fields = {
      {"configFile", "\"dump.conf\""}, {"source0", "\"\""},  {"source1", "\"\""},
      {"pathSuffix", "\"\""},          {"target", "\"\""},   {"typeName", "\"\""},
      {"dependency", "\"\""},          {"timeoutPeriod", "600"}, {"unmountType", "statePreserving"},
      {"aggConfig", "(none)"}};
  std::string text = indent + name + "\n";
  for (auto& [field, value] : fields) text += indent + "  " + field + ": " + (changed.count(field) ? changed[field] : value) + "\n";
  return text;
}

TEST_F(AgentenvCheck, DumpShowsEntriesNestedUnderTheirAggregateSortedByName) {
  files.write("dump.conf",
              "zeta {\n"
              "  source0 = \"tcp://\" + ${HOST} + \":4000/zeta\";\n"
              "  dependency = \"alpha\";\n"
              "  timeoutPeriod = 2.5;\n"
              "  second { typeName = ${T}; }\n"
              "  first { unmountType = stateRemoving; }\n"
              "}\n"
              "alpha { target = \"/a\"; }\n");
  Result r = agentenv({"check", "--dump", "-D", "HOST=db", "-DT=say \"hi\"\t", "dump.conf"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, dumped("", "alpha", {{"target", "\"/a\""}}) +
                       dumped("", "zeta",
                              {{"source0", "\"tcp://db:4000/zeta\""},
                               {"dependency", "\"alpha\""},
                               {"timeoutPeriod", "2.5"}}) +
                       dumped("  ", "first", {{"unmountType", "stateRemoving"}, {"aggConfig", "zeta"}}) +
                       dumped("  ", "second", {{"typeName", "\"say \\\"hi\\\"\\x09\""}, {"aggConfig", "zeta"}}));
}

TEST_F(AgentenvCheck, MissingFilesAndBadArgumentsExitWithTwo) {
  files.write("bad.conf", "bad {\n  colour = 1;\n}\n");
  Result missing = agentenv({"check", "nope.conf", "bad.conf"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err,
            "agentenv check: error: file 'nope.conf' not found\n"
            "bad.conf:2: error: unknown attribute name: colour\n")
      << "the other files are still checked";

  files.write("includes-missing.conf", "#include \"gone.conf\"\n#include \"bad.conf\"\nok { typeName = \"T\"; }\n");
  Result include = agentenv({"check", "includes-missing.conf"});
  EXPECT_EQ(include.status, 2);
  EXPECT_EQ(include.err,
            "agentenv check: error: file 'gone.conf' not found\n"
            "bad.conf:2: error: unknown attribute name: colour\n");

  for (std::vector<std::string> bad : {std::vector<std::string>{}, {"frobnicate"}, {"check"}, {"check", "--colour", "bad.conf"},
                                       {"check", "-D"}, {"check", "-D", "NOVALUE", "bad.conf"},
                                       {"check", "-D", "1X=2", "bad.conf"}}) {
    Result r = agentenv(bad);
    EXPECT_EQ(r.status, 2) << ::testing::PrintToString(bad);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.err.rfind("agentenv: ", 0), 0u) << r.err;
  }
}

TEST_F(AgentenvCheck, HelpAndVersion) {
  Result help = agentenv({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("  check  "), std::string::npos) << help.out;
  Result checkHelp = agentenv({"check", "--help"});
  EXPECT_EQ(checkHelp.status, 0);
  EXPECT_EQ(checkHelp.out.rfind("usage: agentenv check", 0), 0u) << checkHelp.out;
  Result version = agentenv({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "agentenv 2.1.0\n");
}

}  // namespace
}  // namespace Zet::testing
