#include "host/foundation/FileFinder.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/folder/FolderEntries.h"
#include "host/foundation/folder/FolderNames.h"
#include "host/foundation/folder/ReadingChoice.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>

// Finding the range of a numbered sequence asks for one name after the other.
// A question to the system costs a third of a microsecond, an entry of a directory
// that is read as a whole half of that: so a sequence that has its directory for
// itself is found by reading, and one among many other files by asking. Where the
// directory is on a disk or a server and not in memory yet, a question takes some
// hundred microseconds, and so does each block of the directory, with about a
// hundred names: there reading is worth it much sooner.
//
// The first question about a directory is asked alone, unless many are expected.
// With the next one it is opened, and read at once if it is small. Of a larger one
// single names are asked for first. Their times tell whether it is in memory, which
// gives with its size the number of questions for which reading would have been as
// good (ReadingChoice.h). After a few of them, or a thirty-second of that number,
// one question more tells whether the sequence is that long: whether the name with
// a number that much further is there. If so, the directory is read. If not, single
// names are asked for as long as that costs less than reading: whatever is asked
// for takes no more than about twice what would have been best.
//
// A wrong guess costs time alone: both ways give the same answers. As multiples of
// the better way (tables of folders of 110 to 100,100 files): with caches emptied
// 0.9 to 1.25, where asking for 128 names before reading took 0.97 to 1.66; in
// memory 0.8 to 1.2 for a hundred frames and more, where it took up to 7. Few
// frames in a small folder cost up to 50 microseconds more than asking would.
//
// What it then holds depends on the name that made it read. Names that differ
// from it only in their last number are most likely what will be asked for, and
// become one bit each: no hashing, no memory that is visited at random, which
// for 100,000 frames would take half as long as reading the directory; and who
// looks for the ends of the sequence (KnownRun) need not ask name by name. All
// other names lie behind each other in one block of bytes with a hash table of
// places in it, about 30 bytes a file. The hash is seeded, since names may be a
// stranger's choice; a directory beyond its limit is asked name by name.

namespace {

bool IsFile(int directory, const char* name) {
  struct stat status {};
  return fstatat(directory, name, &status, 0) == 0 && !S_ISDIR(status.st_mode);
}

// The same in a directory that has no directories in it: a file that is no link
// is then no directory, and reading a link costs four fifths of a status.
bool IsFileAmongFiles(int directory, const char* name) {
  char target = 0;
  return readlinkat(directory, name, &target, 1) >= 0 ? IsFile(directory, name) : errno == EINVAL;
}

// Whether an open directory has no directories in it: each has a link to it, on
// file systems that count these.
bool HasNoDirectories(int directory, nlink_t links) {
  struct statfs system {};
  return links == 2 && fstatfs(directory, &system) == 0 &&
         (system.f_type == EXT4_SUPER_MAGIC || system.f_type == XFS_SUPER_MAGIC ||
          system.f_type == TMPFS_MAGIC);
}

bool HasNul(std::string_view text) {
  return text.find('\0') != std::string_view::npos;
}

// Where the last component begins. Not rfind, which goes byte by byte.
std::size_t LeafStart(std::string_view text) {
  const void* slash = memrchr(text.data(), '/', text.size());
  return slash == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(slash) + 1 - text.data());
}

