#pragma once

#include "host/application/FrameRange.h"
#include "host/application/ProcessJob.h"

#include <ctime>
#include <map>
#include <memory>
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
public:
  ~RenderJob() override;

  std::unique_ptr<Distributor> DoGetDistributor() override;
  /// Knows the host's standard parameters, "SubRange" and "Frame".
  bool GetParameter(const String& name, String& value) const override;
  bool SetParameter(const String& name, const String& value) override;
  bool ProcessCommand(const String& command, void* context) override;
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
  void ProcessNewFilename(const Path& file);

  /// The images that the program named so far, in order, each once.
  const std::vector<Path>& Images() const { return m_Images; }

  /// The files that the work must leave: "ExpectedFiles" for each frame.
  std::vector<Path> ExpectedFiles() const;

  /// Whether the type looks for image names in the output.
  bool FindsImages() const;

  /// The number of works in each state, as OnChildChange was told.
  int ChildCount(int status) const;

protected:
  /// `standard` true: the job answers the host's standard parameters.
  explicit RenderJob(bool standard);

private:
  bool IsStandard(const String& name) const;

  bool m_Standard;
  std::vector<Path> m_Images;
  std::map<String, int> m_Children; // sub-range of a work to its status
  timespec m_StartTime{};
};
