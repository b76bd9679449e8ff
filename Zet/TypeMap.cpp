#include "Zet/TypeMap.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/System.h"
#include "Zet/Trace.h"

namespace Zet {
namespace {

namespace fs = std::filesystem;

constexpr char const* kTraceFacility = "TypeMap";

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view nextField(std::string_view& rest) {
  size_t start = 0;
  while (start < rest.size() && isBlank(rest[start])) ++start;
  size_t end = start;
  while (end < rest.size() && !isBlank(rest[end])) ++end;
  std::string_view field = rest.substr(start, end - start);
  rest.remove_prefix(end);
  return field;
}

struct MapLine {
  std::string_view type;
  std::string_view library;
};

// "TypeName library" with nothing after it; nullopt for blank lines,
// comments and malformed lines (the last traced).
std::optional<MapLine> parseMapLine(std::string_view line, fs::path const& file, size_t lineNumber) {
  std::string_view rest = line;
  MapLine parsed{nextField(rest), nextField(rest)};
  if (parsed.type.empty() || parsed.type.front() == '#') return std::nullopt;
  if (parsed.library.empty() || !nextField(rest).empty()) {
    ZET_TRACE_AT(kTraceFacility, 1) << file.string() << ":" << lineNumber << ": skipping malformed line";
    return std::nullopt;
  }
  return parsed;
}

// The whole file when it is no larger than the bound; nullopt otherwise.
std::optional<std::string> readBounded(fs::path const& file) {
  std::ifstream in(file, std::ios::binary);
  std::string text(TypeMap::kMaxMapFileBytes + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  if (text.size() > TypeMap::kMaxMapFileBytes) {
    ZET_TRACE_AT(kTraceFacility, 1) << file.string() << ": skipping map file larger than "
                                    << TypeMap::kMaxMapFileBytes << " bytes";
    return std::nullopt;
  }
  return text;
}

std::optional<std::string> libraryInMapFile(fs::path const& file, std::string_view type) {
  std::optional<std::string> text = readBounded(file);
  if (!text) return std::nullopt;
  std::string_view rest = *text;
  for (size_t lineNumber = 1; !rest.empty(); ++lineNumber) {
    size_t newline = rest.find('\n');
    std::string_view line = rest.substr(0, newline);
    rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
    if (line.size() > TypeMap::kMaxMapLineBytes) {
      ZET_TRACE_AT(kTraceFacility, 1) << file.string() << ":" << lineNumber << ": skipping overlong line";
      continue;
    }
    auto parsed = parseMapLine(line, file, lineNumber);
    if (parsed && parsed->type == type) return std::string(parsed->library);
  }
  return std::nullopt;
}

std::vector<fs::path> mapFilesIn(std::string_view directory) {
  std::vector<fs::path> files;
  std::error_code ec;
  for (fs::directory_iterator it(fs::path(directory), ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code typeEc;
    if (it->path().extension() == ".map" && it->is_regular_file(typeEc)) files.push_back(it->path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Calls visit(file) for each map file of ZET_TYPE_MAP_PATH, in order, until
// it returns true; returns whether one did.
template <class Visit>
bool anyMapFile(Visit&& visit) {
  String8 const mapPath = System::getenv("ZET_TYPE_MAP_PATH");
  std::string_view rest = mapPath;
  while (!rest.empty()) {
    size_t colon = rest.find(':');
    std::string_view directory = rest.substr(0, colon);
    rest.remove_prefix(colon == std::string_view::npos ? rest.size() : colon + 1);
    if (directory.empty()) continue;
    for (fs::path const& file : mapFilesIn(directory))
      if (visit(file)) return true;
  }
  return false;
}

// The library that the map files of ZET_TYPE_MAP_PATH name for `type`.
std::optional<std::string> libraryFromMapFiles(std::string_view type) {
  std::optional<std::string> library;
  anyMapFile([&](fs::path const& file) { return bool(library = libraryInMapFile(file, type)); });
  return library;
}

// Looks a std::string key up by any text, without making a string of it.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
};

}  // namespace

struct TypeMap::Impl {
  mutable std::mutex mutex;  // guards the two maps
  // By hash: every entry that instantiates looks its type up here.
  std::unordered_map<std::string, TypeDescriptor const*, TextHash, std::equal_to<>> types;
  std::map<std::string, String8, std::less<>> loadReports;
  std::string clashesOfLoad;  // the first name clash met by the library being loaded
  // Serialises resolutions that load libraries. Recursive because a library's
  // initialisers may resolve further types while it loads; separate from
  // `mutex` because they also register types.
  std::recursive_mutex loading;
};

bool TypeMap::mapFilesFound() {
  return anyMapFile([](fs::path const&) { return true; });
}

TypeMap& TypeMap::instance() {
  static TypeMap* map = new TypeMap;
  return *map;
}

TypeMap::Impl& TypeMap::impl() const {
  static Impl* impl = new Impl;
  return *impl;
}

bool TypeMap::typeIs(TypeDescriptor const& type) {
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto [at, inserted] = m.types.emplace(std::string(type.name), &type);
  if (inserted || at->second == &type) return true;
  std::string clash = "type " + std::string(type.name) + " is already registered";
  ZET_TRACE_AT(kTraceFacility, 0) << clash;
  if (m.clashesOfLoad.empty()) m.clashesOfLoad = clash;
  return false;
}

TypeDescriptor const* TypeMap::type(std::string_view name) const {
  // A type, once registered, keeps its name and descriptor for the life of
  // the process: the last one this thread found is found again without the
  // lock, as an agent instantiates one type by the million.
  thread_local TypeDescriptor const* lastFound = nullptr;
  if (lastFound && lastFound->name == name) return lastFound;
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto at = m.types.find(name);
  if (at == m.types.end()) return nullptr;
  return lastFound = at->second;
}

TypeDescriptor const& TypeMap::typeResolved(std::string_view name) {
  if (auto const* t = type(name)) return *t;
  Impl& m = impl();
  std::lock_guard loading(m.loading);
  if (auto const* t = type(name)) return *t;  // loaded by another thread meanwhile

  std::optional<std::string> library = libraryFromMapFiles(name);
  if (!library)
    throw NoMapFileEntryException(
        format("library containing type '%s' was not found in any map file", String8(name).charPtr()));
  loadLibrary(name, *library);
  if (auto const* t = type(name)) return *t;
  throw NoTypeNodeException(
      format("no type node for type '%s' after loading %s", String8(name).charPtr(), library->c_str()));
}

void TypeMap::loadLibrary(std::string_view name, std::string const& library) {
  ZET_TRACE_AT(kTraceFacility, 2) << "loading " << library << " for type " << name;
  Impl& m = impl();
  {
    std::lock_guard lock(m.mutex);
    m.clashesOfLoad.clear();
  }
  std::string failure;
  if (!dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL)) {
    char const* report = dlerror();
    failure = report ? report : "unknown dlopen failure";
  }
  {
    std::lock_guard lock(m.mutex);
    if (failure.empty() && !m.clashesOfLoad.empty()) failure = library + ": " + m.clashesOfLoad;
    m.clashesOfLoad.clear();
    if (failure.empty())
      m.loadReports.erase(std::string(name));
    else
      m.loadReports[std::string(name)] = String8(failure);
  }
  if (!failure.empty())
    throw LibraryLoadException(
        format("library for type '%s' failed to load: %s", String8(name).charPtr(), failure.c_str()));
}

String8 TypeMap::loadReport(std::string_view name) const {
  Impl& m = impl();
  std::lock_guard lock(m.mutex);
  auto at = m.loadReports.find(name);
  return at == m.loadReports.end() ? String8() : at->second;
}

}  // namespace Zet
