#include "host/application/jobs/ExecutableSearch.h"

#include "host/application/VersionOrder.h"
#include "host/application/jobs/NoteText.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/Characters.h"
#include "host/foundation/FileFinder.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

// The newest program is the one in the folder with the highest version. What
// stands behind the base in a folder's name is its version: of "blender",
// "blender-4.1" and "blender4.2" these are nothing, 4.1 and 4.2. Comparing
// versions instead of whole names lets folders of different bases and
// spellings compete ("blender_4.0" with "Blender 4.1"). Of several bases that a
// name fits the longest says what is name and what is version in it: "blender
// (beta)" is the name of a program that has no releases.

namespace {

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

// The part of a base before its first wildcard.
std::size_t FixedSize(const String& base) {
  return std::min(base.find_first_of("*?"), base.size());
}

// "blender" means blender, blender-4.1, blender_4 and blender4.2, but not
// blenderkit, which is another program. Nor is 4.10 a kind of 4.1.
bool IsNamedLike(const String& name, const String& base) {
  if (HasWildcard(base)) {
    return MatchesPattern(name, base);
  }
  if (!name.starts_with(base) || name.size() == base.size()) {
    return name == base;
  }
  const char next = name[base.size()];
  return !IsLetter(next) && !(IsDigit(next) && IsDigit(base.back()));
}

bool IsPartOfVersion(char c) {
  return IsDigit(c) || c == '.' || c == '_';
}

// Where the version begins in a name. A number at the end of the base is a part
// of it where it stands by itself ("blender-4.1") or goes on behind the base
// ("houdini20" and .5), but belongs to the program in "mandelbulber2".
std::size_t VersionStart(const String& name, const String& base) {
  const std::size_t fixed = FixedSize(base);
  std::size_t start = fixed;
  while (start > 0 && IsPartOfVersion(name[start - 1])) {
    --start;
  }
  while (start < fixed && !IsDigit(name[start])) {
    ++start;
  }
  const std::string_view rest = std::string_view(name).substr(fixed);
  const std::size_t digit = !rest.empty() && !IsDigit(rest[0]) && IsPartOfVersion(rest[0]) ? 1 : 0;
  const bool goesOn = digit < rest.size() && IsDigit(rest[digit]);
  const bool standsAlone = start == 0 || !IsLetter(name[start - 1]);
  return goesOn || standsAlone ? start : fixed;
}

// A folder that may hold the program.
struct NamedFolder {
  Path Folder;
  String VersionText;
  String AsideWord; // empty, too, where the base itself has it
};

// The longest base that a name fits; null for a name that fits none.
const String* BaseOf(const String& name, const std::vector<Path>& bases) {
  const String* longest = nullptr;
  for (const Path& base : bases) {
    if (!base.empty() && IsNamedLike(name, base.Text()) &&
        (longest == nullptr || FixedSize(base.Text()) > FixedSize(*longest))) {
      longest = &base.Text();
    }
  }
  return longest;
}

NamedFolder Named(const Path& folder, const String& name, const String& base) {
  NamedFolder named{folder, name.substr(VersionStart(name, base)), String::Null};
  const std::string_view word = FolderVersion(named.VersionText).PutAside;
  if (!String::EqualNoCase(word, FolderVersion(base).PutAside)) {
    named.AsideWord = String(word);
  }
  return named;
}

String ReadingProblem(int error) {
  return error == ENOENT    ? String("does not exist")
         : error == ENOTDIR ? String("is no folder")
                            : "cannot be read: " + std::system_category().message(error);
}

// The folders of a root that are named like a base. What keeps the root from
// being read becomes the error. Links to no folder are added to the links.
std::vector<NamedFolder> FoldersOf(const Path& root, const std::vector<Path>& bases, int& error,
                                   std::vector<Path>& links) {
  std::vector<NamedFolder> folders;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(root.c_str()), closedir);
  if (directory == nullptr) {
    error = errno;
    return folders;
  }
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(directory.get());
    if (entry == nullptr) {
      error = errno;
      break;
    }
    const String name = entry->d_name;
    const String* base = name == "." || name == ".." ? nullptr : BaseOf(name, bases);
    Path folder = root;
    folder /= name;
    if (base != nullptr && (entry->d_type == DT_DIR || IsDirectory(folder))) {
      folders.push_back(Named(folder, name, *base));
    } else if (base != nullptr && (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN)) {
      links.push_back(folder);
    }
  }
  // The directory's own order must not decide; of names that read the same the
  // plainest wins.
  std::sort(folders.begin(), folders.end(), [](const NamedFolder& left, const NamedFolder& right) {
    const String& leftName = left.Folder.Text();
    const String& rightName = right.Folder.Text();
    return leftName.size() != rightName.size() ? leftName.size() < rightName.size() : leftName < rightName;
  });
  return folders;
}

