// agentenv run as people run it: two agent hosts on real sockets, one
// exporting, one mounting from it; the monitor's lines, --watch, the final
// table and the exit status.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Zet/attrlog/Socket.h"
#include "tests/peer/ChildProcess.h"
#include "tests/peer/Loopback.h"

namespace {

using Test::ChildProcess;

std::string const kExamples = EXAMPLES_DIR;

std::vector<std::string> run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {AGENTENV_COMMAND, "run"});
  return arguments;
}

auto startsWith(std::string prefix) {
  return [prefix](std::string const& line) { return line.rfind(prefix, 0) == 0; };
}

// The row of a table that starts with `entry`, its blanks squeezed.
std::string row(std::string const& table, std::string const& entry) {
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word, squeezed;
    while (words >> word) squeezed += (squeezed.empty() ? "" : " ") + word;
    if (squeezed.rfind(entry + " ", 0) == 0) return squeezed;
  }
  return "no row " + entry;
}

// Whether the agent behind control says, within a few seconds, that nothing
// holds `entry` back.
bool answers(std::string const& control, std::string const& entry) {
  for (int tries = 0; tries < 100; ++tries) {
    if (ChildProcess({AGENTENV_COMMAND, "why", "--control", control, entry}).wait() == 0) return true;
    ::usleep(50000);
  }
  return false;
}

struct Demo {
  uint16_t port = Test::freePort();
  std::string dir = [] {
    char pattern[] = "/tmp/zetrunXXXXXX";
    return std::string(::mkdtemp(pattern));
  }();
  std::string socket = dir + "/a.sock";
  std::string control = "unix:" + dir + "/b-control.sock";

  std::vector<std::string> exporter(bool overTcp = true) const {
    // Without TCP, it listens on another port: of the mount's sources only the socket serves.
    return run({"--agent-name", "A", "--control", "unix:" + dir + "/a-control.sock", "-D",
                "PORT=" + std::to_string(overTcp ? port : 65535), "-D", "SOCKET=" + socket,
                kExamples + "/demo/exporter.conf"});
  }
  std::vector<std::string> mounter() const {
    return run({"--agent-name", "B", "--watch", "--control", control, "-D", "PORT=" + std::to_string(port), "-D",
                "SOCKET_URI=" + Test::domainSource(socket, ""), kExamples + "/demo/mounter.conf"});
  }
};

