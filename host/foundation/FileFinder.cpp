#include "host/foundation/FileFinder.h"

#include "host/foundation/Descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

// Finding the range of a numbered sequence asks for one name after the other.
// A question to the system costs about a microsecond, an entry of a directory
// that is read as a whole a third of that; but reading a directory of 100,000
// other files for the sake of ten frames would cost thirty milliseconds.
//
// So a finder begins with single questions and changes its mind: the first one
// about a directory is always asked alone; with the second it looks at the
// directory, and reads it at once if it is small; a large one it reads only
// when so many names were asked for that reading cannot cost much more than
// they did.
//
// What it then holds depends on the name that made it read. Names that differ
// from it only in their last number are most likely what will be asked for, and
// become one bit each: no hashing, no memory that is visited at random, which
// for 100,000 frames would take half as long as reading the directory; and who
// looks for the ends of the sequence (KnownRun) need not ask name by name. All
// other names lie behind each other in one block of bytes with a hash table of
// places in it, about 30 bytes a file. The hash is seeded, since names may be a
// stranger's choice; a directory beyond the limit below is asked name by name.

namespace {

constexpr off_t k_SmallDirectory = 32 << 10;                // bytes; about 500 names
constexpr int k_QuestionsBeforeReading = 128;               // in a large directory
constexpr std::size_t k_NamesLimit = std::size_t{64} << 20; // bytes; three million names
constexpr std::size_t k_ReadSize = 64 << 10;

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
bool HasNoDirectories(int directory, const struct stat& status) {
  struct statfs system {};
  return status.st_nlink == 2 && fstatfs(directory, &system) == 0 &&
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

// Calls `visit(name, type)` for every entry that may be a file: directories and
// with them "." and ".." are left out. False when the directory cannot be read.
template <typename Visit> bool VisitEntries(int directory, Visit visit) {
  alignas(dirent64) char buffer[k_ReadSize];
  for (;;) {
    const long size = syscall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (size <= 0) {
      return size == 0;
    }
    for (long position = 0; position < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + position);
      position += entry->d_reclen;
      if (entry->d_type != DT_DIR && !visit(std::string_view(entry->d_name), entry->d_type)) {
        return false;
      }
    }
  }
}

bool NeedsAsking(unsigned char type) {
  return type == DT_LNK || type == DT_UNKNOWN;
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

std::uint64_t Load(const char* bytes, std::size_t size) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, size);
  return word;
}

std::uint64_t Mix(std::uint64_t left, std::uint64_t right) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(left) * right;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t HashSeed() {
  static const std::uint64_t seed = [] {
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof(random), GRND_NONBLOCK) != sizeof(random)) {
      random = reinterpret_cast<std::uintptr_t>(&random);
    }
    return random | 1;
  }();
  return seed;
}

std::size_t Hash(std::string_view name, std::uint64_t seed) {
  constexpr std::uint64_t k_Odd = 0x9e3779b97f4a7c15;
  std::uint64_t hash = seed ^ name.size();
  while (name.size() > 8) {
    hash = Mix(hash ^ Load(name.data(), 8), seed ^ k_Odd);
    name.remove_prefix(8);
  }
  return Mix(hash ^ Load(name.data(), name.size()), seed ^ ~k_Odd);
}

// The files of one numbered sequence, a bit each. A name belongs to it that has
// the model's text before and after its last number, and as many digits or more
// without a leading zero; so a number stands for one name only.
class SequenceBits {
public:
  explicit SequenceBits(std::string_view model) {
    const std::size_t last = model.find_last_of(k_Digits);
    const std::size_t before = model.find_last_not_of(k_Digits, last);
    if (last != std::string_view::npos) {
      const std::size_t start = before + 1; // npos + 1 is 0
      m_Head = model.substr(0, start);
      m_Tail = model.substr(last + 1);
      m_Width = last + 1 - start;
    }
  }

