#include "host/application/VersionOrder.h"

#include "host/foundation/Characters.h"
#include "host/foundation/String.h"

#include <algorithm>
#include <array>
#include <span>

// Which of two folders of a program is the newer one, as a person would say who
// reads their names. No standard covers what stands in /opt, so a name is read
// for what the makers of programs and packages, and users who rename folders,
// really write:
//
// - the version is the first number with those that its point (or "_") joins.
//   Words before it do not matter, be it "v", "n" or "release"; numbers that
//   belong to a platform (linux64, x86_64, glibc217) are none. 20240210 and
//   2024-02-10 are the date 2024.2.10; behind "git" and the like a date is no
//   version at all;
// - a letter right behind the version is a later one: 2.79b. "a" and "b" with
//   a number are alpha and beta: 4.0b2;
// - a word for an unfinished version puts it before that version, and no
//   further: dev < alpha < beta < pre < rc < release. So does a "~";
// - further numbers are builds: 4.2-15 lies between 4.2 and 4.2.1;
// - any other word says that this is not quite the plain version, which is
//   preferred: 4.2-patched < 4.2. So does a copy's number in brackets.
//
// Words that say that a folder was put aside are told apart, since no place in
// an order is right for it: whoever disabled 4.2 wants 4.1, or none.

namespace {

enum Stages { k_Dev, k_Alpha, k_Beta, k_Pre, k_Candidate, k_Tilde, k_Release };

struct StageWord {
  std::string_view Word;
  Stages Stage;
};

constexpr auto k_StageWords = std::to_array<StageWord>({
    {"alpha", k_Alpha},     {"beta", k_Beta},        {"canary", k_Dev},  {"candidate", k_Candidate},
    {"daily", k_Dev},       {"debug", k_Dev},        {"dev", k_Dev},     {"devel", k_Dev},
    {"development", k_Dev}, {"experimental", k_Dev}, {"git", k_Dev},     {"head", k_Dev},
    {"hg", k_Dev},          {"main", k_Dev},         {"master", k_Dev},  {"nightly", k_Dev},
    {"pre", k_Pre},         {"prerelease", k_Pre},   {"preview", k_Pre}, {"rc", k_Candidate},
    {"snapshot", k_Dev},    {"svn", k_Dev},          {"test", k_Dev},    {"testing", k_Dev},
    {"trunk", k_Dev},       {"unstable", k_Dev},     {"weekly", k_Dev},  {"wip", k_Dev},
});

constexpr auto k_AsideWords = std::to_array<std::string_view>(
    {"backup",   "bak",      "broken", "copy", "corrupt",  "defunct",  "deprecated",
     "disabled", "obsolete", "old",    "orig", "original", "outdated", "removed",
     "save",     "saved",    "temp",   "tmp",  "trash",    "unused"});

// A number right behind one of these is the platform's or another program's.
constexpr auto k_PlatformWords = std::to_array<std::string_view>(
    {"aarch", "amd",   "arm", "armv",  "centos",    "cuda", "darwin", "debian", "el",     "fedora", "gcc",
     "glibc", "linux", "mac", "macos", "manylinux", "musl", "osx",    "py",     "python", "ubuntu"});

// Words that say nothing more than the version does.
constexpr auto k_PlainWords =
    std::to_array<std::string_view>({"b", "build", "final", "ga", "hotfix", "lts", "patch", "r", "rel",
                                     "release", "rev", "sp", "stable", "update", "v", "ver", "version"});

// The longest name of a state of sources.
constexpr std::size_t k_HashLimit = 64;

bool IsOneOf(std::span<const std::string_view> words, std::string_view word) {
  return std::any_of(words.begin(), words.end(),
                     [word](std::string_view one) { return String::EqualNoCase(one, word); });
}

std::string_view WithoutZeros(std::string_view digits) {
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

bool IsParting(char c) {
  return c == '-' || c == '_' || c == '.' || c == ' ' || c == '+';
}

int CompareNumbers(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) { // without leading zeros, the longer one is the larger
    return left.size() < right.size() ? -1 : 1;
  }
  return left.compare(right);
}

int CompareNumbers(const std::vector<std::string_view>& left, const std::vector<std::string_view>& right) {
  for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
    const int order = CompareNumbers(left[i], right[i]);
    if (order != 0) {
      return order;
    }
  }
  return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

// Reads the name from left to right.
class Reader {
public:
  Reader(std::string_view name, FolderVersion& version) : m_Name(name), m_Version(version) {}

