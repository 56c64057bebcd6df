#include "trovik/cluster/ClusterSettings.h"

#include "host/application/Application.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <charconv>

namespace trovik {
namespace {

constexpr int leastPatience = 1;
constexpr int mostPatience = 86400;

std::chrono::seconds patienceFrom(const std::string& text) {
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < leastPatience ||
      seconds > mostPatience) {
    throw UsageError{"settings, section [Slurm]: Patience " + inQuotes(text) + " is no number of seconds",
                     "write a whole number from 1 to 86400; 90 is usual"};
  }
  return std::chrono::seconds(seconds);
}

void take(ClusterSettings& settings, const String& key, const String& value) {
  if (String::EqualNoCase(key, "Default")) {
    settings.isDefault = value.Bool();
  } else if (String::EqualNoCase(key, "Folder")) {
    settings.folder = Path(value);
  } else if (String::EqualNoCase(key, "Program")) {
    settings.program = Path(value);
  } else if (String::EqualNoCase(key, "Patience")) {
    settings.patience = patienceFrom(value);
  } else {
    throw UsageError{"settings, section [Slurm]: there is no key " + inQuotes(key),
                     "its keys are Default, Folder, Program and Patience"};
  }
}

} // namespace

ClusterSettings clusterSettings(const Locations& locations, const std::optional<std::string>& shared) {
  ClusterSettings result;
  result.folder = locations.clusterFolder();
  result.program = ownExecutable();
  for (const IniFile::EntryView& entry : Application::the_Application->Settings().Entries("Slurm")) {
    take(result, String(entry.Key), String(entry.Value));
  }
  if (const auto named = environmentVariable("TROVIK_SHARED")) {
    result.folder = absolutePath(*named);
  }
  if (shared) {
    if (shared->empty()) {
      throw UsageError{"--shared: the name of the folder is empty", "leave it out for the usual one"};
    }
    result.folder = absolutePath(*shared);
  }
  for (const auto& [key, path] : {std::pair("Folder", result.folder), std::pair("Program", result.program)}) {
    if (!path.IsAbsolute()) {
      throw UsageError{"settings, section [Slurm]: " + std::string(key) + ' ' + inQuotes(path.Text()) +
                           " is no absolute path",
                       "write it from the root on, as the nodes see it"};
    }
  }
  return result;
}

} // namespace trovik