  /// False when the name is none of the sequence.
  bool Add(std::string_view name) {
    std::uint32_t number = 0;
    if (!IsOfSequence(name, number)) {
      return false;
    }
    if (number / 64 >= m_Bits.size()) {
      m_Bits.resize(std::max(k_FewestWords, std::size_t{number} / 32)); // twice what is needed now
    }
    m_Bits[number / 64] |= std::uint64_t{1} << (number % 64);
    return true;
  }

  bool Contains(std::string_view name) const {
    std::uint32_t number = 0;
    return IsOfSequence(name, number) && Has(number);
  }

  /// The numbers around that of a name, all of which are there; false where that
  /// of the name is not, or names have another number of digits.
  bool RunAround(std::string_view name, std::size_t digits, std::pair<int, int>& run) const {
    std::uint32_t number = 0;
    if (digits != m_Width || !IsOfSequence(name, number) || !Has(number)) {
      return false;
    }
    std::uint32_t low = number;
    while (low > 0 && Has(low - 1)) {
      low -= low % 64 == 0 && m_Bits[low / 64 - 1] == k_AllBits ? 64U : 1U;
    }
    std::uint32_t high = number + 1; // behind the last
    while (Has(high)) {
      high += high % 64 == 0 && m_Bits[high / 64] == k_AllBits ? 64U : 1U;
    }
    run = {static_cast<int>(low), static_cast<int>(high - 1)};
    return true;
  }

private:
  static constexpr std::uint64_t k_AllBits = ~std::uint64_t{0};
  static constexpr std::string_view k_Digits = "0123456789";
  static constexpr std::size_t k_MostDigits = 9;
  static constexpr std::size_t k_FewestWords = 64;
  static constexpr std::uint32_t k_NumberLimit = 1 << 26; // eight megabytes of bits

  bool IsOfSequence(std::string_view name, std::uint32_t& number) const {
    const std::size_t around = m_Head.size() + m_Tail.size();
    if (m_Width == 0 || name.size() < around + m_Width || name.size() > around + k_MostDigits) {
      return false;
    }
    const std::string_view digits = name.substr(m_Head.size(), name.size() - around);
    if (digits.size() > m_Width && digits.front() == '0') {
      return false;
    }
    number = 0;
    for (const char digit : digits) {
      if (digit < '0' || digit > '9') {
        return false;
      }
      number = 10 * number + static_cast<std::uint32_t>(digit - '0');
    }
    return number < k_NumberLimit && name.starts_with(m_Head) && name.ends_with(m_Tail);
  }

  bool Has(std::uint32_t number) const {
    return number / 64 < m_Bits.size() && (m_Bits[number / 64] >> (number % 64) & 1) != 0;
  }

  std::string m_Head;
  std::string m_Tail;
  std::size_t m_Width = 0;
  std::vector<std::uint64_t> m_Bits;
};

// The names of a directory's files. Each stands in one block of bytes behind a
// head of two bytes: its length, and a bit when only the system knows what the
// name stands for.
class NameTable {
public:
  enum class Answer { No, Yes, Ask };

  /// False, and nothing kept, when the directory cannot be read or is too
  /// large. Names like the model are kept as bits.
  bool Read(int directory, std::string_view model) {
    m_Sequence = SequenceBits(model);
    const bool whole = VisitEntries(directory, [this](std::string_view name, unsigned char type) {
      if (!NeedsAsking(type) && m_Sequence.Add(name)) {
        return true;
      }
      const auto head = static_cast<std::uint16_t>(name.size() | (NeedsAsking(type) ? k_AskBit : 0U));
      m_Names.append(reinterpret_cast<const char*>(&head), sizeof(head)).append(name);
      ++m_Count;
      return m_Names.size() <= k_NamesLimit;
    });
    if (whole) {
      FillSlots();
    } else {
      *this = NameTable();
    }
    return whole;
  }

