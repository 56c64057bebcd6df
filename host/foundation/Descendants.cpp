#include "host/foundation/Descendants.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/WholeNumber.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>

// A wrapper script that calls "timeout", a launcher that makes a session of its
// own, a daemon: each leaves the process group of the program that was started.
// When that ends, or is killed, they would go on and write into files of a work
// that may already run again.
//
// They are found by two things that children inherit and hardly any program
// changes. One is a number in the soft limit of RLIMIT_RTTIME, far beyond any
// time that a process could run for: it has no effect, survives a cleaned
// environment, needs no privileges and can be asked of any process of the same
// user. The other is the mark in the environment, for a system that sets this
// limit itself.
//
// Asking all processes of a machine costs milliseconds. So this process makes
// itself the parent of what has lost its own (PR_SET_CHILD_SUBREAPER), and the
// kernel's list of our children shows at once whether there is anyone but those
// that we know. Their descendants come to us when they end. As their parent we
// can also signal them without fear that a number was given away: it stays
// taken until we have reaped it.
//
// The kernel's list may lack an entry only when another one leaves it while it
// is read, and only the reading thread takes entries out.

namespace {

constexpr std::uint64_t k_MarkBit = std::uint64_t{1} << 62;
constexpr std::size_t k_EnvironmentLimit = std::size_t{4} << 20;

std::string ContentOf(const std::string& file, std::size_t limit) {
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  std::array<char, 16384> buffer{};
  while (text.size() < limit && (stream.read(buffer.data(), buffer.size()) || stream.gcount() > 0)) {
    text.append(buffer.data(), static_cast<std::size_t>(stream.gcount()));
  }
  return text;
}

std::string ProcFile(pid_t process, const char* name) {
  return "/proc/" + std::to_string(process) + name;
}

// FNV-1a, in the bits below the one that tells a mark from a limit.
std::uint64_t NumberOf(const String& mark) {
  std::uint64_t number = 0xcbf29ce484222325U;
  for (const char letter : mark) {
    number = (number ^ static_cast<unsigned char>(letter)) * 0x100000001b3U;
  }
  return k_MarkBit | (number >> 3U);
}

// The number that a process carries; 0 for none, or none that may be known.
std::uint64_t CarriedBy(pid_t process) {
  rlimit limit{};
  const bool known = prlimit(process, RLIMIT_RTTIME, nullptr, &limit) == 0;
  return known && limit.rlim_cur != RLIM_INFINITY && (limit.rlim_cur & k_MarkBit) != 0 ? limit.rlim_cur : 0;
}

// The mark in the environment of a process, or empty.
String MarkOf(pid_t process) {
  const std::string environment = '\0' + ContentOf(ProcFile(process, "/environ"), k_EnvironmentLimit) + '\0';
  const std::string before = '\0' + std::string(k_MarkVariable) + '=';
  const std::size_t begin = environment.find(before);
  return begin == std::string::npos ? String() : String(environment.c_str() + begin + before.size());
}

// Whether a process runs the program that this one runs. What an engine within
// another one's work starts is still that for a moment when it carries what the
// program is to carry.
bool RunsWhatThisRuns(pid_t process) {
  struct stat other {};
  struct stat own {};
  return stat(ProcFile(process, "/exe").c_str(), &other) == 0 && stat("/proc/self/exe", &own) == 0 &&
         other.st_dev == own.st_dev && other.st_ino == own.st_ino;
}

// The children of this process.
class Family {
public:
  /// Of which none is adopted, for as long as nobody asked for that.
  void Adopt() {
    const bool forked = m_Owner != getpid(); // then it is another one's list, and nothing is adopted
    if (forked) {
      m_List.Release(); // whoever forked may have closed all, and its number be another file's
    }
    if ((forked || !m_List.IsOpen()) && prctl(PR_SET_CHILD_SUBREAPER, 1) == 0) {
      m_Owner = getpid();
      m_Children.clear();
      const std::string file = "/proc/self/task/" + std::to_string(getpid()) + "/children";
      m_List.Reset(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    }
  }

  rlimit LimitWith(std::uint64_t number) {
    rlimit limit{};
    getrlimit(RLIMIT_RTTIME, &limit);
    m_Own = std::exchange(limit.rlim_cur, number);
    return limit;
  }

  void Begin(std::uint64_t number, pid_t program) { m_Programs.emplace_back(number, program); }
  void End(std::uint64_t number, pid_t program) {
    m_Programs.erase(std::find(m_Programs.begin(), m_Programs.end(), std::pair(number, program)));
  }

  /// The adopted ones with this number that still run. `ended` is its program,
  /// which has been reaped.
  std::vector<pid_t> WithNumber(std::uint64_t number, pid_t ended) {
    std::vector<pid_t> found;
    for (const pid_t child : Children()) {
      if (child != ended && IsProgram(child)) {
        continue;
      }
      const std::uint64_t carried = NumberOfChild(child);
      if (carried == 0 || carried == m_Own || Reap(child)) {
        continue;
      }
      if (carried == number) {
        found.push_back(child);
      } else if (!IsExpected(carried) && CarriedBy(child) == carried && !RunsWhatThisRuns(child)) {
        kill(child, SIGKILL); // whoever watched over it, a descendant of ours, is gone
      }
    }
    return found;
  }

private:
  std::uint64_t NumberOfChild(pid_t child) {
    const auto [known, isNew] = m_Children.try_emplace(child, 0);
    // One that nobody here waits for may have carried it for a moment only.
    if (isNew || (known->second != 0 && !IsExpected(known->second))) {
      known->second = CarriedBy(child);
      if (const String mark = known->second == 0 ? MarkOf(child) : String(); !mark.empty()) {
        known->second = NumberOf(mark);
      }
    }
    return known->second;
  }

  bool IsProgram(pid_t child) const {
    return std::any_of(m_Programs.begin(), m_Programs.end(),
                       [child](const auto& program) { return program.second == child; });
  }
  bool IsExpected(std::uint64_t number) const {
    return std::any_of(m_Programs.begin(), m_Programs.end(),
                       [number](const auto& program) { return program.first == number; });
  }

  std::vector<pid_t> Children() {
    std::vector<pid_t> children;
    if (!m_List.IsOpen() || m_Owner != getpid()) {
      return children;
    }
    ssize_t count = pread(m_List.Number(), m_Text.data(), m_Text.size(), 0);
    while (count == static_cast<ssize_t>(m_Text.size())) {
      m_Text.resize(m_Text.size() * 2);
      count = pread(m_List.Number(), m_Text.data(), m_Text.size(), 0);
    }
    const char* at = m_Text.data();
    const char* const end = at + std::max<ssize_t>(count, 0);
    for (pid_t child = 0; at < end;) {
      const auto [next, error] = std::from_chars(at, end, child);
      if (error != std::errc()) {
        break;
      }
      children.push_back(child);
      at = next + 1;
    }
    // A number that left the list may come back as another process.
    std::erase_if(m_Children, [&children](const auto& known) {
      return std::find(children.begin(), children.end(), known.first) == children.end();
    });
    return children;
  }

  bool Reap(pid_t child) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG) != 0 || info.si_pid != child) {
      return false;
    }
    m_Children.erase(child);
    return true;
  }

  pid_t m_Owner = 0;
  Descriptor m_List; // the kernel's list; open while this process adopts
  std::vector<char> m_Text = std::vector<char>(4096);
  std::map<pid_t, std::uint64_t> m_Children;               // those seen last, by what they carry
  std::vector<std::pair<std::uint64_t, pid_t>> m_Programs; // that are at work here
  rlim_t m_Own = RLIM_INFINITY;                            // what this process was started with
};