TEST(AgentenvRun, AMountingAgentFollowsItsExporterAwayAndBackAndToItsBackup) {
  Demo demo;
  auto a = std::make_unique<ChildProcess>(demo.exporter());
  ASSERT_TRUE(answers("unix:" + demo.dir + "/a-control.sock", "overTcp"));
  ChildProcess b(demo.mounter());
  ASSERT_NE(b.outLine(startsWith("workspace: initialized")), "");

  // What B's control socket shows, in a table, as JSON, and as it changes.
  ChildProcess status({AGENTENV_COMMAND, "status", "--control", demo.control});
  EXPECT_EQ(status.wait(), 0);
  std::string shown = status.restOfOut();
  EXPECT_NE(shown.find("\nboard      mount        initialized  initialized                 " +
                       ::Test::tcpSource(demo.port, "/shared/board") + "\n"),
            std::string::npos)
      << shown;
  ChildProcess json({AGENTENV_COMMAND, "status", "--control", demo.control, "--json", "workspace"});
  EXPECT_EQ(json.wait(), 0);
  EXPECT_EQ(json.restOfOut(),
            "{\"code\":\"\",\"currentSource\":\"\",\"entry\":\"workspace\",\"group\":\"initialized\","
            "\"listensOn\":\"\",\"message\":\"\",\"mode\":\"instantiate\",\"reason\":\"\",\"status\":\"initialized\","
            "\"waitingFor\":\"\"}\n");
  // An entry the agent does not have is named, and fails the command.
  ChildProcess unknown({AGENTENV_COMMAND, "status", "--control", demo.control, "workspace", "wrokspace"});
  EXPECT_EQ(unknown.wait(), 1);
  EXPECT_EQ(unknown.restOfErr(), "agentenv status: no entry named 'wrokspace'\n");
  ChildProcess watching({AGENTENV_COMMAND, "status", "--control", demo.control, "--watch", "board"});
  ASSERT_NE(watching.outLine(startsWith("board ")), "");

  // The exporter goes: the monitor says so, and the mount keeps trying.
  a->kill();
  ASSERT_NE(b.outLine(startsWith("board: fail fail disconnected")), "");
  EXPECT_NE(watching.outLine(startsWith("board: fail fail disconnected")), "");
  watching.signal(SIGINT);
  EXPECT_EQ(watching.wait(), 1);
  std::string report = b.errLine(startsWith("B (host:"));
  EXPECT_NE(report.find("mounter.conf: board: fail: disconnected"), std::string::npos) << report;

  // Back on its socket only: the backup source serves the mount.
  a = std::make_unique<ChildProcess>(demo.exporter(false));
  ASSERT_NE(b.outLine(startsWith("board: initialized initialized none")), "");

  // Interrupted, the mounting agent prints its table and says all is well.
  b.signal(SIGINT);
  EXPECT_EQ(b.wait(), 0);
  std::string table = b.restOfOut();
  EXPECT_EQ(table.rfind("ENTRY      MODE         STATUS       GROUP        CODE  MESSAGE  SOURCE\n", 0), 0u) << table;
  EXPECT_NE(table.find("\nboard      mount        initialized  initialized                 " +
                       ::Test::domainSource(demo.socket, "/shared/board") + "\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("\nworkspace  instantiate  initialized  initialized\n"), std::string::npos) << table;
  a->signal(SIGTERM);
  EXPECT_EQ(a->wait(), 0);
}

TEST(AgentenvTools, WhyAndGraphReadFilesToo) {
  ChildProcess cycle({AGENTENV_COMMAND, "why", "second", kExamples + "/cycle.conf"});
  EXPECT_EQ(cycle.wait(), 1);
  EXPECT_EQ(cycle.restOfOut(),
            "second waits on first → first waits on third → third waits on second → "
            "cycle: second -> first -> third -> second\n");
  ChildProcess mounter({AGENTENV_COMMAND, "why", "-D", "PORT=4000", "-D", "SOCKET_URI=unix://%2Fa", "workspace",
                        kExamples + "/demo/mounter.conf"});
  EXPECT_EQ(mounter.wait(), 1);
  EXPECT_EQ(mounter.restOfOut(),
            "workspace waits on board → board would mount tcp://127.0.0.1:4000/shared/board at /remote/board\n");
  ChildProcess missing({AGENTENV_COMMAND, "why", "nosuch", kExamples + "/cycle.conf"});
  EXPECT_EQ(missing.wait(), 1);
  EXPECT_EQ(missing.restOfOut(), "nosuch: no such entry\n");
  // Control bytes of a file do not reach the terminal.
  Demo demo;
  std::ofstream(demo.dir + "/esc.conf")
      << "x { source0 = \"tcp://h:1/a\x1b[2J\"; target = \"/x\"; dependency = \"\"; }\n";
  ChildProcess escaped({AGENTENV_COMMAND, "why", "x", demo.dir + "/esc.conf"});
  EXPECT_EQ(escaped.wait(), 0);
  EXPECT_EQ(escaped.restOfOut(), "x would mount tcp://h:1/a\\x1b[2J at /x\n");

  ChildProcess graph({AGENTENV_COMMAND, "graph", "-D", "PORT=1", "-D", "SOCKET=/a.sock",
                      kExamples + "/demo/exporter.conf", kExamples + "/cycle.conf"});
  EXPECT_EQ(graph.wait(), 0);
  std::string dot = graph.restOfOut();
  EXPECT_NE(dot.find("\"first\" -> \"third\" [color=red, penwidth=2, label=\"cycle\"];"), std::string::npos) << dot;
  EXPECT_NE(dot.find("\"tasks\" -> \"board\" [style=dashed, arrowhead=empty];"), std::string::npos) << dot;
  EXPECT_NE(dot.find("\"overTcp\" -> \"board\";"), std::string::npos) << dot;
  if (std::system("command -v dot >/dev/null 2>&1") == 0) {
    ChildProcess render({"/bin/sh", "-c", "dot -Tsvg >/dev/null"});
    render.write(dot);
    render.closeInput();
    EXPECT_EQ(render.wait(), 0) << render.restOfErr();
  }
}

TEST(AgentenvTools, PlanShowsWhatAReloadAppliesAndABrokenFileChangesNothing) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", control = "unix:" + demo.dir + "/ctl.sock";
  auto write = [&](std::string const& text) { std::ofstream(conf) << text; };
  std::string group =
      "grp { typeName = \"Zet::Dir\"; target = \"/p/grp\"; dependency = \"\";\n"
      "      bad { typeName = \"No::Such\"; } }\n";
  write(
      "base { typeName = \"Zet::Dir\"; target = \"/p/base\"; dependency = \"\"; }\n"
      "keep { typeName = \"Zet::Dir\"; target = \"/p/keep\"; dependency = \"base\"; }\n"
      "gone { typeName = \"Zet::Dir\"; target = \"/p/gone\"; dependency = \"\"; }\n"
      "sock { source0 = \"*\"; target = \"" +
      demo.dir + "/exp.sock\"; dependency = \"\"; }\n" + group);
  ChildProcess agent(run({"--control", control, conf}));
  ASSERT_TRUE(answers(control, "keep"));
  // A member that fails holds its aggregate back.
  ChildProcess why({AGENTENV_COMMAND, "why", "--control", control, "grp"});
  EXPECT_EQ(why.wait(), 1);
  std::string told = why.restOfOut();
  EXPECT_EQ(told.rfind("grp waits on its member bad (error) → bad: error: ", 0), 0u) << told;

  write(
      "base { typeName = \"Zet::Dir\"; target = \"/p/base\"; dependency = \"\"; }\n"
      "keep { typeName = \"Zet::Dir\"; target = \"/p/keep\"; dependency = \"base\"; timeoutPeriod = 5.0; }\n"
      "fresh { typeName = \"Zet::Dir\"; target = \"/p/fresh\"; dependency = \"keep\"; }\n"
      "sock { typeName = \"Zet::Dir\"; target = \"/p/sock\"; dependency = \"\"; }\n" +
      group);
  ChildProcess plan({AGENTENV_COMMAND, "plan", "--control", control, conf});
  EXPECT_EQ(plan.wait(), 1);
  EXPECT_EQ(plan.restOfOut(),
            "unchanged bad\n"
            "unchanged base\n"
            "added     fresh\n"
            "removed   gone\n"
            "unchanged grp\n"
            "updated   keep: timeoutPeriod: \"600\" → \"5\"\n"
            "refused   sock: switchedModes: Unsupported: Tried to switch modes\n");

  // reload tells what the agent did with the files, and fails when it
  // refused them.
  ChildProcess reload({AGENTENV_COMMAND, "reload", "--control", control});
  EXPECT_EQ(reload.wait(), 0);
  EXPECT_EQ(reload.restOfOut(), "applied: 1 added, 1 removed, 1 updated, 1 refused, 3 unchanged\n");
  EXPECT_EQ(agent.errLine(startsWith("agentenv run: reload")),
            "agentenv run: reload: 1 added, 1 removed, 1 updated, 1 refused, 3 unchanged");
  write("base { typeName = \"Zet::Dir\" target = \"/p/base\"; }\n");
  ChildProcess broken({AGENTENV_COMMAND, "reload", "--control", control});
  EXPECT_EQ(broken.wait(), 1);
  std::string refused = broken.restOfOut();
  EXPECT_EQ(refused, "refused: the files have errors; nothing changed: " + conf + ":0: error: missing semi-colon\n");
  EXPECT_EQ(agent.errLine(startsWith("agentenv run: reload")),
            "agentenv run: reload: the files have errors; nothing changed");

  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait(), 0);  // a stop asked for is clean, though "bad" is in error
  std::string table = agent.restOfOut();
  for (auto row : {"\nbase ", "\nfresh ", "\nkeep ", "\nsock "}) EXPECT_NE(table.find(row), std::string::npos) << table;
  EXPECT_EQ(table.find("\ngone "), std::string::npos) << table;
  ChildProcess nobody({AGENTENV_COMMAND, "reload", "--control", control});
  EXPECT_EQ(nobody.wait(), 2);
}

