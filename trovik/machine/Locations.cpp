#include "trovik/machine/Locations.h"

#include "host/foundation/FileFinder.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

void appendIfNew(std::vector<Path>& paths, const Path& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path.Text().c_str(), error);
  Path clean = error ? path : Path(real.string());
  if (std::find(paths.begin(), paths.end(), clean) == paths.end()) {
    paths.push_back(std::move(clean));
  }
}

} // namespace

bool exists(const Path& path) {
  std::error_code error;
  return std::filesystem::exists(path.Text().c_str(), error);
}

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') {
    return std::nullopt;
  }
  return value;
}

Locations::Locations(EnvironmentLookup environment, Path executable)
    : environment_(std::move(environment)), executable_(std::move(executable)) {}

Path Locations::home(const char* variable, const char* belowHome) const {
  // A relative path in an XDG variable is to be ignored, by their definition.
  if (const auto value = environment_(variable); value && value->front() == '/') {
    return {*value};
  }
  const auto home = environment_("HOME");
  if (!home || home->front() != '/') {
    throw UsageError{std::string("there is no place for what belongs to you: HOME is ") +
                         (home ? "no absolute path, " + inQuotes(*home) : "not set"),
                     std::string("set it, or ") + variable};
  }
  return Path(*home) /= String(belowHome);
}

Path Locations::settings() const {
  return home("XDG_CONFIG_HOME", ".config") /= "trovik/settings.ini";
}
Path Locations::options() const {
  return home("XDG_CONFIG_HOME", ".config") /= "trovik/options.ini";
}
Path Locations::state() const {
  if (const auto named = environment_("TROVIK_STATE")) {
    return absolutePath(*named);
  }
  return home("XDG_STATE_HOME", ".local/state") /= "trovik";
}

Path Locations::ownModules() const {
  return home("XDG_DATA_HOME", ".local/share") /= "trovik/modules";
}

Path Locations::clusterFolder() const {
  return home("XDG_DATA_HOME", ".local/share") /= "trovik/cluster";
}

Path Locations::imageHelper() const {
  if (const auto named = environment_("TROVIK_IMAGE_HELPER")) {
    return absolutePath(*named);
  }
  Path directory(executable_.Branch(true, true));
  return directory /= "trovik-image";
}

Path Locations::pageFiles() const {
  if (const auto named = environment_("TROVIK_PAGE")) {
    return absolutePath(*named);
  }
  Path root = executable_.Branch(true, true);
  root = root.Branch(true, true);
  return root /= "share/trovik/page";
}

Path Locations::pictures() const {
  return home("XDG_CACHE_HOME", ".cache") /= "trovik/pictures";
}

std::vector<Path> Locations::installedModules() const {
  std::vector<Path> candidates;
  Path root = executable_.Branch(true, true);
  root = root.Branch(true, true);
  // Distributions keep libraries in lib/<architecture>.
  Path libraries = root;
  libraries /= "lib";
  std::vector<Path> architectures;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(libraries.Text().c_str(), error)) {
    architectures.emplace_back(entry.path().string() + "/trovik/modules");
  }
  std::sort(architectures.begin(), architectures.end());
  candidates.insert(candidates.end(), architectures.begin(), architectures.end());
  candidates.emplace_back(libraries /= "trovik/modules");
  candidates.emplace_back(root /= "modules");
  std::erase_if(candidates, [](const Path& candidate) { return !IsDirectory(candidate); });
  return candidates;
}

std::vector<Path> Locations::defaultModulePath() const {
  std::vector<Path> path;
  if (IsDirectory(ownModules())) {
    path.push_back(ownModules());
  }
  for (const Path& directory : installedModules()) {
    appendIfNew(path, directory);
  }
  return path;
}

std::vector<Path> Locations::modulePath(const std::string& text, std::vector<Path>& missing) const {
  std::vector<Path> path;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(':', begin), text.size());
    if (end == begin) {
      for (const Path& directory : defaultModulePath()) {
        appendIfNew(path, directory);
      }
    } else {
      const Path directory = absolutePath(text.substr(begin, end - begin));
      if (IsDirectory(directory)) {
        appendIfNew(path, directory);
      } else {
        missing.push_back(directory);
      }
    }
    begin = end + 1;
  }
  return path;
}

Path ownExecutable() {
  std::error_code error;
  return {std::filesystem::read_symlink("/proc/self/exe", error).string()};
}

Path absolutePath(const std::string& path) {
  std::string rest = path;
  while (rest.starts_with("./")) {
    rest.erase(0, std::min(rest.find_first_not_of('/', 1), rest.size()));
  }
  if (!rest.empty() && rest.front() == '/') {
    return {rest};
  }
  std::error_code error;
  Path absolute(std::filesystem::current_path(error).string());
  if (!rest.empty() && rest != ".") {
    absolute /= String(rest);
  }
  return absolute;
}

} // namespace trovik