  Answer Find(std::string_view name) const {
    if (m_Sequence.Contains(name)) {
      return Answer::Yes;
    }
    for (std::size_t slot = Hash(name, m_Seed) & m_Mask; m_Slots[slot] != k_Free;
         slot = (slot + 1) & m_Mask) {
      const unsigned int head = Head(m_Slots[slot]);
      if (Name(m_Slots[slot], head) == name) {
        return (head & k_AskBit) != 0 ? Answer::Ask : Answer::Yes;
      }
    }
    return Answer::No;
  }

  const SequenceBits& Sequence() const { return m_Sequence; }

private:
  static constexpr unsigned int k_AskBit = 0x8000;
  static constexpr std::uint32_t k_Free = 0xffffffff;

  unsigned int Head(std::uint32_t place) const {
    return static_cast<unsigned int>(Load(m_Names.data() + place, sizeof(std::uint16_t)));
  }
  std::string_view Name(std::uint32_t place, unsigned int head) const {
    return {m_Names.data() + place + sizeof(std::uint16_t), head & ~k_AskBit};
  }

  void FillSlots() {
    m_Slots.assign(std::bit_ceil(2 * m_Count + 1), k_Free);
    m_Mask = m_Slots.size() - 1;
    for (std::uint32_t place = 0; place < m_Names.size();) {
      const std::string_view name = Name(place, Head(place));
      std::size_t slot = Hash(name, m_Seed) & m_Mask;
      while (m_Slots[slot] != k_Free) {
        slot = (slot + 1) & m_Mask;
      }
      m_Slots[slot] = place;
      place += static_cast<std::uint32_t>(sizeof(std::uint16_t) + name.size());
    }
  }

  SequenceBits m_Sequence{{}};
  std::uint64_t m_Seed = HashSeed();
  std::string m_Names;
  std::vector<std::uint32_t> m_Slots;
  std::size_t m_Mask = 0;
  std::size_t m_Count = 0;
};

} // namespace

bool IsDirectory(const Path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The directory that the last question was about.
struct FileFinder::Directory {
  explicit Directory(std::string_view text) : Text(text) {}

  /// Whether the file is in it; `leaf` is where its name begins in `file`.
  bool Contains(const String& file, std::size_t leaf) {
    const std::string_view name = std::string_view(file).substr(leaf);
    if (++Questions > 1 && !Decided) {
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
    return !Handle.IsOpen() ? IsFile(AT_FDCWD, file.c_str())
           : FilesOnly      ? IsFileAmongFiles(Handle.Number(), file.c_str() + leaf)
                            : IsFile(Handle.Number(), file.c_str() + leaf);
  }

  bool IsRead() const { return WasRead; }

  bool RunAround(const String& file, std::size_t leaf, std::size_t digits, std::pair<int, int>& run) const {
    return Names.Sequence().RunAround(std::string_view(file).substr(leaf), digits, run);
  }

private:
  void Decide(std::string_view model) {
    if (Questions == 2) {
      struct stat status {};
      Handle = OpenDirectory(Text);
      IsGone = !Handle.IsOpen() && (errno == ENOENT || errno == ENOTDIR);
      Decided = !Handle.IsOpen() || fstat(Handle.Number(), &status) != 0;
      Small = status.st_size < k_SmallDirectory;
      FilesOnly = !Decided && !Small && HasNoDirectories(Handle.Number(), status);
    }
    if (!Decided && (Small || Questions > k_QuestionsBeforeReading)) {
      Decided = true;
      WasRead = Names.Read(Handle.Number(), model);
    }
  }

public:
  const String Text; ///< as written, with the "/" at its end

private:
  Descriptor Handle;
  NameTable Names;
  int Questions = 0;
  bool Small = false;
  bool FilesOnly = false; ///< and links
  bool Decided = false;   ///< whether to read it is settled
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
    m_Directory = std::make_unique<Directory>(branch);
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
