#pragma once

#include "host/application/jobs/LineAccount.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/LineSplitter.h"
#include "trovik/records/Records.h"
#include "trovik/works/FileInspection.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

/// One line of a saved log, after the job has judged it.
struct ReplayedLine {
  std::size_t number = 0; ///< from 1 on, as the job counts them
  std::string_view text;  ///< as the job saw it; valid only during the call
  const LineAccount& account;
  bool decides = false; ///< the error line, or the first success line
};

/// What a saved log came to.
struct ReplayResult {
  bool good = false;
  String note; ///< the job's own; empty for most good ones
  VerdictRule rule = VerdictRule::None;
  std::vector<String> images;         ///< as the program named them, each once
  std::vector<FileRecord> files;      ///< those that were checked
  std::size_t expected = 0;           ///< files that were not checked, but a run would
  std::size_t lines = 0;              ///< all of them
  std::array<std::size_t, 6> fates{}; ///< how many lines of each fate
  std::optional<std::size_t> decidingLine;
  bool retryable = true; ///< whether a run would try again
};

/// Hands a saved log to a job exactly as a run hands it the output of its
/// program: cut into lines, without terminal sequences, a line at a time. Keeps
/// nothing of it but the names of images.
class Replay final : public WorkObserver {
public:
  using Receiver = std::function<void(const ReplayedLine& line)>;

  /// `job` is a fresh work of a ProcessJob that nothing else uses.
  Replay(SmartHandle<Job> job, Receiver receiver);
  ~Replay() override;
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  void feed(std::string_view bytes) { splitter_.Feed(bytes); }

  /// The log has ended: judges it with this end of the program. The files are
  /// checked where there is an inspector, else taken as good; they then
  /// prove nothing either.
  ReplayResult finish(const ProcessExit& exit, ImageInspector* inspector, Machine& machine);

  void OnImage(const Job& job, const Path& file) override;
  String OnCheckFile(const Job& job, const Path& file) override;

private:
  void onLine(std::string_view line);

  SmartHandle<Job> job_;
  ProcessJob& process_;
  Receiver receiver_;
  LineSplitter splitter_;
  std::optional<FileInspection> inspection_;
  ReplayResult result_;
  bool named_ = false; // the line at hand named a new image
};

/// "image", "ignored error".
const char* nameOf(LineAccount::Fate fate);

/// How a type's file calls the list that spoke: "ErrorText"; empty for none.
std::string listName(const LineAccount& account);

/// The end of a program as users write it: an exit code from 0 to 255, where
/// 129 to 192 are deaths by signal as shells report them; a signal by its name
/// ("SIGKILL", "kill"), as "signal 9", or negative. Throws a UsageError for any
/// other text.
ProcessExit exitFrom(const std::string& text);

/// "exit code 1", "signal 9 (Killed)".
std::string exitText(const ProcessExit& exit);

} // namespace trovik
