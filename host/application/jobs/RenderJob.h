#pragma once

#include "host/application/FrameRange.h"
#include "host/application/NameLetters.h"
#include "host/application/jobs/FilesBefore.h"
#include "host/application/jobs/FrameFiles.h"
#include "host/application/jobs/FrameStates.h"
#include "host/application/jobs/ProcessJob.h"

#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// Hands out the works of a job one by one.
class Distributor {
public:
  virtual ~Distributor() = default;
  /// The next work's frames; false after the last. A job without a range is
  /// one work with `hasFrames` false.
  virtual bool Next(FrameRun& run, bool& hasFrames) = 0;
  virtual std::size_t Count() const = 0;
};

/// A job that renders frames of a scene with an external program.
class RenderJob : public ProcessJob {
  /// Of each expected file the frame, or none when it is expected for several.
  using ExpectedFrames = std::unordered_map<std::string, std::optional<int>>;

public:
  ~RenderJob() override;

  std::unique_ptr<Distributor> DoGetDistributor() override;
  /// Knows the host's standard parameters (empty where unset), "SubRange" and,
  /// computed and not to be set, "Frame".
  bool GetParameter(const String& name, String& value) const override;
  bool SetParameter(const String& name, const String& value) override;
  /// "Interrupt" and "Kill", which end the work; see Interrupt.
  bool ProcessCommand(const String& command, void* context) override;
  /// A work's "Status" (a number or its text) changes the job's own status; a
  /// failed work's note becomes the job's, with the frames before it.
  void OnChildChange(SmartHandle<const Job> child, const String& name, const String& value) override;
  bool PreExecute() override;
  String CreateCommandLine(Path& executable) override;
  Path GetLatestExecutable() override;
  int CheckResult(int exitCode) override;
  Path DetermineStartDirectory() const override;
  int CheckFiles(int result) override;
  int DoCheckFile(const Path& file, int result) override;

  /// Appends the host's standard parameters of a render job, under headings.
  /// `withOutput` false leaves out the group on output files, for types that
  /// have none.
  static void FillJobTypeInfo(JobTypeInfo* info, bool withOutput);

  /// The program wrote this image: relative names count from the start
  /// directory; an empty name is ignored. The file need not be complete yet.
  /// Names beyond 64 MiB are not kept, and the work has then not succeeded.
  void ProcessNewFilename(const Path& file);

  /// The images that the program named so far, in order, each once.
  const std::vector<Path>& Images() const { return m_Images; }

  /// The files that the work must leave: "ExpectedFiles" for each frame of the
  /// work's sub-range, absolute, in the order of the frames, each once. Raises
  /// Exception* for a template that cannot be expanded.
  std::vector<Path> ExpectedFiles() const;

  /// ExpectedFiles for one sub-range of a job after the other: what does not
  /// depend on the frames is read once. Meanwhile nothing else of the job may
  /// change, nor the engine's options. The job must live as long.
  class ExpectedFileReader {
  public:
    explicit ExpectedFileReader(const RenderJob& job);
    ~ExpectedFileReader();
    ExpectedFileReader(const ExpectedFileReader&) = delete;
    ExpectedFileReader& operator=(const ExpectedFileReader&) = delete;

    /// Of the sub-range that the job has now.
    std::vector<Path> Read() { return Read(nullptr); }

  private:
    friend class RenderJob;
    struct State;
    std::vector<Path> Read(ExpectedFrames* frames);

    std::unique_ptr<State> m_State;
  };

  /// The letters that the program refuses in the name of a scene file
  /// ("RefusedInSceneName"). Raises Exception* for a text that lists none.
  NameLetters RefusedInSceneNames() const;

  /// Whether the type looks for image names in the output.
  bool FindsImages() const;

  /// A file that the work must leave or said that it wrote.
  struct WorkFile {
    Path File;
    std::optional<int> Frame;  ///< which frame it belongs to, where that is known
    bool Sure = true;          ///< false when that is only the likeliest
    bool Expected = false;     ///< declared by the type or the job, not only named
    String Problem;            ///< why it is not good; empty for good
    std::int64_t Size = 0;     ///< bytes; 0 where it could not be looked at
    std::int64_t Modified = 0; ///< nanoseconds since 1970; the same
  };

  /// What CheckFiles is going to look at, each once: the images in the order
  /// in which they were named, then the expected files. Nothing where the type
  /// switched the check off ("FileCheck" None). Raises Exception* like
  /// ExpectedFiles, and for a "FileCheck" that does not exist.
  std::vector<WorkFile> FilesToCheck() const;
  /// What CheckFiles found, in the same order. It looks at every file whatever
  /// verdict it is given.
  const std::vector<WorkFile>& CheckedFiles() const { return m_Checked; }

  /// The frame that an image belongs to: of a work of one frame that one; of
  /// a file that is expected for one frame alone that one; else by the numbers
  /// in its path, without the output folder or start directory that it lies
  /// in; see FrameFiles.cpp. Absent when nothing tells, for a work
  /// without frames, and where files of several frames stand for the whole
  /// work ("FileCheck" Work). The images named so far help to tell, so the
  /// answer may get better. Raises Exception* like FilesToCheck.
  std::optional<int> FrameOf(const Path& image) const;

