#include "host/application/jobs/RenderJob.h"

#include "host/application/Excerpt.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/NoteText.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

// What DoWorkParameterChange and engines call a work's state.
constexpr const char* k_StatusName = "Status";

class FrameDistributor : public Distributor {
public:
  FrameDistributor(std::vector<FrameRun> runs, bool hasFrames)
      : m_Runs(std::move(runs)), m_HasFrames(hasFrames) {}

  bool Next(FrameRun& run, bool& hasFrames) override {
    if (m_Next >= m_Runs.size()) {
      return false;
    }
    run = m_Runs[m_Next++];
    hasFrames = m_HasFrames;
    return true;
  }

  std::size_t Count() const override { return m_Runs.size(); }

private:
  std::vector<FrameRun> m_Runs;
  std::size_t m_Next = 0;
  bool m_HasFrames;
};

int ReadPacketSize(String text) {
  text.Trim();
  // Whoever runs the works joins as many as suit.
  const bool single = text.empty() || String::EqualNoCase(text, k_AutoPacket);
  const int size = single ? 1 : ReadWholeNumber<int>(text).value_or(0);
  if (size < 1) {
    RaiseException("RenderJob::DoGetDistributor", k_ErrorSyntax,
                   String(p_PacketSize) + ": \"" + NoteText(text) +
                       "\" is no number of frames; write a whole number from 1, or auto");
  }
  return size;
}

// Reads lists such as "0, 2-4" by hand, so that a refusal points at its place.
class ExitCodeReader {
public:
  explicit ExitCodeReader(const String& text) : m_Text(text) {}

  bool Holds(int code) {
    bool found = false;
    do {
      const int first = ReadCode();
      int last = first;
      if (Take('-')) {
        const std::size_t place = m_Place;
        last = ReadCode();
        if (last < first) {
          Fail(place, "the range ends before it begins");
        }
      }
      found = found || (code >= first && code <= last);
    } while (Take(','));
    if (m_Place < m_Text.size()) {
      Fail(m_Place, "a comma or \"-\" is expected here");
    }
    return found;
  }

private:
  [[noreturn]] void Fail(std::size_t place, const String& why) const {
    RaisePlaced("IsSuccessExitCode", k_ErrorSyntax,
                String(p_SuccessExitCodes) + ":" + std::to_string(place + 1),
                why + "; write exit codes from 0 to 255 and ranges, as in 0,2-4", m_Text, place);
  }

  void SkipBlanks() {
    while (m_Place < m_Text.size() && (m_Text[m_Place] == ' ' || m_Text[m_Place] == '\t')) {
      ++m_Place;
    }
  }

  bool Take(char c) {
    const bool found = m_Place < m_Text.size() && m_Text[m_Place] == c;
    m_Place += found ? 1 : 0;
    return found;
  }

  int ReadCode() {
    SkipBlanks();
    unsigned int code = 0;
    const char* begin = m_Text.data() + m_Place;
    const auto result = std::from_chars(begin, m_Text.data() + m_Text.size(), code);
    if (result.ec != std::errc() || code > 255) {
      Fail(m_Place, result.ptr == begin ? "a number is missing" : "no program can give this exit code");
    }
    m_Place = static_cast<std::size_t>(result.ptr - m_Text.data());
    SkipBlanks();
    return static_cast<int>(code);
  }

  const String& m_Text;
  std::size_t m_Place = 0;
};

} // namespace

bool IsSuccessExitCode(const String& codes, int exitCode) {
  if (codes.find_first_not_of(" \t") == String::npos) {
    return exitCode == 0; // a type may have emptied the default
  }
  return ExitCodeReader(codes).Holds(exitCode);
}

RenderJob::RenderJob(bool standard, std::chrono::milliseconds grace)
    : ProcessJob(grace), m_Standard(standard) {}

RenderJob::~RenderJob() = default;

std::unique_ptr<Distributor> RenderJob::DoGetDistributor() {
  const FrameSet frames = FrameSet::Parse(EffectiveText(p_Range));
  const int packet = ReadPacketSize(EffectiveText(p_PacketSize));
  if (frames.empty()) {
    return std::make_unique<FrameDistributor>(std::vector<FrameRun>(1), false);
  }
  return std::make_unique<FrameDistributor>(frames.Split(packet), true);
}

bool RenderJob::GetParameter(const String& name, String& value) const {
  if (!m_Standard) {
    return ProcessJob::GetParameter(name, value);
  }
  const bool frame = String::EqualNoCase(name, p_Frame);
  if (frame && m_OneFrame != nullptr) {
    value = std::to_string(m_OneFrame->First);
    return true;
  }
  if (frame || String::EqualNoCase(name, p_SubRange)) {
    value = m_OneFrame != nullptr ? m_OneFrame->Text() : Get(p_SubRange, true);
    FrameRun run;
    if (frame) {
      value = ParseRun(value, run) ? String(std::to_string(run.First)) : String::Null;
    }
    return true;
  }
  const char* standard = StandardName(name);
  if (standard != nullptr) {
    value = name == standard ? Get(name, true) : Get(standard, true);
    return true;
  }
  return ProcessJob::GetParameter(name, value);
}

bool RenderJob::SetParameter(const String& name, const String& value) {
  m_KnownFrames.reset();
  if (m_Standard && String::EqualNoCase(name, p_Frame)) {
    return false; // the sub-range says it
  }
  const char* standard = m_Standard ? StandardName(name) : nullptr;
  if (standard != nullptr) {
    Set(standard, value);
    return true;
  }
  return ProcessJob::SetParameter(name, value);
}

