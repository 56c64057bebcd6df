#include "host/application/jobs/PlainLines.h"

#include "host/application/jobs/ErrorTexts.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/application/jobs/RequiredTexts.h"

// Of the lines of a render hardly one holds a text that the job or its type looks
// for. To be told so line by line, by up to four filters and through a virtual
// operation, takes three times as long as one pass over whole blocks for all the
// texts together. So the class of a job may declare what its ProcessLine
// looks for; a line without any of that, and without a text that the host itself
// looks for, leaves no trace but as one of the last lines of the output.
//
// The filter is made anew when what matters changes, which happens a few times
// in a work: an error line was seen, so no other is looked for; a required text
// was seen; the class said something else. Whatever the filter cannot know has
// every line go to WorkLine: that of a class that declared nothing, the first
// lines, with which the lists of texts are read, and all of them where somebody
// wants an account of each.

const TextFilter* PlainLines::Filter(const ErrorTexts* errors, const ErrorTexts* noRetry,
                                     const RequiredTexts& required) {
  if (!m_Texts.Lower.IsCurrent()) {
    return nullptr; // the class is to see the next line, with another case
  }
  if (!m_Built || m_Errors != errors || m_NoRetry != noRetry || m_Unseen != required.Unseen()) {
    m_Built = true;
    m_Errors = errors;
    m_NoRetry = noRetry;
    m_Unseen = required.Unseen();
    m_Filter.Clear();
    LineSplitter::AddToFilter(m_Filter);
    for (const String& text : m_Texts.Anywhere) {
      m_Filter.Add(text, m_Texts.Lower);
    }
    for (const String& text : m_Texts.AtStart) {
      m_Filter.Add(text, m_Texts.Lower, TextFilter::Where::LineStart);
    }
    for (const ErrorTexts* texts : {errors, noRetry}) {
      if (texts != nullptr) {
        texts->AddToFilter(m_Filter);
      }
    }
    required.AddToFilter(m_Filter);
    m_Filter.Finish();
  }
  return m_Filter.HasEmpty() ? nullptr : &m_Filter;
}

const TextFilter* ProcessJob::WantedTexts() {
  if (m_PlainLines == nullptr || m_ErrorTexts == nullptr || m_RequiredTexts == nullptr ||
      m_Account != nullptr || HasModuleFailed()) {
    return nullptr;
  }
  return m_PlainLines->Filter(m_ErrorLine.empty() ? m_ErrorTexts.get() : nullptr,
                              m_WorthRepeating ? m_NoRetryTexts.get() : nullptr, *m_RequiredTexts);
}

void ProcessJob::WantLinesWith(const LineTexts& texts) {
  m_PlainLines = std::make_unique<PlainLines>(texts);
}

void ProcessJob::WantEveryLine() {
  m_PlainLines.reset();
}

const TextFilter* WorkLines::WantedTexts() {
  return m_Job.WantedTexts();
}

void WorkLines::OnLine(std::string_view line) {
  m_Job.WorkLine(line);
}

void WorkLines::OnPlainLines(std::string_view lines) {
  m_Job.WorkPlainLines(lines);
}
