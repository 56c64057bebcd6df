#pragma once

#include "host/application/ParameterInfo.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/TextFilter.h"
#include "job/Catalogue.h"

#include <map>
#include <vector>

/// The job of every virtual module: a render job whose command line, output
/// rules and parameters come from its type's file.
///
/// A job holds no pointer into the module's registry, takes no lock and starts
/// no thread; one job serves one thread at a time.
class TessivarJob : public RenderJob {
public:
  TessivarJob();
  ~TessivarJob() override;

  /// Writes the base part and then version 3 of the module's own part, see
  /// docs/formats.md.
  void PackObject(OutStream& out) const override;
  /// Reads every version up to 3; a later one is read as 3. What the version
  /// does not hold keeps its value.
  void UnpackObject(InStream& in, unsigned int version) override;

  /// Besides the host's parameters and the type's own: "ActualScene", the
  /// scene files of this work, and "ActualSubRange", its frames unless it has
  /// a file for each. Asked for the scenes of a sequence, it appends them to
  /// what `value` holds.
  bool GetParameter(const String& name, String& value) const override;
  bool SetParameter(const String& name, const String& value) override;

  /// Starts the program of a command of the type's file and lets it run on by
  /// itself. False for a command that neither the host nor the file knows.
  bool ProcessCommand(const String& command, void* context) override;

  /// Gives the job a value for every parameter of the type that it does not
  /// answer yet. The values of an earlier type stay.
  void SetType(const UID& type) override;

  /// The program, enquoted, and the command string with its references.
  String CreateCommandLine(Path& executable) override;

  /// The newest installed program; empty when the type or the engine's options
  /// leave nothing to look for (the log tells why at debug level).
  Path GetLatestExecutable() override;

  /// Reports an image line's file name, keeps the first success line, and
  /// hands every other line to the host.
  void ProcessLine(const String& line) override;

  /// By the success texts where the type has any: the exit code is then
  /// ignored.
  int CheckResult(int exitCode) override;

  /// Makes the four lists of lower-cased texts from their parameters, unless
  /// they are up to date.
  void ParseImageTexts();

private:
  bool GetActualScene(String& value) const;
  String FinishScene(const String& file, bool translate, bool enquote,
                     const SmartHandle<const Job>& self) const;
  BoolOverrideInfo FindOverrideInfo(const String& name) const;
  void ParseTexts(const char* name, std::vector<String>& texts) const;
  void ProcessImageLine(const String& line, std::size_t place);
  void DeclareTexts();
  String WrittenText(const char* list, std::size_t index) const;
  void AccountForText(LineAccount::Fate fate, const char* list, std::size_t index);

  Path m_SceneNameFormat;
  BoolOverride m_EnquoteActual = k_NoOverride;
  BoolOverride m_HideSubrange = k_NoOverride;
  String m_CommandString;
  String m_ImageStartText;
  String m_ImageEndText;
  String m_ImageNotEndText;
  String m_SuccessTexts;
  bool m_SuccessSeen = false;
  std::map<String, String, String::ciless> m_ExtraParameters;
  std::vector<String> m_StartTexts;
  std::vector<String> m_EndTexts;
  std::vector<String> m_NotEndTexts;
  std::vector<String> m_SuccessTextList;
  bool m_TextsParsed = false;

  // Derived from the lists and the locale, to dismiss ordinary lines fast.
  LowerTable m_Lower;
  TextFilter m_StartFilter;
  std::size_t m_LongestStart = 0;
  String m_Lowered; // the image line at hand; kept for its memory
};