  void Read() {
    while (m_At < m_Name.size()) {
      const char c = m_Name[m_At];
      if (IsDigit(c) && !SkipHash()) {
        ReadNumber();
      } else if (IsLetter(c) && !SkipHash()) {
        ReadWord();
      } else if (c == '(') {
        ReadBracket();
      } else if (c == '~') {
        ReadTilde();
      } else if (!IsDigit(c) && !IsLetter(c)) {
        ++m_At;
      }
    }
    if (m_Tilde && m_Version.Stage == k_Release) {
      m_Version.Stage = k_Tilde;
    }
    std::vector<std::string_view>& numbers = m_Version.Numbers;
    while (numbers.size() > 1 && numbers.back().empty()) {
      numbers.pop_back(); // 4.2.0 is 4.2
    }
  }

private:
  char At(std::size_t place) const { return place < m_Name.size() ? m_Name[place] : '\0'; }
  bool IsBegun() const { return !m_Version.Numbers.empty(); }

  std::size_t EndOf(bool (*belongs)(char), std::size_t start) const {
    while (start < m_Name.size() && belongs(m_Name[start])) {
      ++start;
    }
    return start;
  }

  std::string_view TakeDigits() {
    const std::size_t start = m_At;
    m_At = EndOf(IsDigit, start);
    return m_Name.substr(start, m_At - start);
  }

  // A state of sources, such as e14fe0d5c4f7: no number of it means anything.
  bool SkipHash() {
    const std::string_view text = m_Name.substr(m_At, k_HashLimit);
    const std::size_t size = std::min(text.find_first_not_of("0123456789abcdef"), text.size());
    const std::size_t digit = text.find_first_of("0123456789");
    const std::size_t letter = std::min(text.find_first_of("abcdef"), size);
    const bool ends = !IsDigit(At(m_At + size)) && !IsLetter(At(m_At + size));
    if (!ends || size < 7 || digit >= size || letter + 1 >= size) { // 20240210b is none
      return false;
    }
    ++m_Version.OtherWords;
    m_At += size;
    return true;
  }

  void ReadNumber() {
    if (!IsBegun()) {
      ReadVersion();
      return;
    }
    const std::string_view digits = TakeDigits();
    const std::size_t end = EndOf(IsLetter, m_At);
    if (String::EqualNoCase(m_Name.substr(m_At, end - m_At), "bit")) {
      m_At = end; // 64bit
      ++m_Version.OtherWords;
      return;
    }
    m_Version.Builds.push_back(WithoutZeros(digits));
  }

  void ReadVersion() {
    const std::string_view first = TakeDigits();
    if (ReadDate(first)) {
      return;
    }
    m_Version.Numbers.push_back(WithoutZeros(first));
    const char joint = At(m_At);
    while ((joint == '.' || joint == '_') && At(m_At) == joint && IsDigit(At(m_At + 1))) {
      ++m_At;
      m_Version.Numbers.push_back(WithoutZeros(TakeDigits()));
    }
    m_VersionEnd = m_At;
  }

  // Without one, dates would be later than every version: 20240210 as against
  // 2024.2 and 2024.10.
  bool ReadDate(std::string_view first) {
    std::string_view month;
    std::string_view day;
    std::size_t end = m_At;
    if (first.size() == 8 && !((At(m_At) == '.' || At(m_At) == '_') && IsDigit(At(m_At + 1)))) {
      month = first.substr(4, 2);
      day = first.substr(6, 2);
      first = first.substr(0, 4);
    } else if (first.size() == 4 && At(m_At) == '-' && EndOf(IsDigit, m_At + 1) == m_At + 3 &&
               At(m_At + 3) == '-' && EndOf(IsDigit, m_At + 4) == m_At + 6) {
      month = m_Name.substr(m_At + 1, 2);
      day = m_Name.substr(m_At + 4, 2);
      end = m_At + 6;
    }
    if (month.empty() || first < "1980" || first >= "2200" || month < "01" || month > "12" || day < "01" ||
        day > "31") {
      return false;
    }
    m_At = end;
    if (m_Version.Stage != k_Release) { // git-20240210 is no version, but later than git-20240101
      m_Version.StageNumber = first;
      m_Version.Builds = {WithoutZeros(month), WithoutZeros(day)};
      return true;
    }
    m_Version.Numbers = {first, WithoutZeros(month), WithoutZeros(day)};
    m_VersionEnd = end;
    return true;
  }

  void ReadWord() {
    const std::size_t start = m_At;
    m_At = EndOf(IsLetter, start);
    const std::string_view word = m_Name.substr(start, m_At - start);
    if (SkipProcessor(word) || ReadSuffix(word, start)) {
      return;
    }
    if (IsOneOf(k_AsideWords, word)) {
      m_Version.PutAside = m_Version.PutAside.empty() ? word : m_Version.PutAside;
      TakeDigits(); // old2
      return;
    }
    const auto* stage = std::find_if(k_StageWords.begin(), k_StageWords.end(), [word](const StageWord& one) {
      return String::EqualNoCase(one.Word, word);
    });
    if (stage != k_StageWords.end()) {
      ReadStage(stage->Stage);
    } else if (!IsOneOf(k_PlainWords, word)) {
      ++m_Version.OtherWords;
      if (IsBegun() || IsOneOf(k_PlatformWords, word)) {
        SkipAttached();
      } // else a number right behind it is the version: n7.1
    }
  }

