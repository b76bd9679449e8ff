// Bytes from a peer, at both ends of a mount. The input is
//  - decoded frame by frame, as either end decodes what it receives;
//  - applied, frame by frame, to a mirror, as the mounting end applies what
//    a server sends (ids, parents and types all untrusted);
//  - sent over a socket pair to a serving session of this process, which
//    greets, serves subscriptions to a small tree, and must survive
//    anything.
// None of it may crash, leak or hang; malformed frames end the connection.

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "AgentEnv/AgentEnv.h"
#include "Zet/Zet.h"
#include "Zet/attrlog/AttrLogSession.h"
#include "Zet/mount/MountMirror.h"

namespace {

using namespace Zet;

void decodeAndMirror(std::string_view bytes) {
  MountMirror mirror;
  NboAttrLog::Message message;
  std::string error;
  EntityUriPath target(String8("/fuzzMirror/root"));
  mirror.roundBegin();
  while (!bytes.empty()) {
    size_t used = 0;
    if (NboAttrLog::decodeFrame(bytes, message, used, error) != NboAttrLog::Decoded::frame) break;
    bytes.remove_prefix(used);
    try {
      switch (message.kind) {
        case NboAttrLog::Kind::entity: mirror.entityIs(message, target); break;
        case NboAttrLog::Kind::update: mirror.update(message); break;
        case NboAttrLog::Kind::remove: mirror.remove(message.id); break;
        case NboAttrLog::Kind::snapshotEnd: mirror.roundEnd(); mirror.roundBegin(); break;
        default: break;
      }
    } catch (std::exception const&) {
      // Refused frames are what the mount reports as its error.
    }
  }
  mirror.removeAll();
}

void serve(std::string_view bytes) {
  int pair[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) != 0) return;
  bool ended = false;
  auto session = std::make_unique<NboAttrLog::AttrLogSession>(SocketFd(pair[0]), nullptr, "fuzz peer", String8(),
                                                              NboAttrLog::AttrLogSession::Bounds{1 << 16, 1 << 12},
                                                              [&](NboAttrLog::AttrLogSession*) { ended = true; });
  ssize_t written = ::write(pair[1], bytes.data(), bytes.size());
  (void)written;
  ActivityLoop& loop = ActivityFacility::loop();
  loop.runUntilIdle();
  // The tree changes while served: the session writes what it must.
  auto gauge = ptr_cast<MountStatus>(globalDir()->entityRef("/fuzz/a/status"));
  gauge->roundIs(gauge->round() + 1);
  loop.runUntilIdle();
  (void)ended;
  session.reset();
  ::close(pair[1]);
  loop.runUntilIdle();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Ptr<Dir> a = globalDir()->dirIs("fuzz")->dirIs("a");
  a->entityIs("status", "Zet::MountStatus");
  a->dirIs("b")->entityIs("config", "Zet::MountConfig");
  // An owner of a collection, served member by member.
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("statuses");
  statuses->agentEnvStatusIs("e1")->currentSourceIs(EntityUri(String8("tcp://h:1/x")));
  a->entryIs("statuses", statuses);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string_view bytes(reinterpret_cast<char const*>(data), size);
  decodeAndMirror(bytes);
  serve(bytes);
  return 0;
}
