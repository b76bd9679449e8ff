// `agentenv check` as a person runs it: clean files pass silently, errors are
// listed with the exit status telling what kind of trouble there was, -D
// supplies substitutions and --dump shows what the files declare.

#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>

#include "tests/config_test_support.h"

namespace Zet::testing {
namespace {

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

class AgentenvCheck : public ::testing::Test {
 protected:
  // Runs agentenv with `arguments` and AGENTENV_CONFIGS naming `configs`
  // (by default the files' directory); returns its exit status and what it
  // wrote.
  Result agentenv(std::vector<std::string> const& arguments, std::string const& configs = "") {
    ScopedEnv path("AGENTENV_CONFIGS", configs.empty() ? files.path() : configs);
    std::string command = AGENTENV_COMMAND;
    for (std::string const& a : arguments) command += " '" + a + "'";
    int status = std::system((command + " >" + scratch.path() + "/out 2>" + scratch.path() + "/err").c_str());
    return Result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents("out"), contents("err")};
  }
  std::string contents(std::string const& name) const {
    std::ifstream in(scratch.path() + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  TempDir files;
  TempDir scratch;
};

TEST_F(AgentenvCheck, TheExitStatusTellsWhatKindOfTroubleThereWas) {
  files.write("base.conf", "base {\n  source0 = \"*\";\n  target = \"4000\";\n}\n");
  files.write("clean.conf", "#include \"base.conf\"\nstore {\n  typeName = \"Zet::Dir\";\n  target = \"/s\";\n  dependency = \"base\";\n}\n");
  files.write("a.conf", "a {\n\tsource0 = \"x\"\n  colour = \"red\";\n}\n");
  files.write("b.conf", "a {\n  target = \"/y\";\n  target = \"/z\";\n  typeName = \"Zet::Dir\";\n}\n");
  files.write("includes-missing.conf", "#include \"gone.conf\"\n#include \"b.conf\"\nok { typeName = \"Zet::Dir\"; target = \"/ok\"; }\n");

  Result clean = agentenv({"check", "clean.conf"});
  EXPECT_EQ(clean.status, 0);
  EXPECT_EQ(clean.out + clean.err, "");

  Result errors = agentenv({"check", "a.conf", "b.conf"});
  EXPECT_EQ(errors.status, 1);
  EXPECT_EQ(errors.err,
            "a.conf:2: error: missing semi-colon\n"
            "a.conf:3: error: unknown attribute name: colour\n"
            "b.conf: a: target already defined\n");
  EXPECT_EQ(errors.out, "") << "the tab the language ignores is not echoed to standard output";
  EXPECT_EQ(agentenv({"check", "b.conf"}).status, 1) << "a duplicate attribute is a problem too";

  Result missing = agentenv({"check", "nope.conf", "includes-missing.conf"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err,
            "agentenv check: error: file 'nope.conf' not found\n"
            "includes-missing.conf:1: error: file 'gone.conf' not found\n"
            "b.conf: a: target already defined\n")
      << "files after a missing one, named or included, are still checked";

  Result directory = agentenv({"check", "/tmp"});
  EXPECT_EQ(directory.status, 2);
  EXPECT_EQ(directory.err, "agentenv check: error: '/tmp' is a directory, not a configuration file\n");
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
  EXPECT_NE(r.err.find("dump.conf:5: warning: typeName 'say \"hi\"\\x09' cannot be resolved: "), std::string::npos)
      << r.err;
  EXPECT_EQ(r.out, dumped("", "alpha", {{"target", "\"/a\""}}) +
                       dumped("", "zeta",
                              {{"source0", "\"tcp://db:4000/zeta\""},
                               {"dependency", "\"alpha\""},
                               {"timeoutPeriod", "2.5"}}) +
                       dumped("  ", "first", {{"unmountType", "stateRemoving"}, {"aggConfig", "zeta"}}) +
                       dumped("  ", "second", {{"typeName", "\"say \\\"hi\\\"\\x09\""}, {"aggConfig", "zeta"}}));
}

// Names are ordered by their first eight bytes first: names that share them
// must still come in the order of the whole names, in the dump and in a cycle.
TEST_F(AgentenvCheck, NamesSharingTheirFirstEightBytesSortByTheWholeName) {
  files.write("long.conf",
              "configuration_b { typeName = \"Zet::Dir\"; target = \"/b\"; dependency = \"configuration_a\"; }\n"
              "configuration_c { typeName = \"Zet::Dir\"; target = \"/c\"; dependency = \"configuration_b\"; }\n"
              "configuration { typeName = \"Zet::Dir\"; target = \"/n\"; }\n"
              "configuration_a { typeName = \"Zet::Dir\"; target = \"/a\"; dependency = \"configuration_c\"; }\n");
  Result r = agentenv({"check", "--dump", "long.conf"});
  EXPECT_EQ(r.err,
            "long.conf:4: warning: dependency cycle: configuration_a -> configuration_c -> configuration_b -> "
            "configuration_a\n");
  std::vector<size_t> at;
  for (char const* name : {"configuration\n", "configuration_a\n", "configuration_b\n", "configuration_c\n"})
    at.push_back(r.out.find(name));
  EXPECT_NE(at.front(), std::string::npos) << r.out;
  EXPECT_TRUE(std::is_sorted(at.begin(), at.end())) << r.out;
}

TEST_F(AgentenvCheck, WarnsOfWhatWouldFailAtRunTimeAtItsLine) {
  files.write("lint.conf",
              "base { typeName = \"Zet::Dir\";\n"
              "  target = \"relative/path\";\n"
              "  member { typeName = \"Zet::Dir\";\n"
              "    dependency = \"base\";\n"
              "  }\n"
              "}\n"
              "ghost { typeName = \"Zet::Dir\"; target = \"/g\"; dependency = \"nobody\"; }\n"
              "a { typeName = \"Zet::Dir\"; target = \"/a\"; dependency = \"c\"; }\n"
              "b { typeName = \"Zet::Dir\"; target = \"/b\"; dependency = \"a\"; }\n"
              "c { typeName = \"Zet::Dir\"; target = \"/c\"; dependency = \"b\"; }\n"
              "portA { source0 = \"*\"; target = \"4000\"; }\n"
              "portB { source0 = \"*\"; target = \"4000\"; }\n"
              "tooHigh { source0 = \"*\"; target = \"70000\"; }\n"
              "socket { source0 = \"*\"; target = \"/run/a.sock\"; }\n"
              "bad {\n"
              "  source0 = \"tcp://host:99999/x\";\n"
              "  source1 = \"ftp://host/x\";\n"
              "  target = \"/m\";\n"
              "}\n"
              "plugin { typeName = \"Test::Unmapped\"; target = \"/p\"; }\n"
              "forgot {\n"
              "  source0 = ${SOCKET_URI} + \"/shared/board\";\n"
              "  source1 = \"tcp://h:1/other\";\n"
              "  target = \"/f\";\n"
              "}\n"
              "caf\xe9 { typeName = \"Zet::Dir\"; target = \"/c\"; }\n"
              "socket2 { source0 = \"*\"; target = \"/run/b.sock\"; }\n"
              "noTarget { typeName = \"Zet::Dir\"; }\n"
              "nothing { target = \"/n\"; }\n"
              "inst { typeName = \"Zet::Dir\"; target = \"/i\"; over { source0 = \"tcp://h:1/c\"; } }\n"
              "ex { source0 = \"*\"; exm { pathSuffix = \"x\"; } }\n");
  TempDir maps;
  maps.write("test.map", "Test::Unmapped /nonexistent/libunmapped.so\n");
  ScopedEnv mapPath("ZET_TYPE_MAP_PATH", maps.path());
  Result r = agentenv({"check", "lint.conf"});
  EXPECT_EQ(r.status, 0);
  std::string expected =
      "lint.conf:2: warning: target 'relative/path' is not an absolute path\n"
      "lint.conf:4: warning: 'member' depends on its own aggregate 'base'\n"
      "lint.conf:7: warning: dependency 'nobody' names no entry\n"
      "lint.conf:8: warning: dependency cycle: a -> c -> b -> a\n"
      "lint.conf:12: warning: export target '4000' is exported by 'portA' too\n"
      "lint.conf:13: warning: export target '70000' is read as TCP port 4464 (ports are 1-65535)\n"
      "lint.conf:13: warning: a second export on a TCP port: one listens per agent, so this one would replace "
      "the endpoint of 'portA'\n"
      "lint.conf:16: warning: source0 'tcp://host:99999/x' is not a valid source URI\n"
      "lint.conf:17: warning: source1 'ftp://host/x' is not a valid source URI\n"
      "lint.conf:20: warning: typeName 'Test::Unmapped' cannot be resolved: ";
  EXPECT_EQ(r.err.substr(0, expected.size()), expected) << r.err;
  std::string rest = r.err.substr(r.err.find('\n', expected.size()) + 1);
  EXPECT_EQ(rest,
            "lint.conf:22: warning: ${SOCKET_URI} has no value (-D SOCKET_URI=VALUE): it reads as empty, or 0 as a number\n"
            "lint.conf:22: warning: source0 '/shared/board' has no scheme: a mount needs tcp://HOST:PORT/PATH, "
            "tls://HOST:PORT/PATH or unix://SOCKET/PATH\n"
            "lint.conf:23: warning: the entry would be refused: sourceNameMismatch: Unsupported: Last component of "
            "path in source1 is \"other\". Does not match last component of source0: \"board\"\n"
            "lint.conf:26: warning: byte 0xe9 beside a name is ignored: the name ends or begins there\n"
            "lint.conf:27: warning: a second export on a domain socket: one listens per agent, so this one would "
            "replace the endpoint of 'socket'\n"
            "lint.conf:28: warning: 'noTarget' has no target: there is nowhere to put what it makes\n"
            "lint.conf:29: warning: 'nothing' has neither a source0 nor a typeName: there is nothing to make\n"
            "lint.conf:30: warning: source0 is ignored: a member is made as its aggregate 'inst' is, by instantiation\n"
            "lint.conf:31: warning: an export without a target listens nowhere\n"
            "lint.conf:31: warning: 'exm' is a member of the export 'ex': it does nothing, and holds its aggregate's "
            "group status back\n");
  EXPECT_EQ(agentenv({"check", "--strict", "lint.conf"}).status, 1);
}

TEST_F(AgentenvCheck, TheExamplesAreCleanButForTheirDeliberateCycle) {
  std::string examples = EXAMPLES_DIR;
  for (std::vector<std::string> example :
       {std::vector<std::string>{"-D", "STORE_TIMEOUT=30", examples + "/agent.conf"},
        {"-D", "PORT=4000", "-D", "SOCKET=/run/a.sock", examples + "/demo/exporter.conf"},
        {"-D", "PORT=4000", "-D", "SOCKET_URI=unix://%2Frun%2Fa.sock", examples + "/demo/mounter.conf"}}) {
    example.insert(example.begin(), {"check", "--strict"});
    // AGENTENV_CONFIGS names another folder: includes are found beside the file.
    Result r = agentenv(example);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
  }
  Result cycle = agentenv({"check", examples + "/cycle.conf"});
  EXPECT_EQ(cycle.err, examples + "/cycle.conf:7: warning: dependency cycle: first -> third -> second -> first\n");
}

TEST_F(AgentenvCheck, BadArgumentsGetOneLineAndStatusTwo) {
  files.write("ok.conf", "ok { typeName = \"T\"; }\n");
  for (std::vector<std::string> bad : {std::vector<std::string>{}, {"frobnicate"}, {"check"}, {"check", "--colour", "ok.conf"},
                                       {"check", "-D"}, {"check", "-D", "NOVALUE", "ok.conf"}, {"check", "-D1X=2", "ok.conf"}}) {
    Result r = agentenv(bad);
    EXPECT_EQ(r.status, 2) << ::testing::PrintToString(bad);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.err.rfind("agentenv: ", 0), 0u) << r.err;
  }
  EXPECT_EQ(agentenv({"chek", "ok.conf"}).err, "agentenv: 'chek' is not a subcommand; did you mean 'check'?\n");
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
