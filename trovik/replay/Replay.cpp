#include "trovik/replay/Replay.h"

#include "host/foundation/WholeNumber.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"

#include <csignal>
#include <cstring>
#include <utility>

namespace trovik {
namespace {

constexpr int lastSignal = 64;
constexpr int signalBase = 128; // what shells add to a signal's number

ProcessJob& processOf(Job* job) {
  auto* process = dynamic_cast<ProcessJob*>(job);
  if (process == nullptr) {
    throw UsageError{"jobs of this type do not run a program, so they judge no output", {}};
  }
  return *process;
}

/// The signal of a name ("KILL", "SIGKILL", in any case) or number; 0 for none.
int signalOf(const std::string& text) {
  if (const auto number = ReadWholeNumber<int>(text)) {
    return *number >= 1 && *number <= lastSignal ? *number : 0;
  }
  for (int signal = 1; signal <= lastSignal; ++signal) {
    const char* name = sigabbrev_np(signal);
    if (name != nullptr &&
        (String::EqualNoCase(text, name) || String::EqualNoCase(text, String("SIG") + name))) {
      return signal;
    }
  }
  return 0;
}

ProcessExit killedBy(int signal) {
  ProcessExit exit;
  exit.Code = signalBase + signal;
  exit.Signal = signal;
  return exit;
}

} // namespace

Replay::Replay(SmartHandle<Job> job, Receiver receiver)
    : job_(std::move(job)), process_(processOf(job_.Get())), receiver_(std::move(receiver)),
      splitter_([this](std::string_view line) { onLine(line); }) {
  job_->SetObserver(this);
  process_.AccountForLines();
  if (auto* render = dynamic_cast<RenderJob*>(&process_)) {
    render->TranslateImages();
  }
}

Replay::~Replay() {
  job_->SetObserver(nullptr);
}

void Replay::onLine(std::string_view line) {
  const bool undecided = process_.ErrorLine().empty();
  named_ = false;
  process_.WorkLine(line);
  LineAccount account = *process_.Account();
  // A job of a class of its own may name images and tell nothing.
  if (named_ && account.What == LineAccount::Fate::Ordinary) {
    account.What = LineAccount::Fate::Image;
    account.Image = result_.images.back();
  }
  ++result_.lines;
  std::size_t& count = result_.fates.at(static_cast<std::size_t>(account.What));
  ++count;
  const bool error = undecided && !process_.ErrorLine().empty();
  // Of the texts that are required, each line brings a new one; the last decides.
  const bool required = account.List != nullptr && std::string_view(account.List) == p_RequiredTexts;
  const bool success = account.What == LineAccount::Fate::Success && (count == 1 || required);
  if (error || (success && undecided)) {
    result_.decidingLine = result_.lines;
  }
  receiver_({result_.lines, line, account, error || success});
}

ReplayResult Replay::finish(const ProcessExit& exit, ImageInspector* inspector, Machine& machine) {
  splitter_.Finish();
  auto* render = dynamic_cast<RenderJob*>(&process_);
  if (render != nullptr && inspector != nullptr) {
    inspection_.emplace(*inspector, *render);
    waitFor(*inspection_, *inspector, machine);
  } else if (render != nullptr) {
    render->LeaveFilesUnseen();
  }
  const int status = process_.FinishWork(exit);
  result_.good = job_->IsFinished(status);
  result_.note = process_.Note();
  result_.rule = ruleOf(process_, ProcessJob::Ended::ByItself);
  result_.retryable = process_.IsWorthRepeating();
  if (result_.rule != VerdictRule::ErrorLine && (result_.rule != VerdictRule::Result || !result_.good)) {
    result_.decidingLine.reset();
  }
  if (render != nullptr && inspector != nullptr) {
    result_.files = fileRecords(*render);
  } else if (render != nullptr) {
    result_.expected = render->CheckedFiles().size();
  }
  return std::move(result_);
}

void Replay::OnImage(const Job& /*job*/, const Path& file) {
  named_ = true;
  const LineAccount* account = process_.Account();
  result_.images.push_back(account->Image.empty() ? file.Text() : account->Image);
}

String Replay::OnCheckFile(const Job& job, const Path& file) {
  return inspection_ ? inspection_->OnCheckFile(job, file) : String();
}

const char* nameOf(LineAccount::Fate fate) {
  switch (fate) {
  case LineAccount::Fate::Ordinary:
    return "ordinary";
  case LineAccount::Fate::Image:
    return "image";
  case LineAccount::Fate::Dropped:
    return "dropped";
  case LineAccount::Fate::Success:
    return "success";
  case LineAccount::Fate::Error:
    return "error";
  case LineAccount::Fate::IgnoredError:
    return "ignored error";
  }
  return "ordinary";
}

std::string listName(const LineAccount& account) {
  if (account.List == nullptr) {
    return {};
  }
  const std::string name = account.List;
  return name == p_ErrorStarts    ? "ErrorText"
         : name == p_ErrorIgnores ? "ErrorIgnore"
         : name == "SuccessTexts" ? "SuccessText"
                                  : name;
}

ProcessExit exitFrom(const std::string& text) {
  if (const auto number = ReadWholeNumber<int>(text)) {
    if (*number > signalBase && *number <= signalBase + lastSignal) {
      return killedBy(*number - signalBase);
    }
    if (*number >= 0 && *number <= 255) {
      return {*number, 0};
    }
    if (*number < 0 && *number >= -lastSignal) {
      return killedBy(-*number);
    }
  }
  constexpr std::string_view word = "signal ";
  const bool worded = text.starts_with(word);
  const int signal =
      worded || !ReadWholeNumber<int>(text) ? signalOf(worded ? text.substr(word.size()) : text) : 0;
  if (signal == 0) {
    throw UsageError{"--exit: " + inQuotes(text) + " is no way for a program to end",
                     "write its exit code from 0 to 255, or a signal such as SIGKILL or \"signal 9\""};
  }
  return killedBy(signal);
}

std::string exitText(const ProcessExit& exit) {
  if (exit.Signal == 0) {
    return "exit code " + std::to_string(exit.Code);
  }
  const char* description = sigdescr_np(exit.Signal);
  return "signal " + std::to_string(exit.Signal) +
         (description == nullptr ? std::string() : std::string(" (") + description + ")");
}

} // namespace trovik
