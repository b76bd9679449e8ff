#pragma once
// HostResolution: a host name turned into an address without stopping the
// activity loop. The system resolver may wait on the network for seconds, so
// it runs on a helper thread; its answer comes back through a descriptor the
// loop watches, and `done` runs on the loop. Addresses given as such
// ("127.0.0.1", "::1") never need it.

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "Zet/String8.h"

namespace Zet {

class HostResolution {
 public:
  struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;
  };
  // Called on the loop with the address, or with the resolver's reason why
  // there is none.
  using Done = std::function<void(Address const* address, String8 const& error)>;

  // Starts resolving host (for the port); `done` runs later, unless the
  // resolution is destroyed first.
  HostResolution(String8 const& host, uint16_t port, Done done);
  ~HostResolution();
  HostResolution(HostResolution const&) = delete;
  HostResolution& operator=(HostResolution const&) = delete;

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
  int fd_;  // the shared eventfd, watched on the loop
};

// The address of host when it is written as one (no resolver needed).
bool numericAddress(String8 const& host, uint16_t port, HostResolution::Address& out);

}  // namespace Zet