TEST(AgentenvRun, ControlOfARunningAgentNeverReachesAnotherProcess) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", control = "unix:" + demo.dir + "/ctl.sock";
  std::ofstream(conf) << "exp { source0 = \"*\"; target = \"" << demo.dir << "/exp.sock\"; dependency = \"\"; }\n";

  // A pid file left by a killed agent names a process that is not one:
  // reload signals nobody.
  ChildProcess bystander({"/bin/sleep", "30"});
  std::ofstream(demo.dir + "/ctl.sock.pid") << bystander.pid() << "\n";
  ChildProcess stale({AGENTENV_COMMAND, "reload", "--control", control});
  EXPECT_EQ(stale.wait(), 2);
  EXPECT_TRUE(bystander.running());

  // A control socket that cannot open stops the agent before any entry
  // acts: a missing folder, or another agent of that name.
  ChildProcess lost(run({"--control", "unix:" + demo.dir + "/no/such/ctl.sock", conf}));
  EXPECT_EQ(lost.wait(), 2);
  EXPECT_EQ(lost.restOfErr(), "agentenv: error: cannot listen on domain socket '" + demo.dir +
                                  "/no/such/ctl.sock': No such file or directory\n");
  EXPECT_NE(::access((demo.dir + "/exp.sock").c_str(), F_OK), 0);
  ChildProcess first(run({"--control", control, conf}));
  ASSERT_TRUE(answers(control, "exp"));
  ChildProcess second(run({"--control", control, conf}));
  EXPECT_EQ(second.wait(), 2);
  EXPECT_EQ(second.restOfErr(), "agentenv: error: cannot listen on domain socket '" + demo.dir +
                                    "/ctl.sock': another process is listening there\n");
  std::ifstream pidFile(demo.dir + "/ctl.sock.pid");
  pid_t written = 0;
  pidFile >> written;
  EXPECT_EQ(written, first.pid());
  EXPECT_TRUE(answers(control, "exp"));
  first.signal(SIGTERM);
  EXPECT_EQ(first.wait(), 0);
}

