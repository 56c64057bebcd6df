#include "trovik/images/ImageHelper.h"

#include "trovik/images/ImageProtocol.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

constexpr int triesLimit = 2; // of a file that the helper dies of
constexpr Duration wakeInterval = std::chrono::seconds(2);

} // namespace

ImageHelper::ImageHelper(Path program, Now now, Duration patience)
    : program_(std::move(program)), now_(std::move(now)), patience_(patience) {}
ImageHelper::~ImageHelper() = default;

void ImageHelper::ask(const Path& file, bool refuseFlat, Answer answer) {
  ask(CheckRequest{file.Text(), refuseFlat}, std::move(answer));
}

void ImageHelper::draw(const Path& file, const Path& picture, int room, Answer answer) {
  ask(CheckRequest{file.Text(), false, picture.Text(), room}, std::move(answer));
}

void ImageHelper::ask(CheckRequest request, Answer answer) {
  questions_.push_back({std::move(request), std::move(answer), 0});
  askNext();
}

void ImageHelper::rest() {
  if (questions_.empty()) {
    process_.reset();
  }
}

int ImageHelper::descriptor() const {
  return asked_ ? process_->descriptor() : -1;
}

std::optional<Clock::time_point> ImageHelper::deadline() const {
  return asked_ ? std::optional(std::min(since_ + patience_, nextWake_)) : std::nullopt;
}

void ImageHelper::askNext() {
  while (!asked_ && !questions_.empty()) {
    if (process_ == nullptr || process_->descriptor() < 0) {
      try {
        process_ = std::make_unique<HelperProcess>(std::vector<String>{program_.Text(), "check"});
        hasAnswered_ = false;
      } catch (const std::system_error& error) {
        finish(std::string(notLookedInto) + "cannot start " + inQuotes(program_.Text()) + ": " +
               error.code().message());
        continue;
      }
    }
    Question& question = questions_.front();
    ++question.tries;
    process_->send(requestLine(question.request));
    since_ = now_();
    nextWake_ = since_ + wakeInterval;
    asked_ = true;
  }
}

void ImageHelper::advance(Clock::time_point now) {
  if (!asked_) {
    return;
  }
  const bool runs = process_->advance();
  if (const std::optional<std::string> line = process_->line()) {
    takeLine(*line);
  } else if (!runs) {
    takeEnd();
  } else if (now >= since_ + patience_) {
    process_.reset();
    finish("Could not be decoded within " +
           std::to_string(std::chrono::duration_cast<std::chrono::seconds>(patience_).count()) + " s");
  } else if (now >= nextWake_) {
    nextWake_ = now + wakeInterval;
    process_->wake(); // all other files wait for it
  }
  askNext();
}

void ImageHelper::takeLine(const std::string& line) {
  if (const std::optional<Inspection> inspection = answerFrom(line)) {
    hasAnswered_ = true;
    finish(*inspection);
    return;
  }
  // What is no answer is what the system says about a program that it cannot
  // load, or else a helper gone astray.
  process_.reset();
  finish(std::string(notLookedInto) + inQuotes(program_.Text()) + " said " + inQuotes(cutToWidth(line, 300)));
}

void ImageHelper::takeEnd() {
  const HelperProcess::End end = process_->end();
  process_.reset();
  asked_ = false;
  if (questions_.front().tries < triesLimit && (end.signal != 0 || hasAnswered_)) {
    return; // perhaps it was not this file
  }
  finish(end.signal != 0 ? "The image library crashed on it"
                         : std::string(notLookedInto) + inQuotes(program_.Text()) + ' ' + end.text);
}

void ImageHelper::finish(const std::string& problem) {
  finish(Inspection{problem, false, 0, 0});
}

void ImageHelper::finish(const Inspection& inspection) {
  asked_ = false;
  const Question question = std::move(questions_.front());
  questions_.pop_front();
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
  while (waiting > 0) {
    std::vector<pollfd> descriptors = {{inspector.descriptor(), POLLIN, 0}};
    const std::optional<Clock::time_point> deadline = inspector.deadline();
    machine.wait(descriptors, deadline ? std::optional<Duration>(*deadline - machine.now()) : std::nullopt);
    inspector.advance(machine.now());
  }
  return inspections;
}

} // namespace trovik
