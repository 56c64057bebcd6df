#include "trovik/works/OutcomeText.h"

#include "host/foundation/Quoting.h"

namespace trovik {

std::string commandText(const ProcessStart& start) {
  std::string text;
  for (const String& word : start.Arguments) {
    text += (text.empty() ? "" : " ") + EnquoteWord(word);
  }
  return text;
}

VerdictRule ruleOf(const ProcessJob& job, ProcessJob::Ended ended) {
  switch (job.DecidedBy()) {
  case ProcessJob::Rule::None:
    return VerdictRule::None;
  case ProcessJob::Rule::Ended:
    switch (ended) {
    case ProcessJob::Ended::TimedOut:
      return VerdictRule::RunTimeLimit;
    case ProcessJob::Ended::Silent:
      return VerdictRule::SilenceLimit;
    case ProcessJob::Ended::Lost:
      return VerdictRule::Engine;
    default:
      return VerdictRule::Canceled;
    }
  case ProcessJob::Rule::Start:
    return VerdictRule::Start;
  case ProcessJob::Rule::ErrorLine:
    return VerdictRule::ErrorLine;
  case ProcessJob::Rule::Signal:
    return VerdictRule::Signal;
  case ProcessJob::Rule::Result:
    return VerdictRule::Result;
  case ProcessJob::Rule::Files:
    return VerdictRule::Files;
  }
  return VerdictRule::None;
}

std::vector<FileRecord> fileRecords(const RenderJob& job) {
  std::vector<FileRecord> records;
  records.reserve(job.CheckedFiles().size());
  for (const RenderJob::WorkFile& file : job.CheckedFiles()) {
    FileRecord record;
    record.frame = file.Frame;
    record.path = file.File.Text();
    record.checked = true;
    record.problem = file.Problem;
    record.size = file.Size;
    record.modified = file.Modified;
    records.push_back(std::move(record));
  }
  return records;
}

std::string alikeKey(const std::string& reason) {
  constexpr std::size_t longest = 500;
  std::string key;
  for (const char c : reason) {
    const bool digit = c >= '0' && c <= '9';
    if (!digit) {
      key += c;
    } else if (key.empty() || key.back() != '#') {
      key += '#';
    }
    if (key.size() >= longest) {
      break;
    }
  }
  return key;
}

} // namespace trovik