TEST(AgentenvRun, ASighupWhileTheFilesAreFirstReadIsAppliedOnceTheyAre) {
  Demo demo;
  std::string conf = demo.dir + "/big.conf", control = "unix:" + demo.dir + "/ctl.sock";
  {
    std::ofstream big(conf);
    for (int i = 0; i < 20000; ++i)
      big << "e" << i << " { typeName = \"Zet::Dir\"; target = \"/big/e" << i << "\"; dependency = \"\"; }\n";
  }
  // Its peers may watch fewer entities than it has, but its tools may see them all.
  ChildProcess agent(run({"--control", control, conf}), {"ZET_ATTRLOG_MAX_WATCHED=1000"});
  std::string pidFile = demo.dir + "/ctl.sock.pid";
  for (int tries = 0; tries < 2000 && ::access(pidFile.c_str(), F_OK) != 0; ++tries) ::usleep(1000);
  agent.signal(SIGHUP);
  EXPECT_EQ(agent.errLine(startsWith("agentenv run: reload")),
            "agentenv run: reload: 0 added, 0 removed, 0 updated, 0 refused, 20000 unchanged");
  ChildProcess status({AGENTENV_COMMAND, "status", "--control", control, "e19999"});
  EXPECT_EQ(row(status.restOfOut(), "e19999"), "e19999 instantiate initialized initialized");
  EXPECT_EQ(status.wait(), 0);
  agent.signal(SIGTERM);
  agent.restOfOut();  // the table of 20,000 rows
  EXPECT_EQ(agent.wait(), 0);
}

TEST(AgentenvRun, AServiceManagerHearsReadyReloadingAndStopping) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", notify = demo.dir + "/notify";
  std::ofstream(conf) << "one { typeName = \"Zet::Dir\"; target = \"/p/one\"; dependency = \"\"; }\n"
                      << "two { typeName = \"No::Such\"; target = \"/p/two\"; dependency = \"\"; }\n";
  Zet::SocketFd manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strcpy(addr.sun_path, notify.c_str());
  ASSERT_EQ(::bind(manager.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  auto heard = [&] {
    pollfd p{manager.get(), POLLIN, 0};
    char buffer[512];
    if (::poll(&p, 1, 10000) != 1) return std::string("nothing");
    ssize_t n = ::recv(manager.get(), buffer, sizeof buffer, 0);
    return std::string(buffer, size_t(std::max<ssize_t>(n, 0)));
  };
  ChildProcess agent(run({"--control", "unix:" + demo.dir + "/ctl.sock", conf}), {"NOTIFY_SOCKET=" + notify});
  EXPECT_EQ(heard(), "READY=1\nSTATUS=1 initialized, 1 error");
  agent.signal(SIGHUP);
  EXPECT_EQ(heard(), "RELOADING=1");
  EXPECT_EQ(heard(), "READY=1\nSTATUS=1 initialized, 1 error");
  agent.signal(SIGTERM);
  EXPECT_EQ(heard(), "STOPPING=1");
  agent.wait();
}

TEST(AgentenvRun, AReloadThatReplacesAnEntryAtItsTargetAndRollsBackLeavesBothWorking) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", control = "unix:" + demo.dir + "/ctl.sock";
  auto write = [&](std::string const& text) { std::ofstream(conf) << text; };
  std::string kept = "kept { typeName = \"Zet::Dir\"; target = \"/p/kept\"; dependency = \"\"; }\n";
  write(kept + "old { typeName = \"Zet::Dir\"; target = \"/p/x\"; dependency = \"\"; unmountType = stateRemoving; }\n");
  ChildProcess agent(run({"--control", control, conf}));
  ASSERT_TRUE(answers(control, "old"));
  auto reload = [&](std::string const& text) {
    write(text);
    agent.signal(SIGHUP);
    return agent.errLine(startsWith("agentenv run: reload"));
  };
  // One reload removes "old" and adds "new" at its place, the next removes
  // "kept" and the one after brings it back: every entry is initialized.
  EXPECT_NE(reload(kept + "new { typeName = \"Zet::Dir\"; target = \"/p/x\"; dependency = \"\"; }\n"), "");
  EXPECT_TRUE(answers(control, "new"));
  EXPECT_NE(reload("new { typeName = \"Zet::Dir\"; target = \"/p/x\"; dependency = \"\"; }\n"), "");
  EXPECT_NE(reload(kept + "new { typeName = \"Zet::Dir\"; target = \"/p/x\"; dependency = \"\"; }\n"), "");
  EXPECT_TRUE(answers(control, "kept"));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait(), 0) << agent.restOfOut();
}

