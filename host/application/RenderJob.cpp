#include "host/application/RenderJob.h"

#include "host/application/Excerpt.h"
#include "host/application/ExecutableSearch.h"
#include "host/application/NoteText.h"
#include "host/foundation/Exception.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

// Of the module's virtual types; the host knows it only by this name.
constexpr const char* p_ImageStartText = "ImageStartText";

// What DoWorkParameterChange and engines call a work's state.
constexpr const char* k_StatusName = "Status";

// No program names more images than this; a hostile one must not cost the
// host's memory.
constexpr std::size_t k_ImageBytesLimit = std::size_t{64} << 20;

// Stamps of some file systems are as coarse as two seconds.
constexpr time_t k_StampSlack = 2;

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
  int size = 1;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, size);
  if (!text.empty() && (result.ec != std::errc() || result.ptr != end || size < 1)) {
    RaiseException("RenderJob::DoGetDistributor", k_ErrorSyntax,
                   String(p_PacketSize) + ": \"" + NoteText(text) +
                       "\" is no number of frames; write a whole number from 1");
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

// Makes a job stand for one of its frames as long as this lives.
class OneFrame {
public:
  OneFrame(const FrameRun*& slot, const FrameRun& frame) : m_Slot(slot) { m_Slot = &frame; }
  ~OneFrame() { m_Slot = nullptr; }
  OneFrame(const OneFrame&) = delete;
  OneFrame& operator=(const OneFrame&) = delete;

private:
  const FrameRun*& m_Slot;
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
    value = Get(standard, true);
    return true;
  }
  return ProcessJob::GetParameter(name, value);
}