bool RenderJob::ProcessCommand(const String& command, void* context) {
  const bool kill = String::EqualNoCase(command, "Kill");
  if (kill || String::EqualNoCase(command, "Interrupt")) {
    Interrupt(kill ? 1 : 0);
    return true;
  }
  return ProcessJob::ProcessCommand(command, context);
}

std::int64_t RenderJob::ChildCount(int status) const {
  return m_FrameStates.Count(status) + (m_WorkState == status ? 1 : 0);
}

void RenderJob::OnChildChange(SmartHandle<const Job> child, const String& name, const String& value) {
  if (!child) {
    return;
  }
  // The value kept there: a job may hide its sub-range from references.
  const String frames = child->TrovikObject::Get(p_SubRange, true);
  FrameRun run;
  const bool hasFrames = ParseRun(frames, run);
  const auto takeNote = [this, &frames](const String& note) {
    if (!note.empty()) {
      Set(p_Note, frames.empty() ? note : "frames " + frames + ": " + note);
    }
  };
  if (String::EqualNoCase(name, p_Note)) {
    const std::optional<int> known = hasFrames ? m_FrameStates.Of(run.First) : m_WorkState;
    if (IsFailed(child->Status()) || (known.has_value() && IsFailed(*known))) {
      takeNote(value);
    }
    return;
  }
  if (!String::EqualNoCase(name, k_StatusName)) {
    return;
  }
  const std::optional<int> number = ReadWholeNumber<int>(value);
  for (const int status : {k_StatusNew, k_StatusReady, k_StatusRunning, k_StatusPaused, k_StatusFailed,
                           k_StatusCanceled, k_StatusFinished}) {
    if (number ? *number == status && value == std::to_string(status)
               : String::EqualNoCase(value, StatusAsString(status))) {
      if (hasFrames) {
        m_FrameStates.Set(run, status);
      } else {
        m_WorkState = status;
      }
      if (IsFailed(status)) {
        takeNote(child->TrovikObject::Get(p_Note, true));
      }
      DeriveStatus();
      return;
    }
  }
}

// Running while any frame is, or while some have ended and others have not
// begun; ended once all have, and then as bad as the worst of them.
void RenderJob::DeriveStatus() {
  const std::int64_t failed = ChildCount(k_StatusFailed);
  const std::int64_t canceled = ChildCount(k_StatusCanceled);
  const std::int64_t ended = failed + canceled + ChildCount(k_StatusFinished);
  if (ChildCount(k_StatusRunning) > 0) {
    SetStatus(k_StatusRunning);
    return;
  }
  if (!m_ChildTotal.has_value()) {
    const std::size_t frames = FrameSet::Parse(EffectiveText(p_Range)).Frames().size();
    m_ChildTotal = frames > 0 ? static_cast<std::int64_t>(frames) : 1;
  }
  if (ended < *m_ChildTotal) {
    SetStatus(ChildCount(k_StatusPaused) > 0 ? k_StatusPaused : ended > 0 ? k_StatusRunning : k_StatusReady);
  } else if (failed > 0) {
    SetStatus(k_StatusFailed);
  } else if (canceled > 0) {
    SetStatus(k_StatusCanceled);
  } else {
    SetFinished();
  }
}

bool RenderJob::CreateOutputFolder() {
  const String text = EffectiveText(p_OutputFolder);
  if (text.empty()) {
    return true;
  }
  const Path folder = Path(text).IsAbsolute()
                          ? Path(text)
                          : MakeAbsolute(text, WorkStartDirectory()); // as the program reads it
  std::error_code error;
  std::filesystem::create_directories(folder.Text().c_str(), error);
  if (!error && !std::filesystem::is_directory(folder.Text().c_str(), error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) {
    Set(p_Note, "Cannot create folder \"" + NoteName(folder) + "\": " + error.message());
  }
  return !error;
}

bool RenderJob::PreExecute() {
  m_Images.clear();
  m_ImageNames.clear();
  m_ImageBytes = 0;
  m_ImagesBeforeError = 0;
  m_TooManyImages = false;
  m_Checked.clear();
  m_FilesAreOfFrames = false;
  // Mistakes in what judges the work should show before it costs an hour.
  IsSuccessExitCode(EffectiveText(p_SuccessExitCodes), 0);
  FilesToCheck();
  m_KnownFrames.reset(); // the start directory of this attempt is not settled yet
  return SceneNamesAreTaken() && CreateOutputFolder() && ScenesAreThere();
}

void RenderJob::NoteFilesBefore(bool followsAnother) {
  const KnownFrames& known = Frames();
  if (known.Rule != FileRule::None && (FindsImages() || !known.ExpectedFiles.empty())) {
    m_Before.Note(known.ExpectedFiles, FileFolders(), followsAnother);
  }
}

String RenderJob::CreateCommandLine(Path& executable) {
  executable = GetParameterOrOption(p_Executable, true, true);
  return executable.empty() ? String::Null : executable.Enquote() + " ";
}

Path RenderJob::GetLatestExecutable() {
  return Path();
}

int RenderJob::CheckResult(int exitCode) {
  return IsSuccessExitCode(EffectiveText(p_SuccessExitCodes), exitCode) ? k_StatusFinished : k_StatusFailed;
}

Path RenderJob::DetermineStartDirectory() const {
  const String folder = EffectiveText(p_StartDirectory);
  if (!folder.empty()) {
    return MakeAbsolute(folder);
  }
  const Path scene = GetParameterOrOption(p_Scene, true, true);
  return scene.empty() ? Path() : Path(scene.Branch(false, true));
}
