#pragma once
// A program run as a child process for tests: its standard input, output
// and error are pipes; what it writes is read line by line with a time
// limit, and it can be signalled, killed and waited for.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Test {

class ChildProcess {
 public:
  // Runs argv[0] with argv, with the NAME=VALUE settings added to the
  // environment.
  explicit ChildProcess(std::vector<std::string> argv, std::vector<std::string> environment = {}) {
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(in[0], STDIN_FILENO);
      ::dup2(out[1], STDOUT_FILENO);
      ::dup2(err[1], STDERR_FILENO);
      for (auto& setting : environment) ::putenv(setting.data());
      std::vector<char*> args;
      for (auto& a : argv) args.push_back(a.data());
      args.push_back(nullptr);
      ::execv(args[0], args.data());
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    in_ = in[1];
    out_.fd = out[0];
    err_.fd = err[0];
  }
  ~ChildProcess() {
    kill();
    for (int fd : {in_, out_.fd, err_.fd})
      if (fd >= 0) ::close(fd);
  }
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;

  bool write(std::string const& text) { return ::write(in_, text.data(), text.size()) == ssize_t(text.size()); }
  // Ends the child's standard input.
  void closeInput() {
    ::close(in_);
    in_ = -1;
  }

  // The next line of standard output (or error) for which `wanted` holds,
  // skipping the others; "" when none came within timeoutMs.
  std::string outLine(std::function<bool(std::string const&)> const& wanted, int timeoutMs = 20000) {
    return nextLine(out_, wanted, timeoutMs);
  }
  std::string errLine(std::function<bool(std::string const&)> const& wanted, int timeoutMs = 20000) {
    return nextLine(err_, wanted, timeoutMs);
  }
  // Everything the child wrote on a stream, once it has ended.
  std::string restOfOut() { return drain(out_); }
  std::string restOfErr() { return drain(err_); }

  void signal(int number) {
    if (pid_ > 0) ::kill(pid_, number);
  }
  pid_t pid() const { return pid_; }
  // Whether the child is still running (not ended, not waited for).
  bool running() const { return pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) == 0; }
  // Waits for the child to end; its exit status, or 128 + the signal.
  int wait() {
    if (pid_ <= 0) return status_;
    int raw = 0;
    ::waitpid(pid_, &raw, 0);
    pid_ = -1;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return status_;
  }
  // Ends the child at once, as a crash would.
  void kill() {
    signal(SIGKILL);
    wait();
  }

 private:
  struct Stream {
    int fd = -1;
    std::string buffered;
  };

  static bool fill(Stream& s, int timeoutMs) {
    pollfd p{s.fd, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    char chunk[4096];
    ssize_t n = ::read(s.fd, chunk, sizeof chunk);
    if (n <= 0) return false;
    s.buffered.append(chunk, size_t(n));
    return true;
  }
  static std::string nextLine(Stream& s, std::function<bool(std::string const&)> const& wanted, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
      for (size_t end; (end = s.buffered.find('\n')) != std::string::npos;) {
        std::string line = s.buffered.substr(0, end);
        s.buffered.erase(0, end + 1);
        if (wanted(line)) return line;
      }
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0 || !fill(s, int(left.count()))) return "";
    }
  }
  static std::string drain(Stream& s) {
    while (fill(s, 5000)) {
    }
    return std::exchange(s.buffered, std::string());
  }

  pid_t pid_ = -1;
  int status_ = -1;
  int in_ = -1;
  Stream out_;
  Stream err_;
};

}  // namespace Test