TEST(AgentenvRun, UntilSettledStopsOnItsOwnWithTheRightStatus) {
  Demo demo;
  ChildProcess cycle(run({"--until-settled", "--control", "unix:" + demo.dir + "/c.sock", kExamples + "/cycle.conf"}));
  EXPECT_EQ(cycle.wait(), 1);
  std::string table = cycle.restOfOut();
  EXPECT_NE(table.find("\nfirst "), std::string::npos) << table;
  EXPECT_NE(table.find("circular"), std::string::npos) << table;
  std::string reports = cycle.restOfErr();
  EXPECT_NE(reports.find("cycle.conf: first: "), std::string::npos) << reports;

  // A control byte of a source reaches the table escaped, and the columns
  // stay aligned after it.
  std::ofstream(demo.dir + "/esc.conf") << "x { source0 = \"tcp://127.0.0.1:1/a\x1b[2J\"; target = \"/x\"; }\n"
                                        << "y { target = \"/y\"; typeName = \"Zet::Dir\"; }\n";
  ChildProcess escaped(run({"--until-settled", "--control", "unix:" + demo.dir + "/x.sock", demo.dir + "/esc.conf"}));
  EXPECT_EQ(escaped.wait(), 1);
  std::string escapedTable = escaped.restOfOut();
  EXPECT_EQ(escapedTable.find('\x1b'), std::string::npos) << escapedTable;
  size_t source = escapedTable.find("SOURCE"), escapedSource = escapedTable.find("tcp://127.0.0.1:1/a\\x1b[2J  ");
  ASSERT_NE(escapedSource, std::string::npos) << escapedTable;
  EXPECT_EQ(escapedSource - escapedTable.find("\nx "), source + 1) << escapedTable;
  EXPECT_EQ(row(escapedTable, "y"), "y instantiate initialized initialized");

  ChildProcess exporter(
      run({"--until-settled", "--control", "unix:" + demo.dir + "/e.sock", "-D", "PORT=" + std::to_string(demo.port),
           "-D", "SOCKET=" + demo.socket, kExamples + "/demo/exporter.conf"}));
  EXPECT_EQ(exporter.wait(), 0);
  EXPECT_EQ(exporter.restOfErr(), "");

  // Where another agent listens already, an export cannot: it fails, with
  // the reason in the table and in why, and the run does not end well.
  ChildProcess holder(demo.exporter());
  ASSERT_TRUE(answers("unix:" + demo.dir + "/a-control.sock", "overTcp"));
  std::string control = "unix:" + demo.dir + "/second.sock";
  ChildProcess second(run({"--control", control, "-D", "PORT=" + std::to_string(demo.port), "-D",
                           "SOCKET=" + demo.socket, kExamples + "/demo/exporter.conf"}));
  std::string portTaken =
      "cannot listen on TCP port " + std::to_string(demo.port) + " at 127.0.0.1: Address already in use";
  // The monitor's line is as ever: the code, whose text is "none".
  EXPECT_EQ(second.errLine([](std::string const& line) { return line.find(": overTcp: ") != std::string::npos; }),
            kExamples + "/demo/exporter.conf: overTcp: fail: none");
  ChildProcess why({AGENTENV_COMMAND, "why", "--control", control, "overTcp"});
  EXPECT_EQ(why.wait(), 1);
  EXPECT_EQ(why.restOfOut(), "overTcp: fail: none: " + portTaken + "\n");
  second.signal(SIGTERM);
  EXPECT_EQ(second.wait(), 0);
  std::string shown = second.restOfOut();
  EXPECT_NE(shown.find("  REASON\n"), std::string::npos) << shown;
  EXPECT_NE(shown.find("  " + portTaken + "\n"), std::string::npos) << shown;
  EXPECT_NE(shown.find("cannot listen on domain socket '" + demo.socket + "': another process is listening there\n"),
            std::string::npos)
      << shown;

  // An agent stopped by SIGTERM leaves no socket file behind; the other
  // agent's socket stays its own.
  holder.signal(SIGTERM);
  EXPECT_EQ(holder.wait(), 0);
  EXPECT_NE(::access(demo.socket.c_str(), F_OK), 0);

  ChildProcess missing(run({"--until-settled", "/nonexistent/agent.conf"}));
  EXPECT_EQ(missing.wait(), 2);
  // Files with errors start nothing, not even the entries read before them.
  std::string broken = demo.dir + "/broken.conf";
  std::ofstream(broken) << "exp { source0 = \"*\"; target = \"" << demo.dir << "/exp.sock\"; dependency = \"\"; }\n"
                        << "bad { typeName = \"Zet::Dir\"\n target = \"/p\"; }\n";
  ChildProcess refused(run({"--until-settled", "--control", "unix:" + demo.dir + "/r.sock", broken}));
  EXPECT_EQ(refused.wait(), 2);
  EXPECT_EQ(refused.restOfErr(), broken +
                                     ":2: error: missing semi-colon\n"
                                     "agentenv run: the files have errors; nothing was started\n");
  EXPECT_NE(::access((demo.dir + "/exp.sock").c_str(), F_OK), 0);
  ChildProcess bad(run({"--until-settled", "--frobnicate", kExamples + "/cycle.conf"}));
  EXPECT_EQ(bad.wait(), 2);
  ChildProcess nobody({AGENTENV_COMMAND, "status", "--control", "unix:" + demo.dir + "/nobody.sock"});
  EXPECT_EQ(nobody.wait(), 2);
  EXPECT_EQ(nobody.restOfErr(), "agentenv: no agent answers at " + demo.dir +
                                   "/nobody.sock (disconnected: cannot connect to domain socket '" + demo.dir +
                                   "/nobody.sock': No such file or directory)\n");
}

}  // namespace