// The newest first, those that were put aside last. Stable: of equal versions
// the earlier root wins.
void Order(std::vector<NamedFolder>& folders) {
  struct Read {
    const NamedFolder* Folder;
    FolderVersion Version;
  };
  std::vector<Read> read;
  read.reserve(folders.size());
  for (const NamedFolder& folder : folders) {
    read.push_back({&folder, FolderVersion(folder.VersionText)});
  }
  std::stable_sort(read.begin(), read.end(), [](const Read& left, const Read& right) {
    const bool leftServes = left.Folder->AsideWord.empty();
    return leftServes == right.Folder->AsideWord.empty() ? left.Version.Compare(right.Version) > 0
                                                         : leftServes;
  });
  std::vector<NamedFolder> ordered;
  ordered.reserve(folders.size());
  for (const Read& one : read) {
    ordered.push_back(*one.Folder);
  }
  folders = std::move(ordered);
}

// Whether it is the file that it was, with the rights that it had.
bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_mode == right.st_mode &&
         left.st_size == right.st_size && left.st_ctim.tv_sec == right.st_ctim.tv_sec &&
         left.st_ctim.tv_nsec == right.st_ctim.tv_nsec;
}

bool IsSameFolder(const struct statx& left, const struct statx& right) {
  const auto isSame = [](const statx_timestamp& one, const statx_timestamp& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
  };
  return left.stx_dev_major == right.stx_dev_major && left.stx_dev_minor == right.stx_dev_minor &&
         left.stx_ino == right.stx_ino && isSame(left.stx_mtime, right.stx_mtime) &&
         isSame(left.stx_ctime, right.stx_ctime);
}

// While a job's program is looked for.
thread_local const ExecutableMemory::Use* t_Use = nullptr;

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

String FileProblem(const Path& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    const int error = errno;
    std::error_code ignored;
    const std::string target = std::filesystem::read_symlink(file.c_str(), ignored).string();
    if (!target.empty()) {
      return "is a link to \"" + NoteText(target, target.size()) + "\", which leads nowhere";
    }
    return error == ENOENT || error == ENOTDIR
               ? String("does not exist")
               : "cannot be reached: " + std::system_category().message(error);
  }
  if (S_ISDIR(status.st_mode)) {
    return "is a folder";
  }
  return S_ISREG(status.st_mode) ? String::Null : String("is no regular file");
}

String ExecutableProblem(const Path& file) {
  String problem = FileProblem(file);
  if (problem.empty() && access(file.c_str(), X_OK) != 0) {
    problem = "is not executable";
  }
  return problem;
}

ExecutableSearchResult SearchNewestExecutable(const std::vector<Path>& roots, const std::vector<Path>& bases,
                                              const Path& exe) {
  ExecutableSearchResult result;
  std::vector<NamedFolder> folders;
  const bool rootItself =
      bases.empty() || std::any_of(bases.begin(), bases.end(), [](const Path& base) { return base.empty(); });
  for (const Path& root : roots) {
    if (root.empty()) {
      continue; // not the directory that this process happens to be in
    }
    const Path absolute = MakeAbsolute(root);
    int error = 0;
    std::vector<NamedFolder> found = FoldersOf(absolute, bases, error, result.Links);
    const bool isThere = error != ENOENT && error != ENOTDIR;
    if (rootItself && isThere) { // a folder that cannot be read may be entered
      found.push_back({absolute, String::Null, String::Null});
    }
    if (error != 0 || found.empty()) {
      result.Roots.push_back(
          {absolute, error == 0 ? String::Null : ReadingProblem(error), error != 0 && isThere});
    }
    std::move(found.begin(), found.end(), std::back_inserter(folders));
  }
  Order(folders);
  for (const NamedFolder& folder : folders) {
    result.Folders.push_back({folder.Folder, String::Null});
    String& problem = result.Folders.back().Problem;
    if (!folder.AsideWord.empty()) {
      problem = "was put aside: its name says \"" + folder.AsideWord + "\"";
    } else if (result.Program.empty()) {
      Path program = folder.Folder;
      program /= exe.Text();
      problem = ExecutableProblem(program);
      if (problem.empty()) {
        result.Program = program;
      } else {
        problem = "cannot serve: its \"" + exe.Text() + "\" " + problem;
      }
    }
  }
  return result;
}

std::int64_t ExecutableMemory::SystemTime() {
  return std::time(nullptr);
}

