#include "trovik/images/ImageHelper.h"

#include "trovik/images/ImageProtocol.h"
#include "trovik/machine/IdleCores.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

constexpr int triesLimit = 2; // of a file that the helper dies of
constexpr Duration wakeInterval = std::chrono::seconds(2);
constexpr Duration standstillTime = std::chrono::seconds(10); // of a program that has only idle cores
constexpr Duration restTime = std::chrono::seconds(30);       // after which it ends when nobody asks
constexpr std::size_t filesForOneMore = 4; // wait for each program when one more is started
// Each holds its file with all pixels, and the memory belongs to the renderers.
constexpr std::size_t laneLimit = 16;

/// Whether a problem is perhaps not the file's.
bool isDoubtful(const std::string& problem) {
  return problem.starts_with(notLookedInto) || problem.find(tooMuchMemory) != std::string::npos;
}

} // namespace

std::size_t ImageHelper::onIdleCores(std::size_t own) {
  return std::min(idleCores(own), laneLimit);
}

ImageHelper::ImageHelper(Path program, Now now, Duration patience, Room room)
    : program_(std::move(program)), now_(std::move(now)), patience_(patience), room_(std::move(room)) {
  lanes_.emplace_back().first = true;
}
ImageHelper::~ImageHelper() = default;

void ImageHelper::ask(const Path& file, bool refuseFlat, Answer answer) {
  ask(CheckRequest{file.Text(), refuseFlat}, std::move(answer));
}

void ImageHelper::draw(const Path& file, const Path& picture, int room, Answer answer) {
  ask(CheckRequest{file.Text(), false, picture.Text(), room}, std::move(answer));
}

void ImageHelper::ask(CheckRequest request, Answer answer) {
  questions_.push_back({std::move(request), std::move(answer), 0});
  askFirst();
}

void ImageHelper::rest() {
  if (waiting() == 0) {
    for (Lane& lane : lanes_) {
      lane.process.reset();
    }
  }
}

std::size_t ImageHelper::underWay() const {
  return static_cast<std::size_t>(
      std::count_if(lanes_.begin(), lanes_.end(), [](const Lane& lane) { return lane.asked.has_value(); }));
}

int ImageHelper::descriptor() const {
  return underWay() > 0 ? answers_.Number() : -1;
}

std::optional<Clock::time_point> ImageHelper::deadline() const {
  std::optional<Clock::time_point> first;
  for (const Lane& lane : lanes_) {
    if (lane.asked || (!lane.first && lane.process != nullptr)) {
      const Clock::time_point end =
          lane.asked ? std::min(lane.since + patience_, lane.nextWake) : lane.since + restTime;
      first = std::min(first.value_or(end), end);
    }
  }
  return first;
}

void ImageHelper::askFirst() {
  Lane& first = lanes_.front();
  while (!first.asked && !questions_.empty()) {
    try {
      start(first);
      give(first);
    } catch (const std::system_error& error) {
      const Question question = takeNext(first);
      question.answer({std::string(notLookedInto) + "cannot start " + inQuotes(program_.Text()) + ": " +
                           error.code().message(),
                       false, 0, 0});
    }
  }
}

void ImageHelper::askOthers(std::size_t atWork) {
  try {
    while (firstForAll() != questions_.end() && room_(std::max(atWork, underWay())) > underWay()) {
      const auto lane =
          std::find_if(lanes_.begin(), lanes_.end(), [](const Lane& one) { return !one.asked; });
      const bool isNew = lane == lanes_.end() || lane->process == nullptr;
      if (isNew && questions_.size() < filesForOneMore * underWay()) {
        return; // not worth its start
      }
      Lane& chosen = lane == lanes_.end() ? lanes_.emplace_back() : *lane;
      start(chosen);
      give(chosen);
    }
  } catch (const std::system_error&) {
    return; // the first one does it all
  }
}

/// Throws std::system_error where the program cannot be started.
void ImageHelper::start(Lane& lane) {
  if (lane.process != nullptr && lane.process->descriptor() >= 0) {
    return;
  }
  if (!answers_.IsOpen()) {
    answers_.Reset(epoll_create1(EPOLL_CLOEXEC));
    if (!answers_.IsOpen()) {
      throw std::system_error(errno, std::system_category());
    }
  }
  lane.process =
      std::make_unique<HelperProcess>(std::vector<String>{program_.Text(), "check"},
                                      lane.first ? HelperProcess::Cores::Any : HelperProcess::Cores::Idle);
  lane.hasAnswered = false;
}

/// Those for the first alone come before.
ImageHelper::Questions::iterator ImageHelper::firstForAll() {
  return std::find_if(questions_.begin(), questions_.end(),
                      [](const Question& question) { return !question.forFirst; });
}

ImageHelper::Question ImageHelper::takeNext(const Lane& lane) {
  const auto next = lane.first ? questions_.begin() : firstForAll();
  Question question = std::move(*next);
  questions_.erase(next);
  return question;
}

