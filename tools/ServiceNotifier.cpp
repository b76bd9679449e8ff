#include "ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "Zet/System.h"
#include "Zet/attrlog/Socket.h"

namespace Zet::Tool {

ServiceNotifier::ServiceNotifier() : socket_(System::getenv("NOTIFY_SOCKET").str()) {}

std::string ServiceNotifier::statusLine(AgentEnvStatusDir const& statuses) {
  std::array<size_t, 6> count{};
  for (auto const& member : statuses.agentEnvStatuses()) {
    unsigned s = member.value()->individualStatus();
    if (s < count.size()) ++count[s];
  }
  std::string line = "STATUS=";
  for (unsigned s = 0; s < count.size(); ++s) {
    if (count[s] == 0) continue;
    if (line.size() > 7) line += ", ";
    line += std::to_string(count[s]) + " " + stringValue(AgentEnvStatus::Status(s)).str();
  }
  if (line.size() == 7) line += "no entries";
  return line;
}

void ServiceNotifier::send(std::string const& message) const {
  if (socket_.empty() || socket_.size() >= sizeof(sockaddr_un::sun_path)) return;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path, socket_.data(), socket_.size());
  if (addr.sun_path[0] == '@') addr.sun_path[0] = '\0';
  SocketFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd.isOpen()) return;
  socklen_t size = socklen_t(offsetof(sockaddr_un, sun_path) + socket_.size());
  ::sendto(fd.get(), message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&addr), size);
}

}  // namespace Zet::Tool