void ExecutableMemory::Doubt() {
  for (Search& search : m_Searches) {
    search.IsDoubtful = true;
  }
}

Path ExecutableMemory::Find(const std::vector<Path>& roots, const std::vector<Path>& bases, const Path& exe) {
  auto known = std::find_if(m_Searches.begin(), m_Searches.end(), [&](const Search& search) {
    return search.Exe == exe && search.Roots == roots && search.Bases == bases;
  });
  if (known == m_Searches.end()) {
    Search search;
    search.Roots = roots;
    search.Bases = bases;
    search.Exe = exe;
    m_Searches.push_back(std::move(search));
    known = std::prev(m_Searches.end());
    known->Run(m_Now());
  } else if (!known->Stands() || (known->IsDoubtful && !known->WouldFindTheSame())) {
    known->Run(m_Now());
  }
  known->IsDoubtful = false;
  return known->Program;
}

// What is noted of a root comes before the search: what changes meanwhile tells.
// The status of the program comes after it: of one that is replaced in between
// the next work searches again.
void ExecutableMemory::Search::Run(std::int64_t now) {
  RootsBefore.clear();
  for (const Path& root : Roots) {
    if (!root.empty()) {
      RootsBefore.push_back(RootNow(root, now));
    }
  }
  ExecutableSearchResult result = SearchNewestExecutable(Roots, Bases, Exe);
  Program = result.Program;
  if (Program.empty() || stat(Program.c_str(), &Status) != 0) {
    Status = {};
  }
  PassedOver.clear();
  for (const SearchedFolder& folder : result.Folders) {
    if (folder.Problem.empty()) {
      break; // the one of the program
    }
    PassedOver.push_back(folder.Folder);
    PassedOver.back() /= Exe.Text();
  }
  Links = std::move(result.Links);
  IsWhole = std::none_of(result.Roots.begin(), result.Roots.end(),
                         [](const SearchedFolder& root) { return root.IsUnreadable; });
}

bool ExecutableMemory::Search::Stands() const {
  struct stat now {};
  return Program.empty() || (stat(Program.c_str(), &now) == 0 && IsSameFile(now, Status));
}

bool ExecutableMemory::Search::WouldFindTheSame() const {
  const auto isAsBefore = [](const Root& root) {
    const Root now = RootNow(root.Folder, 0);
    return root.IsSure && root.IsThere == now.IsThere &&
           (!now.IsThere || IsSameFolder(root.Status, now.Status));
  };
  return IsWhole && std::all_of(RootsBefore.begin(), RootsBefore.end(), isAsBefore) &&
         std::none_of(PassedOver.begin(), PassedOver.end(), IsExecutableFile) &&
         std::none_of(Links.begin(), Links.end(), IsDirectory);
}

// A folder's times change with what it holds, but in steps: of one that has just
// changed a further change may not tell. A server is asked anew.
ExecutableMemory::Root ExecutableMemory::RootNow(const Path& folder, std::int64_t now) {
  constexpr std::int64_t longestStep = 2; // seconds
  Root root;
  root.Folder = folder;
  const int result = statx(AT_FDCWD, MakeAbsolute(folder).c_str(), AT_STATX_FORCE_SYNC,
                           STATX_INO | STATX_MTIME | STATX_CTIME, &root.Status);
  root.IsThere = result == 0;
  root.IsSure = result == 0
                    ? std::max(root.Status.stx_mtime.tv_sec, root.Status.stx_ctime.tv_sec) + longestStep < now
                    : errno == ENOENT || errno == ENOTDIR;
  return root;
}

ExecutableMemory::Use::Use(ExecutableMemory* memory, bool wanted)
    : m_Memory(memory), m_Wanted(wanted), m_Before(t_Use) {
  t_Use = this;
}

ExecutableMemory::Use::~Use() {
  t_Use = m_Before;
}

Path ProcessJob::FindLatestExecutable(const std::vector<Path>& roots, const std::vector<Path>& bases,
                                      Path exe) {
  if (exe.empty()) {
    return exe;
  }
  if (t_Use != nullptr && !t_Use->m_Wanted) {
    return Path();
  }
  if (exe.IsAbsolute()) { // lies in no folder that was found
    return IsExecutableFile(exe) ? exe : Path();
  }
  if (roots.empty() && bases.empty()) {
    return exe.Text().find('/') == String::npos ? FindAlongPath(exe.Text())
           : IsExecutableFile(exe)              ? MakeAbsolute(exe)
                                                : Path();
  }
  return t_Use != nullptr && t_Use->m_Memory != nullptr ? t_Use->m_Memory->Find(roots, bases, exe)
                                                        : SearchNewestExecutable(roots, bases, exe).Program;
}