TEST(AgentenvRun, StatusShowsWhereExportsListenWhatWaitingEntriesWaitForAndWhenTheAgentGoes) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", control = "unix:" + demo.dir + "/ctl.sock";
  std::ofstream(conf) << "bad { typeName = \"No::Such\"; target = \"/p/bad\"; dependency = \"\"; }\n"
                      << "app { typeName = \"Zet::Dir\"; target = \"/p/app\"; dependency = \"bad\"; }\n"
                      << "grp { source0 = \"unix://%2Fnowhere/x\"; target = \"/p/grp\"; dependency = \"app\";\n"
                      << "      m { pathSuffix = \"m\"; } }\n"
                      << "tcp { source0 = \"*\"; target = \"" << demo.port << "\"; dependency = \"\"; }\n"
                      << "sock { source0 = \"*\"; target = \"" << demo.socket << "\"; dependency = \"\"; }\n"
                      << "empty { typeName = \"Test::Nothing\"; target = \"/p/empty\"; dependency = \"\"; }\n";
  std::ofstream(demo.dir + "/test.map") << "Test::Nothing " ZET_TEST_EMPTY_PLUGIN "\n";
  auto agent = std::make_unique<ChildProcess>(run({"--control", control, conf}),
                                              std::vector<std::string>{"ZET_TYPE_MAP_PATH=" + demo.dir});
  ASSERT_TRUE(answers(control, "tcp"));

  // A member shows the mode its aggregate's config asks for, in every view.
  ChildProcess table({AGENTENV_COMMAND, "status", "--control", control});
  EXPECT_EQ(table.wait(), 1);
  std::string shown = table.restOfOut();
  EXPECT_EQ(row(shown, "app"), "app instantiate notApplicable notApplicable waiting for 'bad'");
  EXPECT_EQ(row(shown, "m"), "m mount notApplicable notApplicable waiting for 'app'");
  EXPECT_EQ(row(shown, "tcp"), "tcp exp initialized initialized port " + std::to_string(demo.port));
  EXPECT_EQ(row(shown, "sock"), "sock exp initialized initialized socket " + demo.socket);
  // A message of several lines stays on its row.
  EXPECT_EQ(row(shown, "empty"),
            "empty instantiate error error noTypeNode no type node for type 'Test::Nothing'; possible reasons for this "
            "include: 1. Typo in type name; 2. Missing map file; 3. LD_LIBRARY_PATH set incorrectly");
  ChildProcess json({AGENTENV_COMMAND, "status", "--control", control, "--json", "app", "sock"});
  EXPECT_EQ(json.wait(), 1);
  std::string lines = json.restOfOut();
  EXPECT_NE(lines.find("\"entry\":\"app\",\"group\":\"notApplicable\",\"listensOn\":\"\","), std::string::npos)
      << lines;
  EXPECT_NE(lines.find("\"waitingFor\":\"bad\"}\n"), std::string::npos) << lines;
  EXPECT_NE(lines.find("\"listensOn\":\"socket " + demo.socket + "\""), std::string::npos) << lines;

  // A watch shows the entries named only, as JSON when asked, and ends when
  // the agent goes.
  ChildProcess watching({AGENTENV_COMMAND, "status", "--control", control, "--watch", "--json", "tcp"});
  std::string first = watching.outLine([](std::string const&) { return true; });
  EXPECT_EQ(first.rfind("{\"code\":\"\",\"currentSource\":\"*\",\"entry\":\"tcp\",", 0), 0u) << first;
  agent->kill();
  EXPECT_EQ(watching.wait(), 2);
  EXPECT_EQ(watching.restOfOut(), "");
  EXPECT_EQ(watching.restOfErr(),
            "agentenv status: the agent at " + demo.dir + "/ctl.sock has gone away (disconnected)\n");
}