Descriptor OpenDirectory(const String& text) {
  return Descriptor(open(text.empty() ? "." : text.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Whether a name matches a pattern with "*" and "?". On a mismatch only the
// last star is tried further along, so hostile patterns cost at most the
// product of the lengths.
bool Matches(std::string_view name, std::string_view pattern) {
  std::size_t inName = 0;
  std::size_t inPattern = 0;
  std::size_t star = std::string_view::npos;
  std::size_t starName = 0;
  while (inName < name.size()) {
    if (inPattern < pattern.size() && pattern[inPattern] == '*') {
      star = inPattern++;
      starName = inName;
    } else if (inPattern < pattern.size() &&
               (pattern[inPattern] == '?' || pattern[inPattern] == name[inName])) {
      ++inPattern;
      ++inName;
    } else if (star != std::string_view::npos) {
      inPattern = star + 1;
      inName = ++starName;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', inPattern) == std::string_view::npos;
}

} // namespace

bool IsDirectory(const Path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The directory that the last question was about.
struct FileFinder::Directory {
  Directory(std::string_view text, bool areMany) : Text(text), IsLookedAt(areMany) {}

  /// Whether the file is in it; `leaf` is where its name begins in `file`.
  bool Contains(const String& file, std::size_t leaf) {
    const std::string_view name = std::string_view(file).substr(leaf);
    if (!std::exchange(IsLookedAt, true)) {
      return !HasNul(file) && IsFile(AT_FDCWD, file.c_str()); // nobody may ask again
    }
    if (!Decided) {
      Decide(name);
    }
    if (WasRead) {
      const NameTable::Answer answer = Names.Find(name);
      if (answer != NameTable::Answer::Ask) {
        return answer == NameTable::Answer::Yes;
      }
    }
    if (IsGone || HasNul(file)) {
      return false; // with a zero byte the system would take it for its beginning
    }
    if (!Handle.IsOpen()) {
      return IsFile(AT_FDCWD, file.c_str());
    }
    if (!Choice.IsMeasuring()) {
      if (!std::exchange(IsKindKnown, true)) {
        FilesOnly = HasNoDirectories(Handle.Number(), Links);
      }
      Choice.Add();
      return Ask(file.c_str() + leaf);
    }
    const auto start = std::chrono::steady_clock::now();
    const bool isFile = Ask(file.c_str() + leaf);
    Choice.Add(std::chrono::steady_clock::now() - start);
    return isFile;
  }

  bool IsRead() const { return WasRead; }

  bool RunAround(const String& file, std::size_t leaf, std::size_t digits, std::pair<int, int>& run) const {
    return Names.Sequence().RunAround(std::string_view(file).substr(leaf), digits, run);
  }

private:
  bool Ask(const char* name) const {
    return FilesOnly ? IsFileAmongFiles(Handle.Number(), name) : IsFile(Handle.Number(), name);
  }

  void Decide(std::string_view model) {
    if (!Handle.IsOpen()) {
      Open();
    }
    if (!Decided && (Choice.IsSmall() || Choice.IsPaid() || GoesFar(model))) {
      Decided = true;
      WasRead = Names.Read(Handle.Number(), model);
    }
  }

  void Open() {
    struct stat status {};
    const auto start = std::chrono::steady_clock::now();
    Handle = OpenDirectory(Text);
    IsGone = !Handle.IsOpen() && (errno == ENOENT || errno == ENOTDIR);
    Decided = !Handle.IsOpen() || fstat(Handle.Number(), &status) != 0;
    Links = status.st_nlink;
    Choice =
        ReadingChoice(static_cast<std::uint64_t>(status.st_size), std::chrono::steady_clock::now() - start);
  }

  // Whether the sequence of a name has so many files that reading is worth it,
  // asked once: as many on one side, or half of them on both.
  bool GoesFar(std::string_view name) {
    if (WasLookedFar || !Choice.IsTimeToLookFar()) {
      return false;
    }
    WasLookedFar = true;
    const auto many = static_cast<std::int64_t>(Choice.BreakEven());
    const bool isBelow = HasBeside(name, -(many + 1) / 2);
    const bool isAbove = HasBeside(name, (many + 1) / 2);
    return isBelow && isAbove ? true : isBelow ? HasBeside(name, -many) : isAbove && HasBeside(name, many);
  }

  // Whether there is the file with a number so much higher.
  bool HasBeside(std::string_view name, std::int64_t distance) const {
    const String other = NumberedName(name).Beside(distance);
    return !other.empty() && !HasNul(other) && Ask(other.c_str());
  }

public:
  const String Text; ///< as written, with the "/" at its end

private:
  Descriptor Handle;
  NameTable Names;
  ReadingChoice Choice{0, {}};
  bool IsLookedAt; ///< or will be with the next question
  nlink_t Links = 0;
  bool IsKindKnown = false; ///< whether FilesOnly was found out
  bool FilesOnly = false;   ///< and links
  bool WasLookedFar = false;
  bool Decided = false; ///< whether to read it is settled
  bool WasRead = false;
  bool IsGone = false; ///< there is no such directory
};

FileFinder::FileFinder() = default;
FileFinder::~FileFinder() = default;

bool FileFinder::Find(const Path& pattern) {
  const String& text = pattern.Text();
  const std::size_t leaf = LeafStart(text);
  if (text.find_first_of("*?", leaf) == String::npos) {
    return FindExact(pattern);
  }
  String branch(text.substr(0, leaf));
  const std::string_view leafPattern = std::string_view(text).substr(leaf);
  const bool hidden = leafPattern.front() == '.';
  const Descriptor directory = HasNul(text) ? Descriptor() : OpenDirectory(branch);
  std::string leaves;
  std::vector<Leaf> order;
  if (directory.IsOpen()) {
    VisitEntries(directory.Number(), [&](std::string_view name, unsigned char type) {
      if ((hidden || name.front() != '.') && Matches(name, leafPattern) &&
          (!NeedsAsking(type) || IsFile(directory.Number(), name.data()))) {
        order.push_back({leaves.size(), name.size()});
        leaves.append(name);
      }
      return true;
    });
  }
  if (order.empty()) {
    return FindExact(pattern); // a directory that may be entered but not read
  }
  const auto nameOf = [&leaves](const Leaf& match) {
    return std::string_view(leaves).substr(match.Offset, match.Length);
  };
  std::sort(order.begin(), order.end(),
            [&nameOf](const Leaf& left, const Leaf& right) { return nameOf(left) < nameOf(right); });
  m_Branch = std::move(branch);
  m_Leaves = std::move(leaves);
  m_Order = std::move(order);
  m_Next = 0;
  return Next();
}

const FilesToCome* FilesToCome::s_Newest = nullptr;

FilesToCome::FilesToCome(std::function<bool(const Path& file)> isToCome)
    : m_IsToCome(std::move(isToCome)), m_Before(std::exchange(s_Newest, this)) {}

FilesToCome::~FilesToCome() {
  s_Newest = m_Before;
}

bool FileFinder::Holds(const String& file) {
  const std::size_t leaf = LeafStart(file);
  if (leaf == file.size()) {
    return false;
  }
  const std::string_view branch = std::string_view(file).substr(0, leaf);
  if (m_Directory == nullptr || m_Directory->Text != branch) {
    m_Directory = std::make_unique<Directory>(branch, m_AreManyExpected);
  }
  const FilesToCome* toCome = FilesToCome::s_Newest;
  return m_Directory->Contains(file, leaf) || (toCome != nullptr && toCome->m_IsToCome(Path(file)));
}

std::pair<int, int> FileFinder::KnownRun(const String& file, int number, std::size_t digits) const {
  std::pair<int, int> run(number, number);
  if (m_Directory == nullptr || !m_Directory->IsRead()) {
    return run;
  }
  const std::size_t leaf = LeafStart(file);
  if (m_Directory->Text == std::string_view(file).substr(0, leaf)) {
    m_Directory->RunAround(file, leaf, digits, run);
  }
  return run;
}

bool FileFinder::FindExact(const Path& file) {
  const bool isThere = Holds(file.Text());
  m_Name = isThere ? file : Path(); // `file` may be the one before
  m_Order.clear();
  m_Next = 0;
  return isThere;
}

const Path& FileFinder::Name() const {
  return m_Name;
}

bool FileFinder::Next() {
  const bool isThere = m_Next < m_Order.size();
  String name;
  if (isThere) {
    const Leaf& leaf = m_Order[m_Next++];
    name.reserve(m_Branch.size() + leaf.Length);
    name.append(m_Branch).append(m_Leaves, leaf.Offset, leaf.Length);
  }
  m_Name = Path(std::move(name));
  return isThere;
}
