#include "host/application/ExecutableSearch.h"

#include "host/application/ProcessJob.h"
#include "host/application/VersionOrder.h"
#include "host/foundation/Characters.h"
#include "host/foundation/FileFinder.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

// The newest program is the one in the folder with the highest version. What
// stands behind the base in a folder's name is its version: of "blender",
// "blender-4.1" and "blender4.2" these are nothing, 4.1 and 4.2. Comparing
// versions instead of whole names lets folders of different bases and
// spellings compete ("blender_4.0" with "Blender 4.1").

namespace {

struct ProgramFolder {
  String Version;
  Path Folder;
};

bool HasWildcard(const String& base) {
  return base.find_first_of("*?") != String::npos;
}

// Only "*" and "?" are special here; brackets and backslashes are plain.
bool MatchesPattern(const String& name, const String& base) {
  String pattern;
  for (const char c : base) {
    if (c == '[' || c == '\\') {
      pattern.push_back('\\');
    }
    pattern.push_back(c);
  }
  return fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) == 0;
}

// "blender" means blender, blender-4.1, blender_4 and blender4.2, but not
// blenderkit, which is another program.
bool IsNamedLike(const String& name, const String& base) {
  if (HasWildcard(base)) {
    return MatchesPattern(name, base);
  }
  return name.starts_with(base) && (name.size() == base.size() || !IsLetter(name[base.size()]));
}

String VersionIn(const String& name, const String& base) {
  const std::size_t fixed = std::min(base.find_first_of("*?"), base.size());
  const std::size_t start = name.find_first_not_of("-_. ", fixed);
  return start == String::npos ? String::Null : String(name.substr(start));
}

std::vector<String> FolderNames(const Path& root) {
  std::vector<String> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(root.c_str()), closedir);
  while (const dirent* entry = directory == nullptr ? nullptr : readdir(directory.get())) {
    const String name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end()); // the directory's own order must not decide
  return names;
}

void AddCandidates(const Path& root, const std::vector<Path>& bases, std::vector<ProgramFolder>& candidates) {
  for (const String& name : FolderNames(root)) {
    const auto base = std::find_if(bases.begin(), bases.end(), [&name](const Path& candidate) {
      return !candidate.empty() && IsNamedLike(name, candidate.Text());
    });
    Path folder = root;
    folder /= name;
    if (base != bases.end() && IsDirectory(folder)) {
      candidates.push_back({VersionIn(name, base->Text()), folder});
    }
  }
  const bool rootItself =
      bases.empty() || std::any_of(bases.begin(), bases.end(), [](const Path& base) { return base.empty(); });
  if (rootItself) {
    candidates.push_back({String::Null, root});
  }
}

} // namespace

Path MakeAbsolute(const Path& path, const Path& directory) {
  if (path.IsAbsolute()) {
    return path;
  }
  Path absolute = directory;
  if (!absolute.IsAbsolute()) {
    std::error_code ignored;
    absolute = std::filesystem::current_path(ignored).string();
    absolute = directory.empty() ? absolute : (absolute /= directory.Text());
  }
  String relative = path.Text();
  while (relative.starts_with("./")) {
    relative.erase(0, std::min(relative.find_first_not_of('/', 1), relative.size()));
  }
  return relative.empty() || relative == "." ? absolute : (absolute /= relative);
}

bool IsExecutableFile(const Path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(file.c_str(), X_OK) == 0;
}

Path FindAlongPath(const String& name) {
  const char* path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): the host never sets it
  if (name.empty()) {
    return Path();
  }
  const String directories = path == nullptr ? "/bin:/usr/bin" : path; // as posix_spawnp does
  for (std::size_t start = 0; start <= directories.size();) {
    const std::size_t end = std::min(directories.find(':', start), directories.size());
    Path file = directories.substr(start, end - start);
    file = MakeAbsolute(file /= name); // an empty entry is the current directory
    if (IsExecutableFile(file)) {
      return file;
    }
    start = end + 1;
  }
  return Path();
}

Path ProcessJob::FindLatestExecutable(const std::vector<Path>& roots, const std::vector<Path>& bases,
                                      Path exe) {
  if (exe.empty()) {
    return exe;
  }
  if (exe.IsAbsolute()) { // lies in no folder that was found
    return IsExecutableFile(exe) ? exe : Path();
  }
  if (roots.empty() && bases.empty()) {
    return exe.Text().find('/') == String::npos ? FindAlongPath(exe.Text())
           : IsExecutableFile(exe)              ? MakeAbsolute(exe)
                                                : Path();
  }
  std::vector<ProgramFolder> candidates;
  for (const Path& root : roots) {
    if (!root.empty()) { // not the directory that this process happens to be in
      AddCandidates(MakeAbsolute(root), bases, candidates);
    }
  }
  // Stable: of equal versions the earlier root wins.
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const ProgramFolder& left, const ProgramFolder& right) {
                     return CompareVersions(left.Version, right.Version) > 0;
                   });
  for (const ProgramFolder& candidate : candidates) {
    Path program = candidate.Folder;
    program /= exe.Text();
    if (IsExecutableFile(program)) {
      return program;
    }
  }
  return Path();
}