TEST(AgentenvTools, PlanReadsTheFilesWithTheAgentsDefinitions) {
  Demo demo;
  std::string conf = demo.dir + "/agent.conf", control = "unix:" + demo.dir + "/ctl.sock";
  std::ofstream(conf) << "x { typeName = \"Zet::Dir\"; target = ${T}; dependency = \"\"; }\n";
  ChildProcess agent(run({"--control", control, "-D", "T=/p/x", conf}));
  ASSERT_TRUE(answers(control, "x"));
  auto plan = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {AGENTENV_COMMAND, "plan", "--control", control});
    ChildProcess planned(arguments);
    EXPECT_EQ(planned.wait(), 0);
    return planned.restOfOut();
  };
  EXPECT_EQ(plan({conf}), "unchanged x\n");
  EXPECT_EQ(plan({}), "unchanged x\n") << "without files: the agent's own, as a reload reads them";
  EXPECT_EQ(plan({"-D", "T=/p/y", conf}), "updated   x: target: \"/p/x\" → \"/p/y\"\n");
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait(), 0);
}

TEST(AgentenvRun, AgentsMountEachOtherOverTlsAndARefusalShowsWhyInStatus) {
  Demo demo;
  ASSERT_EQ(ChildProcess({"/bin/bash", SOURCE_DIR "/scripts/make-certs.sh", demo.dir, "agent-a", "agent-b", "agent-c"})
                .wait(),
            0);
  auto identity = [&](std::string const& name, std::string const& serves) {
    return std::vector<std::string>{"ZET_ATTRLOG_TLS_CERT=" + demo.dir + "/" + name + ".crt",
                                    "ZET_ATTRLOG_TLS_KEY=" + demo.dir + "/" + name + ".key",
                                    "ZET_ATTRLOG_TLS_CA=" + demo.dir + "/ca.crt", "ZET_ATTRLOG_TLS_PEERS=" + serves};
  };
  auto agent = [&](std::string const& name, uint16_t port, std::string const& peer, uint16_t peerPort) {
    return run({"--agent-name", name, "--control", "unix:" + demo.dir + "/" + name + ".sock", "-D", "SELF=" + name,
                "-D", "PORT=" + std::to_string(port), "-D", "PEER=" + peer, "-D",
                "PEER_PORT=" + std::to_string(peerPort), kExamples + "/demo/tls-agent.conf"});
  };
  uint16_t portA = demo.port, portB = ::Test::freePort(), portC = ::Test::freePort();
  ChildProcess a(agent("agent-a", portA, "agent-b", portB), identity("agent-a", "agent-b"));
  ChildProcess b(agent("agent-b", portB, "agent-a", portA), identity("agent-b", "agent-a"));
  ASSERT_TRUE(answers("unix:" + demo.dir + "/agent-a.sock", "peer"));
  ASSERT_TRUE(answers("unix:" + demo.dir + "/agent-b.sock", "peer"));

  // agent-b seen from another process over TLS, as agent-a.
  std::string remote = "tls://localhost:" + std::to_string(portB);
  ChildProcess status({AGENTENV_COMMAND, "status", "--remote", remote, "peer"}, identity("agent-a", ""));
  EXPECT_EQ(status.wait(), 0);
  EXPECT_EQ(row(status.restOfOut(), "peer"),
            "peer mount initialized initialized tls://localhost:" + std::to_string(portA) + "/shared/agent-a");
  ChildProcess why({AGENTENV_COMMAND, "why", "--remote", remote + "/AgentEnv/AgentEnvStatusDir/", "own"},
                   identity("agent-a", ""));
  EXPECT_EQ(why.wait(), 0);

  // agent-c's certificate is signed by the CA, but agent-a serves agent-b only.
  ChildProcess c(agent("agent-c", portC, "agent-a", portA), identity("agent-c", ""));
  std::string refused = "localhost port " + std::to_string(portA) +
                        " refused us: its certificate (/CN=agent-c) names none of the peers of ZET_ATTRLOG_TLS_PEERS";
  std::string report = c.errLine(startsWith("agent-c (host:"));
  EXPECT_NE(report.find("/demo/tls-agent.conf: peer: error: mount permission denied"), std::string::npos) << report;
  ChildProcess cause({AGENTENV_COMMAND, "why", "--control", "unix:" + demo.dir + "/agent-c.sock", "peer"});
  EXPECT_EQ(cause.wait(), 1);
  EXPECT_EQ(cause.restOfOut(), "peer: error: mount permission denied: " + refused + "\n");

  // Without a certificate, a remote view is refused before anything is sent.
  ChildProcess anonymous({AGENTENV_COMMAND, "status", "--remote", remote},
                         {"ZET_ATTRLOG_TLS_CERT=", "ZET_ATTRLOG_TLS_KEY=", "ZET_ATTRLOG_TLS_CA="});
  EXPECT_EQ(anonymous.wait(), 2);
  EXPECT_EQ(anonymous.restOfErr(), "agentenv: no agent answers at " + remote +
                                       " (permissionDenied: cannot mount from localhost port " + std::to_string(portB) +
                                       " over TLS: this process has no certificate "
                                       "(ZET_ATTRLOG_TLS_CERT, ZET_ATTRLOG_TLS_KEY and ZET_ATTRLOG_TLS_CA))\n");
  // What --remote cannot be given with, or be.
  for (std::vector<std::string> wrong : {std::vector<std::string>{"status", "--remote", remote, "--control", "unix:/x"},
                                         {"status", "--remote", remote, "--agent-name", "B"},
                                         {"status", "--remote", remote + "?x=1"},
                                         {"why", "--remote", remote, "own", kExamples + "/cycle.conf"}}) {
    wrong.insert(wrong.begin(), AGENTENV_COMMAND);
    EXPECT_EQ(ChildProcess(wrong).wait(), 2) << wrong[1] << " " << wrong[4];
  }
}

