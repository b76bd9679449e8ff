#pragma once
// Where a benchmark writes the files it reads: a directory of its own, in
// memory (/dev/shm) where the system has one writable, else in the
// temporary directory. In memory, no write-back to a disk runs beside the
// timed work and every read comes from memory, as the figures assume. The
// directory and what it holds are removed when the process exits.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace BenchDirectory {

// A new directory named `prefix` followed by six random characters.
inline std::string made(std::string const& prefix) {
  static std::vector<std::string> madeSoFar;
  static bool const removedAtExit = (std::atexit([] {
                                       std::error_code ignored;
                                       for (std::string const& dir : madeSoFar) std::filesystem::remove_all(dir, ignored);
                                     }),
                                     true);
  (void)removedAtExit;
  std::filesystem::path base = "/dev/shm";
  if (::access(base.c_str(), W_OK) != 0) base = std::filesystem::temp_directory_path();
  std::string pattern = (base / (prefix + "-XXXXXX")).string();
  if (!::mkdtemp(pattern.data())) std::abort();
  madeSoFar.push_back(pattern);
  return pattern;
}

}  // namespace BenchDirectory
