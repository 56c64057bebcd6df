#include "host/application/jobs/RenderJob.h"

#include "host/application/Expansion.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/foundation/Exception.h"

#include <algorithm>
#include <list>

// The names of the files that a work must leave: the templates of
// "ExpectedFiles", for each of its frames.

namespace {

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

struct RenderJob::ExpectedFileReader::State {
  explicit State(const RenderJob& job) : Of(job) {}

  /// Asks the job for its templates. Where its own text is the same, so are they:
  /// what stands in for an empty one does not change.
  void Ask() {
    String own;
    const bool answered = Of.GetParameter(p_ExpectedFiles, own);
    if (IsKnown && answered == IsAnswered && own == Own) {
      return;
    }
    IsEmpty = Of.GetParameterOrOption(p_ExpectedFiles, true, true).empty();
    Templates.clear();
    if (!IsEmpty) {
      for (String& text : Of.TextsToExpand(p_ExpectedFiles)) {
        Templates.emplace_back(std::move(text), Of.References(p_ExpectedFiles));
      }
    }
    IsKnown = true;
    IsAnswered = answered;
    Own = std::move(own);
  }

  /// False for a relative name, when the start directory is not known.
  bool Add(const std::optional<int>& frame, const std::optional<Path>& start, ExpectedFrames* frames,
           std::vector<Path>& files) {
    Ask();
    for (RepeatedExpansion& expansion : Templates) {
      Path file(expansion.Run());
      if (file.empty()) {
        continue;
      }
      if (!file.IsAbsolute()) {
        NeedsStart = true;
        if (!start) {
          return false;
        }
        file = MakeAbsolute(file, *start);
      }
      if (frames == nullptr) {
        if (std::find(files.begin(), files.end(), file) == files.end()) {
          files.push_back(std::move(file));
        }
        continue;
      }
      const auto [known, isNew] = frames->try_emplace(file.Text(), frame);
      if (isNew) {
        files.push_back(std::move(file));
      } else if (known->second != frame) {
        known->second.reset();
      }
    }
    return true;
  }

  const RenderJob& Of;
  bool IsKnown = false;
  bool IsAnswered = false;
  bool IsEmpty = true;
  String Own;
  std::list<RepeatedExpansion> Templates;
  bool NeedsStart = true; // at first, since a start directory may be refused
};

RenderJob::ExpectedFileReader::ExpectedFileReader(const RenderJob& job)
    : m_State(std::make_unique<State>(job)) {}

RenderJob::ExpectedFileReader::~ExpectedFileReader() = default;

std::vector<Path> RenderJob::ExpectedFileReader::Read(ExpectedFrames* frames) {
  const RenderJob& job = m_State->Of;
  std::vector<Path> files;
  m_State->Ask();
  if (m_State->IsEmpty) {
    return files;
  }
  std::optional<Path> start;
  if (m_State->NeedsStart) {
    start = job.WorkStartDirectory();
    m_State->NeedsStart = false;
  }
  FrameRun run;
  const bool hasFrames = job.WorkFrames(run);
  if (hasFrames && run.Count() > FrameSet::k_CountLimit) {
    RaiseException("RenderJob::ExpectedFiles", k_ErrorLimit,
                   String(p_ExpectedFiles) + ": the sub-range " + run.Text() +
                       " has more frames than a job can have");
  }
  ExpectedFrames own;
  if (frames == nullptr && hasFrames && run.Count() > 1) {
    frames = &own; // finds what occurs twice among many
  }
  bool done = true;
  if (!hasFrames) {
    done = m_State->Add(std::nullopt, start, frames, files);
  } else {
    for (std::int64_t frame = run.First; done && frame <= run.Last; ++frame) {
      const FrameRun one{static_cast<int>(frame), static_cast<int>(frame)};
      const OneFrame stands(job.m_OneFrame, one);
      done = m_State->Add(one.First, start, frames, files);
    }
  }
  if (done) {
    return files;
  }
  if (frames != nullptr) {
    frames->clear();
  }
  return Read(frames); // with the start directory
}

std::vector<Path> RenderJob::ExpectedFiles() const {
  return ExpectedFileReader(*this).Read();
}
