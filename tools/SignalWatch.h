#pragma once
// Signals read from a descriptor the activity loop watches, so that a signal
// is handled between two callbacks and never inside one: SIGINT and SIGTERM
// to stop, SIGHUP to reload, say.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>

#include "Zet/Activity.h"

namespace Zet::Tool {

class SignalWatch {
 public:
  // Blocks the signals for the process and calls `handle` with each one
  // that comes, from the loop.
  SignalWatch(std::initializer_list<int> signals, std::function<void(int)> handle) {
    sigset_t set;
    sigemptyset(&set);
    for (int s : signals) sigaddset(&set, s);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    ActivityFacility::loop().fdWatcherIs(fd_, ActivityLoop::kReadable, [this, handle = std::move(handle)](unsigned) {
      signalfd_siginfo info;
      while (::read(fd_, &info, sizeof info) == sizeof info) handle(int(info.ssi_signo));
    });
  }
  ~SignalWatch() {
    ActivityFacility::loop().fdWatcherDel(fd_);
    ::close(fd_);
  }
  SignalWatch(SignalWatch const&) = delete;
  SignalWatch& operator=(SignalWatch const&) = delete;

 private:
  int fd_;
};

// SIGINT and SIGTERM make `stop` true.
class StopSignals : public SignalWatch {
 public:
  explicit StopSignals(bool& stop) : SignalWatch({SIGINT, SIGTERM}, [&stop](int) { stop = true; }) {}
};

}  // namespace Zet::Tool
