#pragma once

#include "host/foundation/LineSplitter.h"
#include "host/foundation/TextFilter.h"

#include <vector>

class ErrorTexts;
class ProcessJob;
class RequiredTexts;

/// What the ProcessLine of a job's class looks for in a line, in lower case.
struct LineTexts {
  std::vector<String> Anywhere;
  std::vector<String> AtStart;
  LowerTable Lower; ///< of lines, and of the texts
};

/// The filter of all texts of a work: those of the class, and those of the host.
/// A line with none of them is plain.
class PlainLines {
public:
  explicit PlainLines(const LineTexts& texts) : m_Texts(texts) {}

  /// The filter with the texts of the host that matter now: each is null where it
  /// does not. Null when any line may matter.
  const TextFilter* Filter(const ErrorTexts* errors, const ErrorTexts* noRetry,
                           const RequiredTexts& required);

private:
  LineTexts m_Texts;
  TextFilter m_Filter;
  bool m_Built = false;
  // What the filter was built with.
  const ErrorTexts* m_Errors = nullptr;
  const ErrorTexts* m_NoRetry = nullptr;
  std::size_t m_Unseen = 0;
};

/// Hands a job the lines that a LineSplitter cuts. The job must outlive it.
class WorkLines : public LineJudge {
public:
  explicit WorkLines(ProcessJob& job) : m_Job(job) {}

  const TextFilter* WantedTexts() override;
  void OnLine(std::string_view line) override;
  void OnPlainLines(std::string_view lines) override;

private:
  ProcessJob& m_Job;
};
