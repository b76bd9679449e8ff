#include "RunCommand.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

#include "AgentEnv/AgentEnv.h"
#include "AgentHost.h"
#include "AgentView.h"
#include "ConfigPlan.h"
#include "Help.h"
#include "ServiceNotifier.h"
#include "SignalWatch.h"
#include "StatusTable.h"
#include "StatusWatch.h"

namespace Zet::Tool {
namespace {

// Nothing is left that could change an entry without outside help: no
// reaction is waiting and no entry is in progress (a mount that is retrying
// after a failure reads `fail`, and only the outside can help it).
bool settled(AgentEnvStatusDir const& statuses) {
  if (ActivityFacility::loop().deferredCallCount() > 0) return false;
  for (auto const& member : statuses.agentEnvStatuses())
    if (member.value()->individualStatus() == AgentEnvStatus::inProgress) return false;
  return true;
}

bool allInitialized(AgentEnvStatusDir const& statuses) {
  for (auto const& member : statuses.agentEnvStatuses())
    if (member.value()->individualStatus() != AgentEnvStatus::initialized) return false;
  return true;
}

// The control socket, the host's record (/AgentHost) it serves, and the
// process id written beside it (for service managers), for as long as the
// host runs. A socket that cannot open (another agent of that name runs, a
// missing folder, a path too long) throws before anything is written.
class ControlPoint {
 public:
  explicit ControlPoint(ControlSocket const& control) : pidFile_(control.pidFile()) {
    NboAttrLog::connectionDir()->controlDomainSockIs(String8(control.path()));
    host_ = ptr_cast<AgentHost>(agentHostFactory("AgentHost"));
    host_->pidIs(uint64_t(::getpid()));
    globalDir()->entryIs("AgentHost", host_);
    std::ofstream(pidFile_) << ::getpid() << "\n";
  }
  ~ControlPoint() {
    std::remove(pidFile_.c_str());
    globalDir()->entryDel("AgentHost");
    NboAttrLog::connectionDir()->controlDomainSockIs("");
  }
  ControlPoint(ControlPoint const&) = delete;
  ControlPoint& operator=(ControlPoint const&) = delete;

  AgentHost& host() { return *host_; }

 private:
  std::string pidFile_;
  Ptr<AgentHost> host_;
};

// Diagnostics written to standard error go to `into` for the scope.
class DiagnosticsCapture {
 public:
  explicit DiagnosticsCapture(std::ostream& into) : previous_(std::cerr.rdbuf(into.rdbuf())) {}
  ~DiagnosticsCapture() { std::cerr.rdbuf(previous_); }
  DiagnosticsCapture(DiagnosticsCapture const&) = delete;
  DiagnosticsCapture& operator=(DiagnosticsCapture const&) = delete;

