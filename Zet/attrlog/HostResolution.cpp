#include "Zet/attrlog/HostResolution.h"

#include <netdb.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <thread>

#include "Zet/Activity.h"
#include "Zet/Exception.h"
#include "Zet/Format.h"

namespace Zet {

// What the helper thread and the loop share. The eventfd lives as long as
// both may use it, so the thread never writes to a descriptor number that has
// been closed and given to something else.
struct HostResolution::Shared {
  ~Shared() { ::close(fd); }
  int fd = -1;
  std::mutex mutex;
  Address address;
  String8 error;
};

namespace {

bool resolve(String8 const& host, uint16_t port, int flags, HostResolution::Address& out, String8& error) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV | flags;
  addrinfo* found = nullptr;
  String8 service = format("%u", unsigned(port));
  if (int rc = ::getaddrinfo(host.charPtr(), service.charPtr(), &hints, &found); rc != 0) {
    error = ::gai_strerror(rc);
    return false;
  }
  std::memcpy(&out.storage, found->ai_addr, found->ai_addrlen);
  out.size = found->ai_addrlen;
  ::freeaddrinfo(found);
  return true;
}

}  // namespace

bool numericAddress(String8 const& host, uint16_t port, HostResolution::Address& out) {
  String8 ignored;
  return resolve(host, port, AI_NUMERICHOST, out, ignored);
}

HostResolution::HostResolution(String8 const& host, uint16_t port, Done done) : shared_(std::make_shared<Shared>()) {
  fd_ = shared_->fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (fd_ < 0) throw Exception(format("cannot resolve '%s': no eventfd: %s", host.charPtr(), std::strerror(errno)));
  ActivityFacility::loop().fdWatcherIs(fd_, ActivityLoop::kReadable,
                                       [weak = std::weak_ptr<Shared>(shared_), done = std::move(done)](unsigned) {
                                         auto shared = weak.lock();
                                         if (!shared) return;
                                         uint64_t count;
                                         if (::read(shared->fd, &count, sizeof count) != sizeof count) return;
                                         std::lock_guard lock(shared->mutex);
                                         done(shared->error.isEmpty() ? &shared->address : nullptr, shared->error);
                                       });
  std::thread([shared = shared_, host, port] {
    Address address;
    String8 error;
    bool ok = resolve(host, port, 0, address, error);
    {
      std::lock_guard lock(shared->mutex);
      if (ok)
        shared->address = address;
      else
        shared->error = error.isEmpty() ? String8("no address") : error;
    }
    uint64_t one = 1;
    ssize_t written = ::write(shared->fd, &one, sizeof one);
    (void)written;  // an eventfd takes it, or the count is already there
  }).detach();
}

HostResolution::~HostResolution() { ActivityFacility::loop().fdWatcherDel(fd_); }

}  // namespace Zet
