#pragma once
// Tells a service manager how the agent host stands, when it was started
// with NOTIFY_SOCKET set (a datagram socket's path, or '@' and an abstract
// name): "READY=1" once the files are read and every entry has acted,
// "RELOADING=1" and "READY=1" around a reload, "STOPPING=1" when it stops,
// each with a "STATUS=" line counting the entries by status. Without
// NOTIFY_SOCKET it does nothing. A message that cannot be sent is dropped:
// the agent does not depend on its manager listening.

#include <string>

#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet::Tool {

class ServiceNotifier {
 public:
  ServiceNotifier();

  void ready(AgentEnvStatusDir const& statuses) { send("READY=1\n" + statusLine(statuses)); }
  void reloading() { send("RELOADING=1"); }
  void stopping() { send("STOPPING=1"); }

  // "STATUS=3 initialized, 1 fail, ..." (the statuses that some entry has).
  static std::string statusLine(AgentEnvStatusDir const& statuses);

 private:
  void send(std::string const& message) const;

  std::string socket_;
};

}  // namespace Zet::Tool