  /// The frames of the work that have files, all of them good: at least one
  /// named image or expected file of their own, and every expected one. A
  /// frame whose files could belong to others as well is left out. Valid after
  /// CheckFiles; in ascending order.
  std::vector<FrameRun> FramesWithGoodFiles() const;

  /// The frames that need no further attempt. Valid after FinishWork. All of
  /// them when the work ended well. When it did not: those with good files
  /// that have as many of their own as any other frame of the work; but (where
  /// all are left) not the last, which the program was at when it ended; and
  /// after an error line only those whose files were all named, and last
  /// written, before that line. None where files do not stand for frames
  /// ("FileCheck" Work or None).
  std::vector<FrameRun> GoodFrames() const;

  /// What NoteFilesBefore has noted, for CheckFilesAgainst in a process that
  /// judges the work when this one has died. Empty where it is too much.
  std::string FilesBeforeText() const { return m_Before.Text(); }
  /// Instead of NoteFilesBefore. No file is the work's where the text is empty.
  void CheckFilesAgainst(std::string_view filesBefore, bool ofThisMachine = true) {
    m_Before.FromText(filesBefore, ofThisMachine);
  }

  /// Notes what files are there, between PrepareWork and the program's start; a
  /// file that the program leaves alone is then no file of the work. After
  /// `followsAnother`, an attempt that ended a moment ago may have left some, and
  /// this waits until they can be told from this one's, mostly 4 ms. Raises
  /// Exception* like FilesToCheck.
  void NoteFilesBefore(bool followsAnother);

  /// From now on no file is checked: each counts as good, but none proves
  /// anything. For judging a saved output whose files are not at hand.
  void LeaveFilesUnseen() { m_FilesUnseen = true; }

  /// From now on the images that the program names are looked for where the
  /// path maps say: for a saved output of another machine.
  void TranslateImages() { m_TranslateImages = true; }

  /// The number of frames in each state, as OnChildChange was told; of a job
  /// without frames, of works.
  std::int64_t ChildCount(int status) const;

protected:
  /// `standard` true: the job answers the host's standard parameters. `grace`
  /// is the time between asking a program to end and killing it.
  explicit RenderJob(bool standard, std::chrono::milliseconds grace = k_Grace);

  /// Whether every job with the standard parameters answers this name.
  static bool IsStandard(const String& name) { return StandardName(name) != nullptr; }

private:
  /// The host's own spelling of a standard parameter's name, or null.
  static const char* StandardName(const String& name);
  /// What the files of a work stand for.
  enum class FileRule { EveryFrame, Work, None };
  FileRule Files() const;

  /// What FrameOf knows, made when it is needed.
  struct KnownFrames {
    FrameRun Run;
    bool HasFrames = false;
    FileRule Rule = FileRule::EveryFrame;
    std::vector<Path> ExpectedFiles;
    ExpectedFrames Expected;
    std::vector<String> Folders; ///< with "/" behind; what is in their names is of no frame
    FrameFiles Images{FrameRun()};
    std::size_t ImagesAdded = 0;

    /// The part of a path that is read for numbers.
    std::string_view Tail(const Path& file) const;
  };
  const KnownFrames& Frames() const;
  FrameFiles::Answer FrameOfFile(const Path& file) const;

  /// Where a work's files may lie: its start directory and output folder.
  std::vector<Path> FileFolders() const;

  /// The frames that the work stands for; false for a work without.
  bool WorkFrames(FrameRun& run) const;
  void LookAt(WorkFile& file);
  String HolesNote() const;
  bool CreateOutputFolder();
  /// Whether every frame of a packet has its scene file; the note says which have not.
  bool ScenesAreThere();
  /// Whether the program takes the names of the work's scene files; the note
  /// says which it refuses.
  bool SceneNamesAreTaken();
  void DeriveStatus();

  bool m_Standard;
  std::vector<WorkFile> m_Checked;
  std::vector<Path> m_Images;
  std::unordered_set<std::string> m_ImageNames; // the same, for asking
  std::size_t m_ImageBytes = 0;
  std::size_t m_ImagesBeforeError = 0;
  bool m_TooManyImages = false;
  bool m_FilesUnseen = false;
  FilesBefore m_Before;
  bool m_TranslateImages = false;
  bool m_FilesAreOfFrames = false; // of m_Checked
  mutable std::optional<KnownFrames> m_KnownFrames;
  // While ExpectedFiles expands: the one frame that the job stands for.
  mutable const FrameRun* m_OneFrame = nullptr;

  // Of a whole job: its frames' states, or its one work's, and how many there are.
  FrameStates m_FrameStates;
  std::optional<int> m_WorkState;
  std::optional<std::int64_t> m_ChildTotal;
};

/// Whether an exit code is in a list of numbers and ranges such as "0,2-4"; an
/// empty one means 0.
/// Raises Exception* "SuccessExitCodes:COLUMN: ..." for any other text.
bool IsSuccessExitCode(const String& codes, int exitCode);