 private:
  std::streambuf* previous_;
};

}  // namespace

// The outcome goes to standard error and to the host's record, where
// 'agentenv reload' reads it: "applied: " and the counts, or "refused: "
// and the first diagnostic the files gave.
std::string RunCommand::reload(AgentEnvConfigDir& configs, AgentEnvStatusDir const& statuses) {
  Findings findings;
  std::ostringstream diagnostics;
  AgentView wanted = [&] {
    DiagnosticsCapture capture(diagnostics);
    return AgentView::ofFiles(files_, "run", findings);
  }();
  std::cerr << diagnostics.str();
  std::ostringstream outcome;
  if (findings.unreadableFile || findings.errors) {
    std::string first = diagnostics.str().substr(0, diagnostics.str().find('\n'));
    std::cerr << "agentenv run: reload: the files have errors; nothing changed" << std::endl;
    outcome << "refused: the files have errors; nothing changed" << (first.empty() ? "" : ": " + first);
    return outcome.str();
  }
  auto plan = planChanges(configs, &statuses, *wanted.configs);
  applyPlan(configs, *wanted.configs, plan);
  std::array<unsigned, 5> count{};
  for (EntryChange const& change : plan) ++count[change.kind];
  outcome << count[EntryChange::added] << " added, " << count[EntryChange::removed] << " removed, "
          << count[EntryChange::updated] << " updated, " << count[EntryChange::refused] << " refused, "
          << count[EntryChange::unchanged] << " unchanged";
  std::cerr << "agentenv run: reload: " << outcome.str() << std::endl;
  return "applied: " + outcome.str();
}

CLI::App* RunCommand::addTo(CLI::App& app) {
  CLI::App* run = app.add_subcommand("run", "run an agent host from configuration files");
  helpIs(*run,
         "usage: agentenv run [-D NAME=VALUE]... [--agent-name NAME] [--control unix:PATH]\n"
         "                    [--until-settled] [--watch] FILE...",
         "Builds the agent environment from the files (found on AGENTENV_CONFIGS as an\n"
         "agent would), mounts, instantiates and exports its entries, reports failures\n"
         "on standard error and runs until interrupted (SIGINT, SIGTERM). Then it prints\n"
         "the status of every entry. Meanwhile its control socket lets 'agentenv status'\n"
         "look at it, and SIGHUP (or 'agentenv reload') reads the files again and applies\n"
         "what 'agentenv plan' shows; files with errors change nothing.\n");
  files_.addTo(*run);
  control_.addTo(*run, false);
  run->add_option("--agent-name", agentName_, "the agent's name in failure reports (sets AGENT_NAME)")
      ->type_name("NAME");
  run->add_flag("--until-settled", untilSettled_, "stop once no entry can change without outside help");
  run->add_flag("--watch", watch_, "print a line for each change of an entry's status");
  run->footer(
      "Exit status: 0 stopped by SIGINT or SIGTERM, or (--until-settled) every entry\n"
      "initialized; 1 settled with an entry that is not; 2 bad arguments, a file that\n"
      "could not be found or read, or files with errors (nothing is started).");
  return run;
}

int RunCommand::run() {
  if (files_.files.empty()) throw UsageError("no configuration file given");
  if (!agentName_.empty()) ::setenv("AGENT_NAME", agentName_.c_str(), 1);
  control_.agentName = agentName_;
  bool stop = false;
  StopSignals signals(stop);
  // SIGHUP is handled from before the agent can be found: one that comes
  // while the files are first read is applied once they are.
  bool started = false, reloadWanted = false;
  std::function<void()> reloadNow;
  SignalWatch reloads({SIGHUP}, [&](int) {
    if (started)
      reloadNow();
    else
      reloadWanted = true;
  });
  ControlPoint controlPoint(control_);  // there before the first entry acts
  Ptr<AgentEnvConfigDir> configs = AgentEnv::agentEnvConfigDir();
  Ptr<AgentEnvStatusDir> statuses = AgentEnv::agentEnvStatusDir();
  std::unique_ptr<StatusWatch> watch;
  if (watch_) watch = std::make_unique<StatusWatch>(statuses, configs, std::cout);

  // The files are read into the environment while its state machines are
  // switched off, and they are switched on only when the files are clean:
  // an agent never starts on half a configuration. (A reload reads apart
  // and applies what changed, as the machines are running then.)
  Ptr<AgentEnvDirSm> machines =
      entityCast<AgentEnvDirSmWrapper>(AgentEnv::dir()->entityRef(Name("AgentEnvDirSm")))->adsm();
  machines->hasNotificationActiveIs(false);
  Findings findings = readConfigFiles(*configFileParserFactory(configs), files_, "run");
  if (findings.unreadableFile) return kExitUsage;
  if (findings.errors) {
    std::cerr << "agentenv run: the files have errors; nothing was started" << std::endl;
    return kExitUsage;
  }
  machines->hasNotificationActiveIs(true);
  machines->handleConfig();
  controlPoint.host().readingIs(String8(FilesReading::ofThisProcess(files_).json()));
  // The monitor starts once the entries have reacted to one another: an
  // entry naming one that a later file brings is not reported in between.
  ActivityFacility::loop().runUntilIdle();
  auto activities = ActivityFacility::activityManagerConfig();
  // The monitor watches the environment for as long as the process runs, as
  // the environment itself stays: it is not taken down at exit, which would
  // unbind a monitor per entry, one by one, for nothing.
  [[maybe_unused]] static Ptr<AgentEnvMonitorDirSm> const* const monitor = new Ptr<AgentEnvMonitorDirSm>(
      agentEnvMonitorDirSmFactory(activities->activityConfigIs("AgentEnvMonitor", 10), statuses, configs));

  ServiceNotifier manager;
  reloadNow = [&] {
    manager.reloading();
    controlPoint.host().reloadDone(String8(reload(*configs, *statuses)));
    manager.ready(*statuses);
  };
  started = true;
  if (reloadWanted) reloadNow();
  // Ready, for a service manager, at the point --until-settled stops.
  bool ready = false;
  ActivityFacility::loop().runUntil(
      [&] {
        bool now = (!ready || untilSettled_) && settled(*statuses);
        if (now && !ready) manager.ready(*statuses);
        ready = ready || now;
        return stop || (untilSettled_ && now);
      },
      ActivityLoop::kMaxDelaySeconds);
  manager.stopping();
  printStatusTable(StatusRows(*statuses, *configs), std::cout);
  std::cout.flush();
  // A stop that was asked for is a clean stop, whatever the entries' state
  // (the table and the monitor have told it): a service manager counts a
  // non-zero stop as a failure of the service.
  if (stop) return kExitOk;
  return allInitialized(*statuses) ? kExitOk : kExitProblems;
}

}  // namespace Zet::Tool
