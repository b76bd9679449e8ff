// A serving process for the mount tests and benchmarks: it exports its
// entity tree through the attribute-log service and changes the tree as
// told, one command per line on standard input, answering each with one
// line on standard output ("ok", or what was asked for).
//
//   listen-port N | listen-sock PATH     where the service listens
//   control-sock PATH                    where the service listens for tools
//   gauge PATH VALUE                     a Test::Gauge at PATH (made with its
//                                        directories when absent) set to VALUE
//   secret PATH                          an entity of a type only this process knows
//   fill DIR N                           gauges g0 .. gN-1 in DIR
//   spin PATH N                          the gauge's value set N times in a row
//   pump PATH N K                        the gauge's value raised N times, K per
//                                        loop turn (answers at once)
//   reflect SOURCE PATH                  mounts the gauge at SOURCE and copies
//                                        each value it takes to the gauge at PATH
//   mount NAME SOURCE [BACKUP]           SOURCE mounted at /mounted/NAME
//   mount-state NAME                     "STATE CODE: REASON" of that mount
//   churn DIR N                          N gauges added to DIR and removed again
//   chain DIR N                          directories DIR/d/d/... N deep, a gauge at the bottom
//   del PATH                             the entry at PATH removed
//   figures                              "sessions S pending P"
//   max-files N                          at most N descriptors open (RLIMIT_NOFILE)
//   usage                                "cpu MS rss KB": CPU time used so far and
//                                        resident memory now
//   quit

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <memory>
#include <string>
#include <vector>

#include "Zet/Zet.h"
#include "tests/peer/Gauge.h"

namespace {

using namespace Zet;

class Secret : public Entity {
 public:
  Secret(Name const& name, Entity* parent) : Entity(name, parent) {}
  ZET_ENTITY_TYPE();
};
Ptr<Entity> secretFactory(Name const& name, Entity* parent) { return new Secret(name, parent); }
TypeDescriptor const secretType{"Test::Secret", secretFactory, {}, {}};
ZET_DEFINE_TYPE(Secret, secretType);

// Raises a gauge a number of times, a few per loop turn, so the service
// flushes between turns as it would under a steady stream of writes.
void pump(Ptr<Test::Gauge> gauge, uint64_t left, uint64_t perTurn) {
  for (uint64_t i = 0; i < perTurn && left > 0; ++i, --left) gauge->valueIs(gauge->value() + 1);
  if (left > 0) ActivityFacility::loop().deferredCallIs([=] { pump(gauge, left, perTurn); });
}

// Copies the value of a mounted gauge to a local one, as soon as it comes.
class Reflector : public MountStatus::NotifieeConst, public Test::Gauge::NotifieeConst {
 public:
  Reflector(Ptr<MountStatus> const& status, Ptr<Test::Gauge> copy) : copy_(std::move(copy)) {
    MountStatus::NotifieeConst::notifierIs(status);
  }
  void onState() override {
    auto mirror = ptr_cast<Test::Gauge>(MountStatus::NotifieeConst::notifier()->mountedEntity());
    if (mirror) Test::Gauge::NotifieeConst::notifierIs(mirror);
  }
  void onValue() override { copy_->valueIs(Test::Gauge::NotifieeConst::notifier()->value()); }

 private:
  Ptr<Test::Gauge> copy_;
};
std::vector<std::unique_ptr<Reflector>> reflectors;

// The directory holding PATH's last name (made when absent) and that name.
std::pair<Ptr<Dir>, Name> place(std::string const& path) {
  EntityUriPath p{String8(path)};
  Ptr<Dir> dir = globalDir();
  for (std::string_view parent : p.parentNameTexts()) dir = dir->dirIs(Name(parent));
  return {dir, Name(p.lastNameText())};
}

Ptr<Test::Gauge> gaugeAt(std::string const& path) {
  auto [dir, name] = place(path);
  if (auto existing = ptr_cast<Test::Gauge>(dir->entityRef(name))) return existing;
  return ptr_cast<Test::Gauge>(dir->entityIs(name, "Test::Gauge"));
}

std::string usage() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  long cpuMs = (used.ru_utime.tv_sec + used.ru_stime.tv_sec) * 1000 + (used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1000;
  long rssKb = 0;
  if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
    long size = 0, resident = 0;
    if (std::fscanf(statm, "%ld %ld", &size, &resident) == 2) rssKb = resident * (::sysconf(_SC_PAGESIZE) / 1024);
    std::fclose(statm);
  }
  return "cpu " + std::to_string(cpuMs) + " rss " + std::to_string(rssKb);
}