bool RenderJob::SetParameter(const String& name, const String& value) {
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

int RenderJob::ChildCount(int status) const {
  const auto found = m_ChildCounts.find(status);
  return found == m_ChildCounts.end() ? 0 : found->second;
}

void RenderJob::OnChildChange(SmartHandle<const Job> child, const String& name, const String& value) {
  if (!child) {
    return;
  }
  // The value kept there: a job may hide its sub-range from references.
  const String frames = child->TrovikObject::Get(p_SubRange, true);
  const auto takeNote = [this, &frames](const String& note) {
    if (!note.empty()) {
      Set(p_Note, frames.empty() ? note : "frames " + frames + ": " + note);
    }
  };
  if (String::EqualNoCase(name, p_Note)) {
    const auto known = m_Children.find(frames);
    if (IsFailed(child->Status()) || (known != m_Children.end() && IsFailed(known->second))) {
      takeNote(value);
    }
    return;
  }
  if (!String::EqualNoCase(name, k_StatusName)) {
    return;
  }
  for (const int status : {k_StatusNew, k_StatusReady, k_StatusRunning, k_StatusPaused, k_StatusFailed,
                           k_StatusCanceled, k_StatusFinished}) {
    if (value == std::to_string(status) || String::EqualNoCase(value, StatusAsString(status))) {
      const auto [place, isNew] = m_Children.try_emplace(frames, status);
      if (!isNew) {
        --m_ChildCounts[place->second];
        place->second = status;
      }
      ++m_ChildCounts[status];
      if (IsFailed(status)) {
        takeNote(child->TrovikObject::Get(p_Note, true));
      }
      DeriveStatus();
      return;
    }
  }
}

// Running while any work runs, or while some have ended and others have not
// begun; ended once all have, and then as bad as the worst of them.
void RenderJob::DeriveStatus() {
  const int failed = ChildCount(k_StatusFailed);
  const int canceled = ChildCount(k_StatusCanceled);
  const int ended = failed + canceled + ChildCount(k_StatusFinished);
  if (ChildCount(k_StatusRunning) > 0) {
    SetStatus(k_StatusRunning);
    return;
  }
  if (!m_ChildTotal.has_value()) {
    m_ChildTotal = DoGetDistributor()->Count();
  }
  if (static_cast<std::size_t>(ended) < *m_ChildTotal) {
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
    Set(p_Note,
        "Cannot create folder \"" + NoteText(folder.Text(), folder.Text().size()) + "\": " + error.message());
  }
  return !error;
}

bool RenderJob::PreExecute() {
  // The clock that file systems take their stamps from; the exact one runs
  // ahead of it.
  clock_gettime(CLOCK_REALTIME_COARSE, &m_StartTime);
  m_Images.clear();
  m_ImageNames.clear();
  m_ImageBytes = 0;
  m_TooManyImages = false;
  // Mistakes in what judges the work should show before it costs an hour.
  IsSuccessExitCode(EffectiveText(p_SuccessExitCodes), 0);
  ExpectedFiles();
  return CreateOutputFolder();
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

bool RenderJob::FindsImages() const {
  return !GetParameterOrOption(p_ImageStartText, true, true).empty();
}

void RenderJob::ProcessNewFilename(const Path& file) {
  if (file.empty()) {
    return;
  }
  Path image = file.IsAbsolute() ? file : MakeAbsolute(file, WorkStartDirectory());
  // A longer name cannot be a file's. Cut, it still cannot, and the file check
  // says so.
  image = Path(String(image.Text().substr(0, PATH_MAX)));
  if (m_ImageNames.contains(image.Text())) {
    return;
  }
  if (m_ImageBytes + image.Text().size() > k_ImageBytesLimit) {
    m_TooManyImages = true;
    return;
  }
  m_ImageBytes += image.Text().size();
  m_ImageNames.insert(image.Text());
  m_Images.push_back(image);
  if (Observer() != nullptr) {
    Observer()->OnImage(*this, m_Images.back());
  }
}

std::vector<Path> RenderJob::ExpectedFiles() const {
  std::vector<Path> files;
  if (GetParameterOrOption(p_ExpectedFiles, true, true).empty()) {
    return files;
  }
  const Path start = WorkStartDirectory();
  std::unordered_set<std::string> known;
  const auto add = [this, &start, &known, &files] {
    for (const String& text : EffectiveTexts(p_ExpectedFiles)) {
      const Path file = MakeAbsolute(text, start);
      if (!text.empty() && known.insert(file.Text()).second) {
        files.push_back(file);
      }
    }
  };
  FrameRun run;
  if (!ParseRun(Get(p_SubRange, true), run)) {
    add();
    return files;
  }
  if (run.Count() > FrameSet::k_CountLimit) {
    RaiseException("RenderJob::ExpectedFiles", k_ErrorLimit,
                   String(p_ExpectedFiles) + ": the sub-range " + run.Text() +
                       " has more frames than a job can have");
  }
  for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
    const FrameRun one{static_cast<int>(frame), static_cast<int>(frame)};
    const OneFrame stands(m_OneFrame, one);
    add();
  }
  return files;
}

int RenderJob::CheckFiles(int result) {
  if (result != k_StatusFinished) {
    return result;
  }
  std::vector<Path> files = ExpectedFiles();
  if (FindsImages() && m_Images.empty() && files.empty()) {
    Set(p_Note, "No program output named an image");
    return k_StatusFailed;
  }
  if (m_TooManyImages) {
    Set(p_Note, "The program named more images than can be checked");
    return k_StatusFailed;
  }
  files.insert(files.begin(), m_Images.begin(), m_Images.end());
  const bool good = std::all_of(files.begin(), files.end(), [this](const Path& file) {
    return DoCheckFile(file, k_StatusFinished) == k_StatusFinished;
  });
  SetGoodFiles(good ? files.size() : 0);
  return good ? k_StatusFinished : k_StatusFailed;
}

int RenderJob::DoCheckFile(const Path& file, int result) {
  if (result != k_StatusFinished) {
    return result;
  }
  struct stat status {};
  String problem;
  if (stat(file.c_str(), &status) != 0) {
    const int error = errno;
    problem = error == ENOENT || error == ENOTDIR
                  ? String("Missing file")
                  : "Cannot check file (" + std::system_category().message(error) + ")";
  } else if (!S_ISREG(status.st_mode)) {
    problem = "Not a regular file";
  } else if (status.st_size == 0) {
    problem = "Empty file";
  } else if (status.st_mtim.tv_sec < m_StartTime.tv_sec - k_StampSlack) {
    problem = "File is older than the work";
  } else {
    return k_StatusFinished;
  }
  Set(p_Note, problem + ": " + NoteText(file.Text(), file.Text().size()));
  return k_StatusFailed;
}
