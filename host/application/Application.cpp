#include "host/application/Application.h"

#include "host/application/Excerpt.h"
#include "host/application/JobTypeInfo.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/StringTokenizer.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

namespace {

constexpr const char* k_PathMaps = "PathMaps";

Application* TheApplication() {
  static auto* instance = new Application();
  return instance;
}

IniFile Read(const Path& path) {
  IniFile file;
  file.SetFilename(path);
  struct stat status {};
  const bool missing =
      path.empty() || (stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR));
  if (!missing) {
    file.Load(true, true);
  }
  return file;
}

std::vector<std::pair<String, String>> ReadPathMaps(const IniFile& settings) {
  std::vector<std::pair<String, String>> pairs;
  for (const IniFile::EntryView& entry : settings.Entries(k_PathMaps)) {
    const String value(entry.Value);
    std::vector<String> sides = StringTokenizer::Split(value, ';');
    if (sides.size() != 2 || sides[0].Trim().empty() || sides[1].Trim().empty()) {
      LogWarning(PlacedMessage(settings.Filename(), entry.ValuePlace, "warning",
                               "\"" + Shown(value) + "\" is no path map; write source;local"));
      continue;
    }
    pairs.emplace_back(sides[0], sides[1]);
  }
  return pairs;
}

// The user's home directory: as the environment tells, else as the system does.
String Home() {
  const char* home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe): nobody sets it
  if (home != nullptr && *home == '/') {
    return home;
  }
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    RaiseException("Application::SceneCache", k_ErrorSystem,
                   "there is no place for translated scenes: neither XDG_CACHE_HOME nor HOME is set");
  }
  return found->pw_dir;
}

} // namespace

Application* const Application::the_Application = TheApplication();

void Application::LoadSettings(const Path& settings, const Path& options) {
  const IniFile newSettings = Read(settings);
  const IniFile newOptions = Read(options);
  Path::SetTranslations(ReadPathMaps(newSettings));
  m_Settings = newSettings;
  m_Options = newOptions;
}

Path Application::SceneCache() {
  // A relative value is to be ignored, by the rules for these directories.
  const char* configured = std::getenv("XDG_CACHE_HOME"); // NOLINT(concurrency-mt-unsafe): nobody sets it
  Path cache = configured != nullptr && *configured == '/' ? Path(configured) : Path(Home()) /= ".cache";
  cache /= "trovik";
  cache /= "scenes";
  return cache;
}
