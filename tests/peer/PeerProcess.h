#pragma once
// A serving peer for the mount tests: the attrlog_peer program run as a
// child process, told what to do one line at a time (see attrlog_peer.cpp).

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Test {

class PeerProcess {
 public:
  // Starts the peer with these NAME=VALUE settings added to its environment.
  explicit PeerProcess(std::vector<std::string> environment = {}) {
    int toPeer[2], fromPeer[2];
    if (::pipe2(toPeer, O_CLOEXEC) != 0 || ::pipe2(fromPeer, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(toPeer[0], STDIN_FILENO);
      ::dup2(fromPeer[1], STDOUT_FILENO);
      for (auto& setting : environment) ::putenv(setting.data());
      ::execl(ATTRLOG_PEER, ATTRLOG_PEER, static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(toPeer[0]);
    ::close(fromPeer[1]);
    in_ = toPeer[1];
    out_ = fromPeer[0];
  }
  ~PeerProcess() {
    kill();
    ::close(in_);
    ::close(out_);
  }
  PeerProcess(PeerProcess const&) = delete;
  PeerProcess& operator=(PeerProcess const&) = delete;

  // Sends one command and returns the peer's answer ("" when none came in
  // timeoutMs or the peer is gone).
  std::string operator()(std::string const& command, int timeoutMs = 20000) {
    std::string line = command + "\n";
    if (::write(in_, line.data(), line.size()) != ssize_t(line.size())) return "";
    while (true) {
      if (size_t end = buffered_.find('\n'); end != std::string::npos) {
        std::string answer = buffered_.substr(0, end);
        buffered_.erase(0, end + 1);
        return answer;
      }
      pollfd p{out_, POLLIN, 0};
      if (::poll(&p, 1, timeoutMs) <= 0) return "";
      char chunk[4096];
      ssize_t n = ::read(out_, chunk, sizeof chunk);
      if (n <= 0) return "";
      buffered_.append(chunk, size_t(n));
    }
  }

  // Ends the peer at once, as a crash would.
  void kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  std::string buffered_;
};

}  // namespace Test