/// Gives a lane the question that has waited longest. Throws std::system_error,
/// and the question still waits then.
void ImageHelper::give(Lane& lane) {
  // An end that nobody waits for is not to wake anybody, so it is watched only now.
  epoll_event event{};
  event.events = EPOLLIN;
  if (epoll_ctl(answers_.Number(), EPOLL_CTL_ADD, lane.process->descriptor(), &event) != 0) {
    throw std::system_error(errno, std::system_category());
  }
  lane.asked = takeNext(lane);
  lane.process->send(requestLine(lane.asked->request));
  lane.since = now_();
  lane.nextWake = lane.since + wakeInterval;
}

/// The question that a lane was given, which is free then.
ImageHelper::Question ImageHelper::take(Lane& lane) {
  if (lane.process != nullptr && lane.process->descriptor() >= 0) {
    epoll_ctl(answers_.Number(), EPOLL_CTL_DEL, lane.process->descriptor(), nullptr);
  }
  Question question = std::move(*lane.asked);
  lane.asked.reset();
  return question;
}

void ImageHelper::advance(Clock::time_point now) {
  const std::size_t atWork = underWay();            // who has answered may run for a moment yet
  for (std::size_t i = 0; i < lanes_.size(); ++i) { // answers may ask, so there may be more
    advance(lanes_[i], now);
  }
  askFirst();
  askOthers(atWork);
}

void ImageHelper::advance(Lane& lane, Clock::time_point now) {
  if (!lane.asked) {
    if (!lane.first && lane.process != nullptr && now >= lane.since + restTime) {
      lane.process.reset();
    }
    return;
  }
  const bool runs = lane.process->advance();
  if (const std::optional<std::string> line = lane.process->line()) {
    takeLine(lane, *line);
  } else if (!runs) {
    takeEnd(lane);
  } else if (!lane.first && now >= lane.since + (lanes_.front().asked ? standstillTime : wakeInterval)) {
    leaveToFirst(lane); // perhaps it gets no core
  } else if (now >= lane.since + patience_) {
    lane.process.reset();
    finish(lane, "Could not be decoded within " +
                     std::to_string(std::chrono::duration_cast<std::chrono::seconds>(patience_).count()) +
                     " s");
  } else if (now >= lane.nextWake) {
    lane.nextWake = now + wakeInterval;
    lane.process->wake(); // other files wait for it
  }
}

void ImageHelper::takeLine(Lane& lane, const std::string& line) {
  const std::optional<Inspection> inspection = answerFrom(line);
  if (!lane.first && (!inspection || isDoubtful(inspection->problem))) {
    leaveToFirst(lane);
    return;
  }
  if (inspection) {
    lane.hasAnswered = true;
    finish(lane, *inspection);
    return;
  }
  // What is no answer is what the system says about a program that it cannot
  // load, or else a helper gone astray.
  lane.process.reset();
  finish(lane,
         std::string(notLookedInto) + inQuotes(program_.Text()) + " said " + inQuotes(cutToWidth(line, 300)));
}

void ImageHelper::takeEnd(Lane& lane) {
  if (!lane.first) {
    leaveToFirst(lane);
    return;
  }
  const HelperProcess::End end = lane.process->end();
  lane.process.reset();
  if (++lane.asked->tries < triesLimit && (end.signal != 0 || lane.hasAnswered)) {
    questions_.push_front(take(lane)); // perhaps it was not this file
    return;
  }
  finish(lane, end.signal != 0 ? "The image library crashed on it"
                               : std::string(notLookedInto) + inQuotes(program_.Text()) + ' ' + end.text);
}

/// What came of a file beside others says nothing of the file alone: it may
/// have had no core, or too little memory.
void ImageHelper::leaveToFirst(Lane& lane) {
  lane.process.reset();
  lane.asked->forFirst = true;
  questions_.insert(firstForAll(), take(lane));
}

void ImageHelper::finish(Lane& lane, const std::string& problem) {
  finish(lane, Inspection{problem, false, 0, 0});
}

void ImageHelper::finish(Lane& lane, const Inspection& inspection) {
  lane.since = now_();
  const Question question = take(lane);
  question.answer(inspection); // which may ask
}

std::vector<Inspection> inspectAll(ImageInspector& inspector, const std::vector<Path>& files,
                                   bool refuseFlat) {
  std::vector<Inspection> inspections(files.size());
  std::size_t waiting = files.size();
  for (std::size_t i = 0; i < files.size(); ++i) {
    inspector.ask(files[i], refuseFlat, [&inspections, &waiting, i](const Inspection& inspection) {
      inspections[i] = inspection;
      --waiting;
    });
  }
  LocalMachine machine;
  inspector.advance(machine.now());
  while (waiting > 0) {
    std::vector<pollfd> descriptors = {{inspector.descriptor(), POLLIN, 0}};
    const std::optional<Clock::time_point> deadline = inspector.deadline();
    machine.wait(descriptors, deadline ? std::optional<Duration>(*deadline - machine.now()) : std::nullopt);
    inspector.advance(machine.now());
  }
  return inspections;
}

} // namespace trovik
