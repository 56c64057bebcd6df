#pragma once

#include "host/foundation/Path.h"

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

/// The path made absolute: a relative one counts from the directory, or from
/// this process's current one where that is empty. "./" at its front vanishes.
Path MakeAbsolute(const Path& path, const Path& directory = Path());

/// Whether this is a file (or a link to one) that this user may execute.
bool IsExecutableFile(const Path& file);

/// What is wrong with a name that is to be one of a file, to be said behind it:
/// "does not exist", "is a folder". Empty for a file or a link to one.
String FileProblem(const Path& file);

/// The same for a file that this user is to execute.
String ExecutableProblem(const Path& file);

/// The program of a bare name that the system finds first along PATH; empty
/// when there is none.
Path FindAlongPath(const String& name);

/// A folder of a search, and what spoke against it, to be said behind its name:
/// "does not exist".
struct SearchedFolder {
  Path Folder;
  String Problem;
  bool IsUnreadable = false; ///< it may hold what was looked for
};

/// What a search for the newest program came by.
struct ExecutableSearchResult {
  Path Program; ///< empty when there is none
  /// The folders that may hold it, the newest first. All before the one of the
  /// program have a problem, those behind it were not tried. At the end are
  /// those that somebody put aside, which never serve.
  std::vector<SearchedFolder> Folders;
  std::vector<SearchedFolder> Roots; ///< where nothing is named like a base
  /// Links in the roots that are named like a base and lead to no folder now.
  std::vector<Path> Links;
};

/// ProcessJob::FindLatestExecutable with its reasons; at least one root or base.
ExecutableSearchResult SearchNewestExecutable(const std::vector<Path>& roots, const std::vector<Path>& bases,
                                              const Path& exe);

/// Remembers what the searches of one job found, so that its works neither
/// search again nor change to a program that was installed meanwhile. A find is
/// used as long as it is the same file, which one call tells; one that was
/// removed or replaced is searched for anew. For one thread at a time.
class ExecutableMemory {
public:
  /// The system's time, in seconds since 1970.
  using Clock = std::function<std::int64_t()>;
  explicit ExecutableMemory(Clock now = SystemTime) : m_Now(std::move(now)) {}

  Path Find(const std::vector<Path>& roots, const std::vector<Path>& bases, const Path& exe);

  /// The next searches are made anew.
  void Forget() { m_Searches.clear(); }

  /// The same, but a find (or that there is none) serves on where a new search
  /// could only come to it again: no root has changed since, and what was passed
  /// over for the find does not serve now either. That takes a call for each of
  /// them, instead of a look at every folder.
  void Doubt();

  /// While it lives, ProcessJob::FindLatestExecutable in this thread asks the
  /// memory (unless that is null), or finds nothing where no find is wanted.
  class Use {
  public:
    Use(ExecutableMemory* memory, bool wanted);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

  private:
    ExecutableMemory* m_Memory;
    bool m_Wanted;
    const Use* m_Before;
    friend class ProcessJob;
  };

private:
  /// A root before it was read.
  struct Root {
    Path Folder;
    bool IsThere = false;
    bool IsSure = false; ///< any change since would tell
    struct statx Status {};
  };
  struct Search {
    std::vector<Path> Roots;
    std::vector<Path> Bases;
    Path Exe;
    Path Program;
    struct stat Status {}; // of the program, when it was found
    std::vector<Root> RootsBefore;
    std::vector<Path> PassedOver; // programs that would have been taken before
    std::vector<Path> Links;      // that led to no folder
    bool IsWhole = false;         // every root that is there was read
    bool IsDoubtful = false;

    void Run(std::int64_t now);
    bool Stands() const;
    bool WouldFindTheSame() const;
  };
  static std::int64_t SystemTime();
  static Root RootNow(const Path& folder, std::int64_t now);

  Clock m_Now;
  std::vector<Search> m_Searches;
};