  // x64, x86_64, x86-64, i686
  bool SkipProcessor(std::string_view word) {
    if (!String::EqualNoCase(word, "x") && !String::EqualNoCase(word, "i")) {
      return false;
    }
    const std::size_t end = EndOf(IsDigit, m_At);
    const std::string_view digits = m_Name.substr(m_At, end - m_At);
    static constexpr auto k_Processors =
        std::to_array<std::string_view>({"86", "64", "32", "386", "486", "586", "686"});
    if (!IsOneOf(k_Processors, digits)) {
      return false;
    }
    m_At = end;
    const std::string_view rest = m_Name.substr(end, 3);
    if (digits == "86" && (rest == "_64" || rest == "-64") && !IsDigit(At(end + 3))) {
      m_At += 3;
    }
    ++m_Version.OtherWords;
    return true;
  }

  // The letter of 2.79b, and of 4.0b2, where it means beta.
  bool ReadSuffix(std::string_view word, std::size_t start) {
    if (word.size() != 1 || !IsBegun()) {
      return false;
    }
    const bool attached = start == m_VersionEnd;
    const bool numbered = IsDigit(At(m_At));
    const bool early = String::EqualNoCase(word, "a") || String::EqualNoCase(word, "b");
    if (numbered && early && m_Version.Stage == k_Release) {
      ReadStage(String::EqualNoCase(word, "a") ? k_Alpha : k_Beta);
      return true;
    }
    if (!attached) {
      return false;
    }
    m_Version.Letter = word; // a number behind it is read as a build
    return true;
  }

  void ReadStage(Stages stage) {
    if (m_Version.Stage != k_Release) { // the first one tells: 4.2-rc1-git5
      ++m_Version.OtherWords;
      SkipAttached();
      return;
    }
    m_Version.Stage = stage;
    if (!IsBegun()) {
      return; // beta-4.2
    }
    const std::size_t digits = EndOf(IsParting, m_At);
    m_At = digits <= m_At + 1 && IsDigit(At(digits)) ? digits : m_At;
    m_Version.StageNumber = WithoutZeros(TakeDigits());
  }

  // The rest of linux64, gcc11.2 and py3.10.
  void SkipAttached() {
    const auto isPart = [](char c) { return IsDigit(c) || IsLetter(c); };
    if (!IsDigit(At(m_At))) {
      return;
    }
    m_At = EndOf(isPart, m_At);
    while (At(m_At) == '.' && IsDigit(At(m_At + 1))) {
      m_At = EndOf(isPart, m_At + 1);
    }
  }

  void ReadBracket() {
    const std::size_t end = EndOf(IsDigit, m_At + 1);
    if (IsBegun() && end > m_At + 1 && At(end) == ')') {
      m_Version.Copy = true;
      m_At = end;
    }
    ++m_At;
  }

  void ReadTilde() {
    if (++m_At == m_Name.size()) {
      m_Version.PutAside = m_Name.substr(m_At - 1);
    }
    m_Tilde = true;
  }

  std::string_view m_Name;
  FolderVersion& m_Version;
  std::size_t m_At = 0;
  std::size_t m_VersionEnd = std::string_view::npos;
  bool m_Tilde = false;
};

template <typename Value> int CompareValues(const Value& left, const Value& right) {
  return left < right ? -1 : static_cast<int>(right < left);
}

} // namespace

FolderVersion::FolderVersion(std::string_view name) : Stage(k_Release) {
  Reader(name, *this).Read();
}

int FolderVersion::Compare(const FolderVersion& other) const {
  const std::array<int, 7> orders = {
      CompareNumbers(Numbers, other.Numbers), String::CompareNoCase(Letter, other.Letter),
      CompareValues(Stage, other.Stage),      CompareNumbers(StageNumber, other.StageNumber),
      CompareNumbers(Builds, other.Builds),   CompareValues(other.OtherWords, OtherWords),
      CompareValues(other.Copy, Copy)};
  const auto* decides = std::find_if(orders.begin(), orders.end(), [](int order) { return order != 0; });
  return decides == orders.end() ? 0 : *decides;
}

int CompareVersions(std::string_view left, std::string_view right) {
  return FolderVersion(left).Compare(FolderVersion(right));
}
