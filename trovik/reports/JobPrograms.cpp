#include "trovik/reports/JobPrograms.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr std::size_t rangesOfAProgram = 5;

bool beginsWith(const std::string& command, const std::string& word) {
  return command.starts_with(word) && (command.size() == word.size() || command[word.size()] == ' ');
}

} // namespace

/// The place of the program that a command runs; it is added where it is new.
/// Nothing for a command that cannot be read.
std::optional<std::uint32_t> JobPrograms::placeOf(const std::string& command) {
  // A job of many thousand attempts has one or two, so no command is split twice.
  for (std::size_t place = 0; place < programs_.size(); ++place) {
    if (beginsWith(command, programs_[place].word)) {
      return static_cast<std::uint32_t>(place);
    }
  }
  try {
    const std::vector<String> words = SplitCommandLine(command);
    if (words.empty()) {
      return std::nullopt;
    }
    programs_.push_back({EnquoteWord(words.front()), words.front()});
    return static_cast<std::uint32_t>(programs_.size() - 1);
  } catch (Exception* exception) {
    takeText(exception); // a foreign queue
    return std::nullopt;
  }
}

/// Whether the program has rendered the frames right before these just now.
bool JobPrograms::continues(std::uint32_t program, const FrameRun& run) const {
  return hasFrames_ && !rendered_.empty() && rendered_.back().program == program &&
         std::int64_t{rendered_.back().frames.Last} + 1 == run.First;
}

void JobPrograms::add(const AttemptRecord& attempt) {
  const bool good = attempt.state == AttemptState::Good;
  if (attempt.command.empty() || (!good && attempt.good.empty())) {
    return;
  }
  if (const auto place = placeOf(attempt.command)) {
    RunSet frames = attempt.good;
    if (good) {
      frames.add(attempt.run);
    }
    for (const FrameRun& run : frames.runs()) {
      if (continues(*place, run)) {
        rendered_.back().frames.Last = run.Last;
      } else {
        rendered_.push_back({*place, run});
      }
    }
  }
}

std::vector<ProgramShare> JobPrograms::shares() const {
  std::vector<ProgramShare> programs;
  programs.reserve(programs_.size());
  for (const Program& program : programs_) {
    programs.push_back({program.path, {}});
  }
  if (!hasFrames_) {
    return rendered_.empty() ? std::vector<ProgramShare>()
                             : std::vector<ProgramShare>{programs[rendered_.back().program]};
  }
  RunSet seen;
  for (auto one = rendered_.rbegin(); one != rendered_.rend(); ++one) {
    RunSet& frames = programs[one->program].frames;
    if (programs.size() == 1) {
      frames.add(one->frames);
      continue;
    }
    for (const FrameRun& rest : FramesOutside(one->frames, seen.runs())) {
      frames.add(rest);
    }
    seen.add(one->frames);
  }
  std::erase_if(programs, [](const ProgramShare& program) { return program.frames.empty(); });
  return programs;
}

std::string programsText(const std::vector<ProgramShare>& programs) {
  std::string text = "rendered by " + counted(programs.size(), "program") + ": ";
  for (std::size_t i = 0; i < programs.size(); ++i) {
    text += (i == 0 ? "" : ", ") + inQuotes(programs[i].program);
    if (!programs[i].frames.empty()) {
      text += " (" + programs[i].frames.text(rangesOfAProgram) + ')';
    }
  }
  return text;
}

Json programsJson(const JobRecord& job, const std::vector<ProgramShare>& programs) {
  Json list = Json::array();
  for (const ProgramShare& program : programs) {
    list.push_back({{"program", program.program},
                    {"frames", job.hasFrames ? Json(program.frames.text()) : Json(nullptr)}});
  }
  return list;
}

} // namespace trovik