Family& OurFamily() {
  static Family family;
  return family;
}

} // namespace

void AdoptDescendants() {
  OurFamily().Adopt();
}

rlimit CarryingLimit(const String& mark) {
  return OurFamily().LimitWith(NumberOf(mark));
}

bool CarriesMark(pid_t process, const String& mark) {
  return (CarriedBy(process) == NumberOf(mark) && !RunsWhatThisRuns(process)) || MarkOf(process) == mark;
}

Descendants::Descendants(const String& mark, pid_t program)
    : m_Mark(mark), m_Number(NumberOf(mark)), m_Program(program) {
  OurFamily().Begin(m_Number, m_Program);
}

Descendants::~Descendants() {
  OurFamily().End(m_Number, m_Program);
}

std::vector<pid_t> Descendants::Adopted() {
  return OurFamily().WithNumber(m_Number, m_Program);
}

void ReapAdopted() {
  OurFamily().WithNumber(0, -1);
}

void Descendants::Signal(int number) {
  SignalProcesses([this](pid_t process) { return CarriesMark(process, m_Mark); }, number);
}

bool ReadProcessFacts(pid_t process, ProcessFacts& facts) {
  const std::string text = ContentOf(ProcFile(process, "/stat"), 4096);
  // The name in parentheses may hold anything, parentheses too.
  const std::size_t begin = text.find('(');
  const std::size_t end = text.rfind(')');
  if (begin == std::string::npos || end == std::string::npos || end + 2 >= text.size()) {
    return false;
  }
  std::vector<std::string> fields;
  for (std::size_t at = end + 2; at < text.size();) {
    const std::size_t next = std::min(text.find(' ', at), text.size());
    fields.push_back(text.substr(at, next - at));
    at = next + 1;
  }
  constexpr std::size_t groupField = 2;
  constexpr std::size_t startField = 19;
  if (fields.size() <= startField) {
    return false;
  }
  facts.Name = text.substr(begin + 1, end - begin - 1);
  facts.State = fields[0].empty() ? '?' : fields[0].front();
  facts.Group = std::atoi(fields[groupField].c_str());
  facts.StartTicks = std::strtoull(fields[startField].c_str(), nullptr, 10);
  return true;
}

namespace {

std::vector<pid_t> SignalListed(const std::function<bool(pid_t)>& isOne, int signal) {
  const auto runs = [](pid_t process) {
    ProcessFacts facts;
    return ReadProcessFacts(process, facts) && facts.State != 'Z' && facts.State != 'X';
  };
  std::vector<pid_t> found;
  std::error_code error;
  for (const auto& directory : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = directory.path().filename().string();
    const pid_t process = ReadWholeNumber<pid_t>(name).value_or(getpid());
    if (process == getpid() || !isOne(process)) {
      continue;
    }
    // Between the question and the signal a process may end and its number be
    // given away: a descriptor is taken first, and the question asked again.
    const Descriptor watched(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    if (watched.IsOpen() && isOne(process) && runs(process) &&
        syscall(SYS_pidfd_send_signal, watched.Number(), signal, nullptr, 0) == 0) {
      found.push_back(process);
    }
  }
  return found;
}

} // namespace

// One that starts another and ends while the list is gone through is asked too
// late, and the other is not on the list: an empty answer is asked for twice.
std::vector<pid_t> SignalProcesses(const std::function<bool(pid_t)>& isOne, int signal) {
  std::vector<pid_t> found = SignalListed(isOne, signal);
  return found.empty() ? SignalListed(isOne, signal) : found;
}
