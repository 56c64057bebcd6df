#include "host/application/jobs/RenderJob.h"

#include "host/application/FileName.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/FrameNotes.h"
#include "host/application/jobs/NoteText.h"
#include "host/foundation/Exception.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <map>
#include <set>
#include <system_error>
#include <utility>

// The files of a work: which there are, which frames they belong to, whether
// they are good, and which frames that makes good.
//
// Two questions are asked of the frames, and they are not the same. Whether a
// work that seems to have ended well has a file for every frame is answered by
// the likeliest reading of the names. Which frames of a failed work need no
// further attempt is answered with caution: a frame too many costs its time, a
// frame too few is lost.

namespace {

// Of the module's virtual types; the host knows it only by this name.
constexpr const char* p_ImageStartText = "ImageStartText";

// No program names more images than this; a hostile one must not cost the
// host's memory.
constexpr std::size_t k_ImageBytesLimit = std::size_t{64} << 20;

std::int64_t Nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

bool RenderJob::FindsImages() const {
  return !GetParameterOrOption(p_ImageStartText, true, true).empty();
}

void RenderJob::ProcessNewFilename(const Path& file) {
  // A program may tell of a file in thousands of lines.
  const bool isFinal = file.IsAbsolute() && file.Text().size() <= PATH_MAX && !m_TranslateImages;
  if (file.empty() || (isFinal && m_ImageNames.contains(file.Text()))) {
    return;
  }
  Path image = file.IsAbsolute() ? file : MakeAbsolute(file, WorkStartDirectory());
  // A longer name cannot be a file's. Cut, it still cannot, and the file check
  // says so.
  image = Path(String(image.Text().substr(0, PATH_MAX)));
  if (m_TranslateImages) {
    image = image.TranslateToLocal();
  }
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
  if (ErrorLine().empty()) {
    m_ImagesBeforeError = m_Images.size();
  }
  if (Observer() != nullptr) {
    Observer()->OnImage(*this, m_Images.back());
  }
}

bool RenderJob::WorkFrames(FrameRun& run) const {
  return ParseRun(Get(p_SubRange, true), run);
}

RenderJob::FileRule RenderJob::Files() const {
  String text = EffectiveText(p_FileCheck);
  text.Trim();
  if (text.empty()) {
    return FileRule::EveryFrame; // a type may have emptied the default
  }
  static constexpr std::array<std::pair<const char*, FileRule>, 3> k_Rules = {
      {{"EveryFrame", FileRule::EveryFrame}, {"Work", FileRule::Work}, {"None", FileRule::None}}};
  for (const auto& [name, rule] : k_Rules) {
    if (String::EqualNoCase(text, name)) {
      return rule;
    }
  }
  RaiseException("RenderJob::CheckFiles", k_ErrorSyntax,
                 String(p_FileCheck) + ": \"" + NoteText(text) +
                     "\" is no way to check files; write EveryFrame, Work or None");
}

std::string_view RenderJob::KnownFrames::Tail(const Path& file) const {
  std::size_t folder = 0;
  for (const String& known : Folders) {
    if (file.Text().starts_with(known)) {
      folder = std::max(folder, known.size());
    }
  }
  return std::string_view(file.Text()).substr(folder);
}

std::vector<Path> RenderJob::FileFolders() const {
  const Path start = WorkStartDirectory();
  const String output = EffectiveText(p_OutputFolder);
  std::vector<Path> folders = {start, output.empty() ? start : MakeAbsolute(output, start)};
  std::erase_if(folders, [](const Path& folder) { return folder.empty(); });
  return folders;
}

const RenderJob::KnownFrames& RenderJob::Frames() const {
  if (!m_KnownFrames.has_value()) {
    KnownFrames known;
    known.Rule = Files();
    known.HasFrames = WorkFrames(known.Run);
    known.ExpectedFiles = ExpectedFileReader(*this).Read(&known.Expected);
    known.Images = FrameFiles(known.Run);
    if (known.HasFrames && known.Run.Count() > 1) {
      for (const Path& folder : FileFolders()) {
        known.Folders.push_back(folder.Text().ends_with('/') ? folder.Text() : folder.Text() + "/");
      }
    }
    m_KnownFrames = std::move(known);
  }
  for (std::size_t& added = m_KnownFrames->ImagesAdded; added < m_Images.size(); ++added) {
    m_KnownFrames->Images.Add(m_KnownFrames->Tail(m_Images[added]));
  }
  return *m_KnownFrames;
}

FrameFiles::Answer RenderJob::FrameOfFile(const Path& file) const {
  const KnownFrames& known = Frames();
  if (!known.HasFrames) {
    return {};
  }
  if (known.Run.Count() == 1) {
    return {known.Run.First, true};
  }
  if (known.Rule != FileRule::EveryFrame) {
    return {};
  }
  const auto expected = known.Expected.find(file.Text());
  if (expected != known.Expected.end()) {
    return {expected->second, true};
  }
  return known.Images.FrameOf(known.Tail(file));
}

std::optional<int> RenderJob::FrameOf(const Path& image) const {
  return FrameOfFile(image).Frame;
}

std::vector<RenderJob::WorkFile> RenderJob::FilesToCheck() const {
  m_KnownFrames.reset(); // parameters may have changed by other ways than SetParameter
  const KnownFrames& known = Frames();
  std::vector<WorkFile> files;
  if (known.Rule == FileRule::None) {
    return files;
  }
  const auto add = [this, &files](const Path& path, bool expected) {
    const FrameFiles::Answer answer = FrameOfFile(path);
    WorkFile file;
    file.File = path;
    file.Frame = answer.Frame;
    file.Sure = answer.Sure;
    file.Expected = expected;
    files.push_back(std::move(file));
  };
  for (const Path& image : m_Images) {
    add(image, known.Expected.contains(image.Text()));
  }
  for (const Path& file : known.ExpectedFiles) {
    if (!m_ImageNames.contains(file.Text())) {
      add(file, true);
    }
  }
  return files;
}

// Leaves the note as the look made it.
void RenderJob::LookAt(WorkFile& file) {
  Set(p_Note, String::Null);
  if (DoCheckFile(file.File, k_StatusFinished) != k_StatusFinished) {
    file.Problem = Note();
    const String name = ": " + NoteName(file.File);
    if (file.Problem.ends_with(name)) {
      file.Problem.erase(file.Problem.size() - name.size());
    }
    if (file.Problem.empty()) {
      file.Problem = "Not good";
    }
  }
  struct stat status {};
  if (CanBeAName(file.File) && stat(file.File.c_str(), &status) == 0) {
    file.Size = status.st_size;
    file.Modified = Nanoseconds(status.st_mtim);
  }
}

int RenderJob::CheckFiles(int result) {
  m_Checked.clear();
  m_FilesAreOfFrames = false;
  std::vector<WorkFile> files = FilesToCheck();
  const FileRule rule = Frames().Rule;
  const String before = Note();
  String problem;
  bool good = true;
  for (WorkFile& file : files) {
    if (m_FilesUnseen) {
      continue;
    }
    LookAt(file);
    if (good && !file.Problem.empty()) {
      good = false;
      problem = Note();
    }
  }
  Set(p_Note, before);
  m_Checked = std::move(files);
  m_FilesAreOfFrames = rule == FileRule::EveryFrame;
  if (result != k_StatusFinished || rule == FileRule::None) {
    return result;
  }
  SetGoodFiles(0);
  if (FindsImages() && m_Checked.empty()) {
    Set(p_Note, "No program output named an image");
  } else if (m_TooManyImages) {
    Set(p_Note, "The program named more images than can be checked");
  } else if (!good) {
    Set(p_Note, problem);
  } else if (const String holes = HolesNote(); !holes.empty()) {
    Set(p_Note, holes);
  } else {
    SetGoodFiles(m_FilesUnseen ? 0 : m_Checked.size());
    return result;
  }
  return k_StatusFailed;
}

// Why not every frame has a file; empty when each has, or none needs one.
String RenderJob::HolesNote() const {
  FrameRun run;
  if (!m_FilesAreOfFrames || m_Checked.empty() || !WorkFrames(run)) {
    return String::Null;
  }
  std::set<int> frames;
  for (const WorkFile& file : m_Checked) {
    if (file.Frame.has_value()) {
      frames.insert(*file.Frame);
    }
  }
  std::vector<FrameRun> found;
  for (const int frame : frames) {
    AppendFrame(found, frame);
  }
  const std::vector<FrameRun> holes = FramesOutside(run, found);
  if (holes.empty()) {
    return String::Null;
  }
  return "No file for " + FramesText(holes) +
         (frames.empty()
              ? ": no file's name tells its frame; where one file holds them all, set FileCheck=Work"
              : "");
}

int RenderJob::DoCheckFile(const Path& file, int result) {
  if (result != k_StatusFinished) {
    return result;
  }
  struct stat status {};
  String problem;
  if (!CanBeAName(file)) {
    problem = "No file's name has a zero byte";
  } else if (stat(file.c_str(), &status) != 0) {
    const int error = errno;
    problem = error == ENOENT || error == ENOTDIR
                  ? String("Missing file")
                  : "Cannot check file (" + std::system_category().message(error) + ")";
  } else if (!S_ISREG(status.st_mode)) {
    problem = "Not a regular file";
  } else if (status.st_size == 0) {
    problem = "Empty file";
  } else if (!m_Before.IsWritten(file, status)) {
    problem = "File was there before and is not of this attempt";
  } else if (Observer() != nullptr) {
    problem = NoteText(Observer()->OnCheckFile(*this, file));
  }
  if (problem.empty()) {
    return k_StatusFinished;
  }
  Set(p_Note, problem + ": " + NoteName(file));
  return k_StatusFailed;
}

std::vector<FrameRun> RenderJob::FramesWithGoodFiles() const {
  std::map<int, bool> frames;
  for (const WorkFile& file : m_Checked) {
    const bool good = file.Problem.empty();
    if (file.Frame.has_value() && file.Sure) {
      bool& all = frames.try_emplace(*file.Frame, true).first->second;
      all = all && good;
    } else if (!good && (file.Expected || file.Frame.has_value())) {
      return {}; // of every frame, or of any
    }
  }
  std::vector<FrameRun> runs;
  for (const auto& [frame, good] : frames) {
    if (good) {
      AppendFrame(runs, frame);
    }
  }
  return runs;
}

std::vector<FrameRun> RenderJob::GoodFrames() const {
  FrameRun run;
  if (!WorkFrames(run)) {
    return {};
  }
  if (IsFinished(Status())) {
    return {run};
  }
  if (!m_FilesAreOfFrames) {
    return {};
  }
  std::map<int, std::size_t> counts; // of the files of each frame
  std::set<int> refused;
  std::size_t most = 0;
  for (std::size_t i = 0; i < m_Checked.size(); ++i) {
    const WorkFile& file = m_Checked[i];
    if (!file.Frame.has_value()) {
      continue;
    }
    most = std::max(most, ++counts[*file.Frame]);
    if (!ErrorLine().empty() && (i >= m_ImagesBeforeError || file.Modified > Nanoseconds(ErrorTime()))) {
      refused.insert(*file.Frame);
    }
  }
  std::vector<FrameRun> good;
  for (const FrameRun& files : FramesWithGoodFiles()) {
    for (std::int64_t frame = files.First; frame <= files.Last; ++frame) {
      const int number = static_cast<int>(frame);
      if (counts[number] == most && !refused.contains(number)) {
        AppendFrame(good, number);
      }
    }
  }
  if (good.size() == 1 && good[0] == run) {
    if (run.Count() == 1) {
      return {};
    }
    --good[0].Last;
  }
  return good;
}
