#pragma once
// SIGINT and SIGTERM read from a descriptor the activity loop watches, so
// that a signal ends a run between two callbacks and never inside one.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Zet/Activity.h"

namespace Zet::Tool {

class StopSignals {
 public:
  // `stop` becomes true when a signal comes.
  explicit StopSignals(bool& stop) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    ActivityFacility::loop().fdWatcherIs(fd_, ActivityLoop::kReadable, [this, &stop](unsigned) {
      signalfd_siginfo info;
      while (::read(fd_, &info, sizeof info) == sizeof info) stop = true;
    });
  }
  ~StopSignals() {
    ActivityFacility::loop().fdWatcherDel(fd_);
    ::close(fd_);
  }
  StopSignals(StopSignals const&) = delete;
  StopSignals& operator=(StopSignals const&) = delete;

 private:
  int fd_;
};

}  // namespace Zet::Tool
