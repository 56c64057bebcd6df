#include "host/application/jobs/FilesBefore.h"

#include "host/application/FileName.h"
#include "host/foundation/Characters.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/WholeNumber.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <set>
#include <thread>

// A file that is there after a program has ended well proves nothing: many
// programs leave existing files alone, and the one before may have failed a
// moment ago and left its own.
//
// Stamps alone do not tell. A program may give a file any time of modification,
// a file server has a clock of its own, and the clock of file systems goes on in
// steps: 4 ms on most, 2 s on some. So no stamp is compared with our clock.
//
//   - A file that was known beforehand counts when anything about it has
//     changed: inode, size, time of modification, time of change. Nobody can
//     set the last one but the file system.
//   - One that was not known counts when its time of change is not before the
//     start. What time it was there then is told by a file that we make there
//     for a moment.
//
// Both fail when the file was written within the same step of that clock. So
// where a known file bears the very stamp of the start, or where an attempt
// follows closely upon another one, the start waits for the next step.

namespace {

constexpr std::chrono::milliseconds k_StepPause{1};
constexpr std::chrono::milliseconds k_LongestStep{2500};
constexpr const char* k_Any = "any\n";
constexpr std::size_t k_LongestText = std::size_t{1} << 20U;

std::int64_t Nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// Makes a file in the folder for a moment; false where that is not possible.
bool ReadClock(const Path& folder, struct stat& status) {
  Descriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.IsOpen()) {
    std::string name = folder.Text() + "/.trovik-XXXXXX";
    file.Reset(mkostemp(name.data(), O_CLOEXEC));
    if (!file.IsOpen()) {
      return false;
    }
    unlink(name.c_str());
  }
  return fstat(file.Number(), &status) == 0;
}

} // namespace

FilesBefore::Identity::Identity(const struct stat& status)
    : Number(status.st_ino), Size(status.st_size), Modified(Nanoseconds(status.st_mtim)),
      Changed(Nanoseconds(status.st_ctim)) {}

void FilesBefore::Note(const std::vector<Path>& files, const std::vector<Path>& folders, bool closeEarlier) {
  *this = FilesBefore();
  m_Noted = true;
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  m_OurStart = Nanoseconds(now);
  std::set<std::string> places;
  for (const Path& folder : folders) {
    places.insert(folder.Text());
  }
  std::map<dev_t, std::set<std::int64_t>> stamps;
  for (const Path& file : files) {
    struct stat status {};
    if (CanBeAName(file) && stat(file.c_str(), &status) == 0) {
      m_Identities.emplace(file.Text(), status);
      stamps[status.st_dev].insert(Nanoseconds(status.st_ctim));
    }
    places.insert(file.Branch(false, true));
  }
  std::set<dev_t> read;
  for (const std::string& place : places) {
    struct stat folder {};
    if (stat(place.c_str(), &folder) != 0 || !read.insert(folder.st_dev).second) {
      continue;
    }
    struct stat clock {}; // files of a union mount may tell another device than its folders
    if (!ReadClock(Path(place), clock)) {
      continue;
    }
    const std::int64_t first = Nanoseconds(clock.st_ctim);
    const auto isClear = [&] {
      const std::int64_t start = Nanoseconds(clock.st_ctim);
      return start != first || (!closeEarlier && !stamps[clock.st_dev].contains(start));
    };
    const auto until = std::chrono::steady_clock::now() + k_LongestStep;
    while (!isClear() && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(k_StepPause);
      if (!ReadClock(Path(place), clock)) {
        break;
      }
    }
    m_Starts.emplace(clock.st_dev, Nanoseconds(clock.st_ctim));
  }
}

// "any" where nothing was noted, else a line for each thing: "now 1700000000000000000", "clock DEVICE STAMP",
// "file NUMBER SIZE MODIFIED CHANGED NAME", the name in hexadecimal digits.
std::string FilesBefore::Text() const {
  if (!m_Noted) {
    return k_Any;
  }
  std::string text = "now " + std::to_string(m_OurStart) + '\n';
  for (const auto& [device, start] : m_Starts) {
    text += "clock " + std::to_string(device) + ' ' + std::to_string(start) + '\n';
  }
  for (const auto& [name, identity] : m_Identities) {
    text += "file " + std::to_string(identity.Number) + ' ' + std::to_string(identity.Size) + ' ' +
            std::to_string(identity.Modified) + ' ' + std::to_string(identity.Changed) + ' ' + HexOf(name) +
            '\n';
    if (text.size() > k_LongestText) {
      return {};
    }
  }
  return text;
}

void FilesBefore::FromText(std::string_view text, bool ofThisMachine) {
  *this = FilesBefore();
  m_OfThisMachine = ofThisMachine;
  if (text == k_Any) {
    return;
  }
  m_Noted = true;
  bool sound = !text.empty() && text.back() == '\n';
  while (sound && !text.empty()) {
    const std::size_t end = text.find('\n');
    sound = ReadLine(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  m_Unknown = !sound;
}

bool FilesBefore::ReadLine(std::string_view line) {
  std::vector<std::string_view> words;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = line.find(' ');
    words.push_back(line.substr(0, end));
    line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  }
  std::vector<std::int64_t> numbers;
  for (std::size_t i = 1; i < words.size() && i <= 4; ++i) {
    const auto number = ReadWholeNumber<std::int64_t>(words[i]);
    if (!number) {
      return false;
    }
    numbers.push_back(*number);
  }
  if (words[0] == "now" && words.size() == 2) {
    m_OurStart = numbers[0];
    return true;
  }
  if (words[0] == "clock" && words.size() == 3) {
    m_Starts.emplace(static_cast<std::uint64_t>(numbers[0]), numbers[1]);
    return true;
  }
  const auto name = words[0] == "file" && words.size() == 6 ? BytesOfHex(words[5]) : std::nullopt;
  if (!name) {
    return false;
  }
  Identity identity;
  identity.Number = static_cast<std::uint64_t>(numbers[0]);
  identity.Size = numbers[1];
  identity.Modified = numbers[2];
  identity.Changed = numbers[3];
  m_Identities.emplace(*name, identity);
  return true;
}

// When the program started, by the clock of that file system as far as it is
// known. Another machine's numbers of file systems say nothing here: then the
// latest of its clocks counts, so that no file of before is taken for a new one.
std::int64_t FilesBefore::StartAt(std::uint64_t fileSystem) const {
  if (m_OfThisMachine) {
    const auto start = m_Starts.find(fileSystem);
    return start == m_Starts.end() ? m_OurStart : start->second;
  }
  std::optional<std::int64_t> latest;
  for (const auto& [ignored, start] : m_Starts) {
    latest = std::max(latest.value_or(start), start);
  }
  return latest.value_or(m_OurStart);
}

bool FilesBefore::IsWritten(const Path& file, const struct stat& now) const {
  if (!m_Noted || m_Unknown) {
    return !m_Unknown;
  }
  const auto known = m_Identities.find(file.Text());
  if (known != m_Identities.end()) {
    Identity identity(now);
    if (!m_OfThisMachine) {
      identity.Number = known->second.Number;
    }
    return known->second != identity;
  }
  return Nanoseconds(now.st_ctim) >= StartAt(now.st_dev);
}
