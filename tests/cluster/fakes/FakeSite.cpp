#include "tests/cluster/fakes/FakeSite.h"

#include "host/foundation/Exception.h"
#include "tests/cluster/fakes/FakeNode.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <type_traits>

// The list of jobs is a line for each array and a file of plain records with
// its tasks, so that a site of ten thousand of them is read in a millisecond.

namespace trovik::fake {
namespace {

static_assert(std::is_trivially_copyable_v<Task>);

std::string hexOf(const std::string& text) {
  std::ostringstream hex;
  hex << 'x' << std::hex << std::setfill('0');
  for (const char byte : text) {
    hex << std::setw(2) << static_cast<int>(static_cast<unsigned char>(byte));
  }
  return hex.str();
}

std::string textOf(const std::string& hex) {
  std::string text;
  for (std::size_t i = 1; i + 1 < hex.size(); i += 2) {
    text += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return text;
}

std::optional<std::string> bytesOf(const Path& file) {
  std::ifstream stream(file.c_str(), std::ios::binary);
  if (!stream) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// Replaces a file so that no reader sees half of it.
void write(const Path& file, const std::string& bytes) {
  const std::string temporary = file.Text() + ".new";
  std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
  stream << bytes;
  stream.close();
  if (!stream || std::rename(temporary.c_str(), file.c_str()) != 0) {
    throw std::runtime_error("cannot write " + file.Text());
  }
}

Time realTime() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

} // namespace

Site::Site(Path directory, Access access) : directory_(std::move(directory)) {
  mkdir(directory_.c_str(), 0777);
  std::ifstream settings(file("settings").c_str());
  for (std::string line; std::getline(settings, line);) {
    if (const std::size_t equals = line.find('='); equals != std::string::npos) {
      settings_.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
  }
  if (access == Access::Change || !isApart()) {
    lock();
  }
  if (const auto told = bytesOf(file("now"))) {
    now_ = std::stod(*told);
  } else {
    const auto begin = bytesOf(file("begin"));
    if (!begin) {
      std::ostringstream text;
      text << std::setprecision(17) << realTime();
      write(file("begin"), text.str());
    }
    now_ = begin ? realTime() - std::stod(*begin) : 0;
  }
  load();
}

void Site::lock() {
  lock_.Reset(open(file("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  if (!lock_.IsOpen()) {
    throw std::runtime_error("cannot open " + file("lock").Text() + ": " + std::strerror(errno));
  }
  while (flock(lock_.Number(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      throw std::runtime_error("cannot lock " + file("lock").Text() + ": " + std::strerror(errno));
    }
  }
}

Path Site::file(const std::string& name) const {
  Path path = directory_;
  return path /= String(name);
}

double Site::setting(const std::string& key, double standard) const {
  for (const auto& [name, value] : settings_) {
    if (name == key) {
      return std::stod(value);
    }
  }
  std::string variable = "FAKE_SLURM_";
  for (const char byte : key) {
    variable += static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
  }
  const char* value = std::getenv(variable.c_str()); // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? standard : std::stod(value);
}

bool Site::isSet(const std::string& key, const std::string& value) const {
  return std::find(settings_.begin(), settings_.end(), std::pair(key, value)) != settings_.end();
}

bool Site::hasSwitch(const std::string& name) const {
  return access(file(name).c_str(), F_OK) == 0;
}

Array* Site::find(std::int64_t id) {
  const auto found =
      std::find_if(arrays_.begin(), arrays_.end(), [id](const Array& array) { return array.id == id; });
  return found == arrays_.end() ? nullptr : &*found;
}

std::size_t Site::slots() const {
  return static_cast<std::size_t>(setting("slots", 100));
}

std::int64_t Site::add(Array array) {
  // Slurm counts every task as a job.
  array.id = arrays_.empty() ? 1 : arrays_.back().id + static_cast<std::int64_t>(arrays_.back().tasks.size());
  arrays_.push_back(std::move(array));
  added_ = true;
  return arrays_.back().id;
}

std::size_t Site::size() const {
  const Time old = now_ - setting("min_age", 300);
  std::size_t count = 0;
  for (const Array& array : arrays_) {
    count += static_cast<std::size_t>(
        std::count_if(array.tasks.begin(), array.tasks.end(), [old](const Task& task) {
          return task.state == State::Pending || task.state == State::Running || task.ended > old;
        }));
  }
  return count;
}

Time Site::durationOf(const Array& array, std::size_t place) const {
  // The same for the same work, and different from its neighbours'.
  const std::uint64_t mixed =
      (static_cast<std::uint64_t>(array.id) * 1'000'003 + place) * 0x9E3779B97F4A7C15ULL >> 40U;
  const double part = static_cast<double>(mixed) / static_cast<double>(1U << 24U);
  return setting("duration", 30) * (1 + setting("spread", 0.2) * (2 * part - 1));
}

Time Site::endOf(const Array& array, const Task& task, std::size_t index) const {
  return task.worked +
         (array.works == 0 ? setting("duration", 30)
                           : durationOf(array, index * array.perTask + static_cast<std::size_t>(task.place)));
}

void Site::end(Array& array, Task& task, State state, Time at) {
  task.state = state;
  task.ended = at;
  array.changed = true;
}

void Site::cancel(Array& array, Task& task) {
  if (task.state == State::Pending) {
    end(array, task, State::CanceledUnseen, now_);
  } else if (task.state == State::Running) {
    Node(array, task, static_cast<std::size_t>(&task - array.tasks.data())).interrupt();
    task.waitStatus = 15;
    end(array, task, State::Canceled, now_);
  }
}

/// Starts what may run.
void Site::start(Time at) {
  std::size_t running = 0;
  for (const Array& array : arrays_) {
    running +=
        static_cast<std::size_t>(std::count_if(array.tasks.begin(), array.tasks.end(), [](const Task& task) {
          return task.state == State::Running;
        }));
  }
  const std::size_t slots = this->slots();
  for (Array& array : arrays_) {
    auto own = std::count_if(array.tasks.begin(), array.tasks.end(),
                             [](const Task& task) { return task.state == State::Running; });
    for (std::size_t i = 0; i < array.tasks.size() && running < slots; ++i) {
      if (array.throttle > 0 && own >= array.throttle) {
        break;
      }
      Task& task = array.tasks[i];
      if (task.state != State::Pending || task.held != 0) {
        continue;
      }
      task.state = State::Running;
      task.node = static_cast<std::int32_t>(i % std::max<std::size_t>(slots / 16, 1)) + 1;
      task.started = at;
      task.worked = at;
      task.place = 0;
      task.claim = 0;
      array.changed = true;
      work(array, i, at);
      if (task.state == State::Running) {
        ++running;
        ++own;
      }
    }
  }
}

/// Lets a running task do what it does at that time.
void Site::work(Array& array, std::size_t index, Time at) {
  Task& task = array.tasks[index];
  array.changed = true;
  if (array.works == 0) {
    if (at >= endOf(array, task, index)) {
      end(array, task, State::Completed, at);
    }
    return;
  }
  try {
    Node node(array, task, index);
    if (node.isCanceled()) {
      node.interrupt();
      end(array, task, State::Completed, at);
      return;
    }
    if (task.claim != 0 && at >= endOf(array, task, index)) {
      node.finish(at - task.worked);
      ++task.place;
      task.claim = 0;
      task.worked = at;
    }
    if (task.claim == 0) {
      node.skipEnded();
      if (!node.place()) {
        end(array, task, State::Completed, at);
        return;
      }
      node.claim();
      task.beaten = -1e18;
    }
    if (at - task.beaten >= setting("beat", 5)) {
      node.beat();
      task.beaten = at;
    }
  } catch (Exception* exception) {
    // As a task that cannot reach its folder.
    const std::string problem = takeText(exception);
    std::ofstream(file("problems").c_str(), std::ios::app) << problem << '\n';
    task.waitStatus = 1 << 8;
    end(array, task, State::Failed, at);
  }
}

void Site::advance() {
  start(now_);
  struct Running {
    Array* array;
    std::size_t index;
  };
  for (;;) {
    std::vector<Running> running;
    for (Array& array : arrays_) {
      for (std::size_t i = 0; i < array.tasks.size(); ++i) {
        if (array.tasks[i].state == State::Running) {
          running.push_back({&array, i});
        }
      }
    }
    std::vector<std::pair<Time, Running>> due;
    for (const Running& each : running) {
      const Time at = endOf(*each.array, each.array->tasks[each.index], each.index);
      if (at <= now_) {
        due.emplace_back(at, each);
      }
    }
    if (due.empty()) {
      for (const Running& each : running) {
        if (now_ - each.array->tasks[each.index].beaten >= setting("beat", 5)) {
          work(*each.array, each.index, now_);
        }
      }
      return;
    }
    std::sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [at, each] : due) {
      work(*each.array, each.index, at);
      if (each.array->tasks[each.index].state != State::Running) {
        start(at);
      }
    }
  }
}

void Site::load() {
  std::ifstream list(file("arrays").c_str());
  for (std::string line; std::getline(list, line);) {
    std::istringstream fields(line);
    Array array;
    std::size_t tasks = 0;
    fields >> array.id >> tasks >> array.throttle >> array.perTask >> array.works >> array.name >>
        array.folder;
    const auto records = bytesOf(file(std::to_string(array.id) + ".tasks"));
    if (!fields || !records || records->size() != tasks * sizeof(Task)) {
      throw std::runtime_error("damaged: " + file("arrays").Text() + ": " + line);
    }
    array.name = textOf(array.name);
    array.folder = textOf(array.folder);
    array.tasks.resize(tasks);
    std::memcpy(array.tasks.data(), records->data(), records->size());
    array.changed = false;
    arrays_.push_back(std::move(array));
  }
}

void Site::save() {
  std::ostringstream list;
  for (Array& array : arrays_) {
    list << array.id << ' ' << array.tasks.size() << ' ' << array.throttle << ' ' << array.perTask << ' '
         << array.works << ' ' << hexOf(array.name) << ' ' << hexOf(array.folder) << '\n';
    if (std::exchange(array.changed, false)) {
      std::string records(array.tasks.size() * sizeof(Task), '\0');
      std::memcpy(records.data(), array.tasks.data(), records.size());
      write(file(std::to_string(array.id) + ".tasks"), records);
    }
  }
  if (std::exchange(added_, false)) {
    write(file("arrays"), list.str());
  }
}

} // namespace trovik::fake
