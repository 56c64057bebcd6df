#include "trovik/reports/JobPrograms.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr std::size_t rangesOfAProgram = 5;

/// A program as the commands begin that run it.
struct KnownProgram {
  std::string word;
  std::string path;
};

bool beginsWith(const std::string& command, const std::string& word) {
  return command.starts_with(word) && (command.size() == word.size() || command[word.size()] == ' ');
}

/// The place of the program that a command runs; it is added where it is new.
/// Nothing for a command that cannot be read.
std::optional<std::size_t> placeOf(const std::string& command, std::vector<KnownProgram>& known) {
  // A job of many thousand attempts has one or two, so no command is split twice.
  for (std::size_t place = 0; place < known.size(); ++place) {
    if (beginsWith(command, known[place].word)) {
      return place;
    }
  }
  try {
    const std::vector<String> words = SplitCommandLine(command);
    if (words.empty()) {
      return std::nullopt;
    }
    known.push_back({EnquoteWord(words.front()), words.front()});
    return known.size() - 1;
  } catch (Exception* exception) {
    takeText(exception); // a foreign queue
    return std::nullopt;
  }
}

} // namespace

std::vector<ProgramShare> programsOf(const JobRecord& job, const std::vector<AttemptRecord>& attempts) {
  std::vector<KnownProgram> known;
  std::vector<std::pair<std::size_t, RunSet>> rendered; // program and frames, in the order of attempts
  for (const AttemptRecord& attempt : attempts) {
    const bool good = attempt.state == AttemptState::Good;
    if (attempt.command.empty() || (!good && attempt.good.empty())) {
      continue;
    }
    if (const auto place = placeOf(attempt.command, known)) {
      RunSet frames = attempt.good;
      if (good && job.hasFrames) {
        frames.add(attempt.run);
      }
      rendered.emplace_back(*place, std::move(frames));
    }
  }
  std::vector<ProgramShare> programs;
  programs.reserve(known.size());
  for (const KnownProgram& program : known) {
    programs.push_back({program.path, {}});
  }
  RunSet seen;
  for (auto one = rendered.rbegin(); one != rendered.rend(); ++one) {
    auto& [place, frames] = *one;
    for (const FrameRun& run : frames.runs()) {
      if (known.size() == 1) {
        programs[place].frames.add(run);
        continue;
      }
      for (const FrameRun& rest : FramesOutside(run, seen.runs())) {
        programs[place].frames.add(rest);
      }
      seen.add(run);
    }
  }
  if (job.hasFrames) {
    std::erase_if(programs, [](const ProgramShare& program) { return program.frames.empty(); });
  } else if (!rendered.empty()) {
    programs = {programs[rendered.back().first]};
  }
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