// The final table lists every entry once, by name, whatever their names
// share: a first letter and most digits, the first eight bytes, or all of a
// shorter name; and where the first letter decides against the rest.
TEST(AgentenvRun, TheTableListsEveryEntryOnceByName) {
  Demo demo;
  std::vector<std::string> names;
  for (int i = 0; i < 1500; ++i) {
    names.push_back(std::string("e").append(std::to_string(i * 7919 % 1500)));
    names.push_back(std::string("samePrefix").append(std::to_string(i % 2 ? i : i / 10)));
    names.push_back(std::string("x").append(std::to_string(i)));
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  std::ofstream file(demo.dir + "/many.conf");
  for (auto it = names.rbegin(); it != names.rend(); ++it)
    file << *it << " { typeName = \"Zet::Dir\"; target = \"/many/" << *it << "\"; }\n";
  file.close();

  ChildProcess many(run({"--until-settled", "--control", "unix:" + demo.dir + "/m.sock", demo.dir + "/many.conf"}));
  std::istringstream lines(many.restOfOut());  // read first: the table fills more than a pipe holds
  EXPECT_EQ(many.wait(), 0);
  std::vector<std::string> listed;
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("ENTRY", 0) != 0) listed.push_back(line.substr(0, line.find(' ')));
  EXPECT_EQ(listed, names);
}