std::string run(std::string const& line) {
  std::istringstream in(line);
  std::string command, path;
  uint64_t n = 0;
  in >> command;
  if (command == "listen-port") {
    in >> n;
    NboAttrLog::connectionDir()->listenPortIs(static_cast<unsigned short>(n));
  } else if (command == "listen-sock") {
    in >> path;
    NboAttrLog::connectionDir()->listenDomainSockIs(String8(path));
  } else if (command == "control-sock") {
    in >> path;
    NboAttrLog::connectionDir()->controlDomainSockIs(String8(path));
  } else if (command == "gauge") {
    in >> path >> n;
    gaugeAt(path)->valueIs(n);
  } else if (command == "secret") {
    in >> path;
    auto [dir, name] = place(path);
    dir->entityIs(name, "Test::Secret");
  } else if (command == "fill") {
    in >> path >> n;
    for (uint64_t i = 0; i < n; ++i) gaugeAt(path + "/g" + std::to_string(i))->valueIs(i);
  } else if (command == "spin") {
    in >> path >> n;
    Ptr<Test::Gauge> gauge = gaugeAt(path);
    for (uint64_t i = 1; i <= n; ++i) gauge->valueIs(gauge->value() + 1);
  } else if (command == "pump") {
    uint64_t perTurn = 1;
    in >> path >> n >> perTurn;
    pump(gaugeAt(path), n, perTurn);
  } else if (command == "reflect") {
    std::string uri;
    in >> uri >> path;
    Name name{String8("reflect" + std::to_string(reflectors.size()))};
    auto config = MountFacility::mountConfigDir()->mountConfigIs(name, EntityUri(String8(uri)), EntityUri());
    config->targetNameIs(EntityUriPath(String8("/reflected/" + name.str())));
    reflectors.push_back(std::make_unique<Reflector>(MountFacility::mountStatusDir()->mountStatus(name), gaugeAt(path)));
  } else if (command == "mount") {
    std::string source, backup;
    in >> path >> source >> backup;
    auto config = MountFacility::mountConfigDir()->mountConfigIs(Name(String8(path)), EntityUri(String8(source)),
                                                                  EntityUri(String8(backup)));
    config->targetNameIs(EntityUriPath(String8("/mounted/" + path)));
  } else if (command == "mount-state") {
    in >> path;
    Ptr<MountStatus> status = MountFacility::mountStatusDir()->mountStatus(Name(String8(path)));
    if (!status) return "no mount " + path;
    return std::string(EnumTexts<MountStatus::State>::texts[status->state()]) + " " +
           std::string(EnumTexts<MountStatus::Code>::texts[status->code()]) + ": " + status->reason().str();
  } else if (command == "churn") {
    in >> path >> n;
    Ptr<Dir> dir = place(path + "/x").first;
    for (uint64_t i = 0; i < n; ++i) {
      Name name{String8(std::string("c").append(std::to_string(i)))};
      dir->entityIs(name, "Test::Gauge");
      dir->entryDel(name);
    }
  } else if (command == "chain") {
    in >> path >> n;
    Ptr<Dir> dir = place(path + "/x").first;
    for (uint64_t i = 0; i < n; ++i) dir = dir->dirIs("d");
    dir->entityIs("bottom", "Test::Gauge");
  } else if (command == "del") {
    in >> path;
    auto [dir, name] = place(path);
    dir->entryDel(name);
  } else if (command == "figures") {
    auto figures = NboAttrLog::serviceFigures();
    return "sessions " + std::to_string(figures.sessions) + " pending " + std::to_string(figures.pendingBytes);
  } else if (command == "max-files") {
    in >> n;
    rlimit limit{rlim_t(n), rlim_t(n)};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "error: setrlimit";
  } else if (command == "usage") {
    return usage();
  } else if (command == "quit") {
    ActivityFacility::loop().stop();
  } else {
    return "unknown command: " + line;
  }
  return "ok";
}

}  // namespace

int main() {
  std::string pending;
  ActivityLoop& loop = ActivityFacility::loop();
  loop.fdWatcherIs(STDIN_FILENO, ActivityLoop::kReadable, [&](unsigned) {
    char buffer[4096];
    ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n <= 0) return loop.stop();
    pending.append(buffer, size_t(n));
    for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
      std::string answer;
      try {
        answer = run(pending.substr(0, end));
      } catch (std::exception const& e) {
        answer = std::string("error: ") + e.what();
      }
      std::printf("%s\n", answer.c_str());
      std::fflush(stdout);
    }
  });
  loop.run();
  loop.fdWatcherDel(STDIN_FILENO);
  return 0;
}
