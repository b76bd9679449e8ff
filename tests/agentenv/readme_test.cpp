// The README's transcripts are what the commands print: every block that a
// "<!-- transcript ... -->" line introduces is run from the source folder,
// command by command ("$ agentenv ..."), and what each prints on standard
// output and error is compared with the lines below it. In the README, port 4401 and
// the folder /run/user/1000 stand for the test's own; "…" stands for any
// text. The comment tells the state the block
// needs: "the demonstration's agents run" (A exports, B mounts from it) or
// "agent A is gone".

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/peer/ChildProcess.h"
#include "tests/peer/Loopback.h"

namespace {

using Test::ChildProcess;

std::string const kSource = SOURCE_DIR;

struct Command {
  std::string line;  // after "$ "
  std::vector<std::string> expected;
};

struct Transcript {
  std::string state;  // what the comment asks for; "" for nothing
  std::vector<Command> commands;
};

std::vector<Transcript> transcripts() {
  std::ifstream readme(kSource + "/README.md");
  std::vector<Transcript> found;
  bool inBlock = false;
  for (std::string line; std::getline(readme, line);) {
    if (line.rfind("<!-- transcript", 0) == 0) {
      std::string state = line.substr(15, line.size() - 15 - 4);
      found.push_back({state.rfind(": ", 0) == 0 ? state.substr(2) : "", {}});
      inBlock = true;
    } else if (inBlock && line.rfind("    $ ", 0) == 0) {
      found.back().commands.push_back({line.substr(6), {}});
    } else if (inBlock && line.rfind("    ", 0) == 0 && !found.back().commands.empty()) {
      found.back().commands.back().expected.push_back(line.substr(4));
    } else {
      inBlock = false;
    }
  }
  return found;
}

std::string replaced(std::string text, std::string const& from, std::string const& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) text.replace(at, from.size(), to);
  return text;
}

// Whether a printed line is the expected one, each "…" matching any text.
bool matches(std::string const& printed, std::string const& expected) {
  std::string const any = "…";
  size_t cut = expected.find(any);
  if (cut == std::string::npos) return printed == expected;
  if (printed.compare(0, cut, expected, 0, cut) != 0) return false;
  std::string rest = expected.substr(cut + any.size());
  for (size_t from = cut; from <= printed.size(); ++from)
    if (matches(printed.substr(from), rest)) return true;
  return false;
}

class Readme : public ::testing::Test {
 protected:
  Readme() { ::setenv("XDG_RUNTIME_DIR", dir.c_str(), 1); }
  ~Readme() override {
    b.reset();
    a.reset();
    std::system(("rm -rf " + dir).c_str());
  }

  // What a command prints, README names replaced by the test's.
  std::vector<std::string> printed(std::string const& command) {
    std::string line = replaced(replaced(command, "4401", std::to_string(port)), "/run/user/1000", dir);
    ChildProcess run({"/bin/sh", "-c", "cd '" + kSource + "' && exec " + AGENTENV_COMMAND + line.substr(8) + " 2>&1"});
    std::string out = run.restOfOut();
    run.wait();
    std::vector<std::string> lines;
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);)
      lines.push_back(replaced(replaced(l, std::to_string(port), "4401"), dir, "/run/user/1000"));
    return lines;
  }

  bool says(std::string const& command, std::string const& prefix) {
    for (int tries = 0; tries < 200; ++tries) {
      auto lines = printed(command);
      if (!lines.empty() && lines[0].rfind(prefix, 0) == 0) return true;
      ::usleep(50000);
    }
    return false;
  }

  void bring(std::string const& state) {
    std::string agentenv = AGENTENV_COMMAND, portValue = "PORT=" + std::to_string(port);
    if (state == "the demonstration's agents run") {
      if (!a)
        a = std::make_unique<ChildProcess>(std::vector<std::string>{
            agentenv, "run", "--agent-name", "A", "-D", portValue, "-D", "SOCKET=" + dir + "/a.sock",
            kSource + "/examples/demo/exporter.conf"});
      ASSERT_TRUE(says("agentenv why --agent-name A overTcp", "overTcp is initialized"));
      if (!b)
        b = std::make_unique<ChildProcess>(std::vector<std::string>{
            agentenv, "run", "--agent-name", "B", "-D", portValue, "-D",
            "SOCKET_URI=unix://" + replaced(dir, "/", "%2F") + "%2Fa.sock", kSource + "/examples/demo/mounter.conf"});
      ASSERT_TRUE(says("agentenv why --agent-name B board", "board is initialized"));
    } else if (state == "agent A is gone") {
      a.reset();
      ASSERT_TRUE(says("agentenv why --agent-name B board", "board: fail: "));
    } else {
      ASSERT_EQ(state, "") << "a state the test does not know";
    }
  }

  std::string dir = [] {
    char pattern[] = "/tmp/zetreadmeXXXXXX";
    return std::string(::mkdtemp(pattern));
  }();
  uint16_t port = ::Test::freePort();
  std::unique_ptr<ChildProcess> a, b;
};

TEST_F(Readme, TranscriptsAreWhatTheCommandsPrint) {
  auto found = transcripts();
  ASSERT_GE(found.size(), 5u);
  for (Transcript const& transcript : found) {
    bring(transcript.state);
    for (Command const& command : transcript.commands) {
      std::vector<std::string> lines = printed(command.line);
      ASSERT_EQ(lines.size(), command.expected.size()) << command.line;
      for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_TRUE(matches(lines[i], command.expected[i])) << command.line << "\n  printed:  " << lines[i]
                                                             << "\n  expected: " << command.expected[i];
    }
  }
}

}  // namespace
