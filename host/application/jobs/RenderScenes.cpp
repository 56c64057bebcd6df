#include "host/application/jobs/RenderJob.h"

#include "host/application/jobs/FrameNotes.h"
#include "host/application/jobs/NoteText.h"
#include "host/foundation/Format.h"

#include <unistd.h>

#include <cerrno>

// The scene files of a work: whether they are there, and whether the program
// takes their names.

namespace {

// Of the module's virtual types; the host knows it only by this name.
constexpr const char* p_SceneNameFormat = "SceneNameFormat";

} // namespace

// A program that is given one scene says itself that it is missing. One that is
// given many, or a pattern, may take what it finds up to the first gap and end
// well, with a movie that is too short.
bool RenderJob::ScenesAreThere() {
  const String format = GetParameterOrOption(p_SceneNameFormat, true, true);
  FrameRun run;
  if (format.empty() || !WorkFrames(run) || run.Count() < 2 || run.Count() > FrameSet::k_CountLimit) {
    return true;
  }
  std::vector<FrameRun> missing;
  for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
    const int number = static_cast<int>(frame);
    if (access(SFormat(format, number).c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
      AppendFrame(missing, number);
    }
  }
  if (missing.empty()) {
    return true;
  }
  Set(p_Note, "No scene file for " + FramesText(missing) + ": " +
                  NoteName(Path(SFormat(format, missing[0].First))) +
                  (missing.size() == 1 && missing[0].Count() == 1 ? "" : " is the first"));
  return false;
}

NameLetters RenderJob::RefusedInSceneNames() const {
  return {EffectiveText(p_RefusedInSceneName), p_RefusedInSceneName};
}

// Programs that cannot take a name say so in many ways, and some read or write
// another file instead.
bool RenderJob::SceneNamesAreTaken() {
  const NameLetters refused = RefusedInSceneNames();
  if (refused.empty()) {
    return true;
  }
  const auto isTaken = [this, &refused](const Path& scene) {
    const String name = scene.Leaf(true);
    const std::size_t place = refused.FindIn(name);
    if (place != String::npos) {
      Set(p_Note, "The program does not take the scene file's name, which holds " +
                      NoteText(NameLetters::Describe(name, place)) + ": " + NoteName(scene));
    }
    return place == String::npos;
  };
  const String format = GetParameterOrOption(p_SceneNameFormat, true, true);
  FrameRun run;
  if (format.empty() || !WorkFrames(run) || run.Count() > FrameSet::k_CountLimit) {
    return isTaken(StoredScene());
  }
  for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
    if (!isTaken(Path(SFormat(format, static_cast<int>(frame))))) {
      return false;
    }
  }
  return true;
}
