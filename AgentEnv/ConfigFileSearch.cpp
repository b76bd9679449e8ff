#include "AgentEnv/ConfigFileSearch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "Zet/System.h"

namespace Zet {
namespace {

constexpr char kDefaultSearchPath[] = "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc";

// Opens without blocking (a FIFO would wait for a writer), then keeps the
// file only if it is a regular one.
ConfigFileHandle openRegularFile(std::string const& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || ::fcntl(fd, F_SETFL, 0) != 0) {
    ::close(fd);
    return nullptr;
  }
  FILE* file = ::fdopen(fd, "r");
  if (!file) ::close(fd);
  return ConfigFileHandle(file);
}

}  // namespace

String8 configSearchPath() {
  String8 path = System::getenv("AGENTENV_CONFIGS");
  return path.isEmpty() ? String8(kDefaultSearchPath) : path;
}

// Calls visit(path) for the name as given, then for it in each directory of
// the search path, until visit returns true.
template <class Visit>
static void forEachCandidate(String8 const& name, Visit&& visit) {
  std::string given(name.view());
  if (given.find('\0') != std::string::npos) return;  // no file has such a name
  if (visit(given)) return;
  String8 const searchPath = configSearchPath();
  std::string_view dirs = searchPath.view();
  for (size_t start = 0; start <= dirs.size();) {
    size_t end = dirs.find(':', start);
    if (end == std::string_view::npos) end = dirs.size();
    std::string candidate(dirs.substr(start, end - start));
    candidate += '/';
    candidate += given;
    if (visit(candidate)) return;
    start = end + 1;
  }
}

ConfigFileHandle openConfigFile(String8 const& name) {
  ConfigFileHandle found;
  forEachCandidate(name, [&](std::string const& path) { return bool(found = openRegularFile(path)); });
  return found;
}

String8 missingConfigFileReason(String8 const& name) {
  std::string reason = "error: file '" + std::string(name.view()) + "' not found";
  forEachCandidate(name, [&](std::string const& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return false;
    reason = "error: '" + path + (S_ISDIR(st.st_mode) ? "' is a directory" : "' is not a regular file") +
             ", not a configuration file";
    return true;
  });
  return String8(reason);
}

}  // namespace Zet
