#include "job/TessivarJob.h"

#include "host/application/Application.h"
#include "host/application/JobFactory.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Format.h"
#include "host/foundation/Log.h"
#include "job/SequencePattern.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace {

constexpr unsigned int k_StreamVersion = 3;

/// A command line is never this long: the kernel takes a fraction of it.
constexpr std::size_t k_ScenesLimit = std::size_t{64} << 20;

/// What mostly stands beside the scenes in a command line has room behind them.
constexpr std::size_t k_RestOfLine = 4096;

// Makes room for the names of some frames, and for the rest of their line.
void ReserveNames(const SequencePattern& pattern, int first, int last, String& value) {
  String ends;
  pattern.AppendName(first, ends);
  const std::size_t ofFirst = ends.size();
  pattern.AppendName(last, ends);
  const std::size_t name = std::max(ofFirst, ends.size() - ofFirst) + 1;
  const auto frames = static_cast<std::size_t>(std::max<std::int64_t>(0, std::int64_t{last} - first + 1));
  value.reserve(value.size() + std::min(frames * name, k_ScenesLimit) + k_RestOfLine);
}

int ToFrame(const String& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

// "3-5" gives 3 and 5, "7" gives 7 and 7. The sign of a negative frame cannot
// be told from the dash between: "-5" runs from 0 to 5.
void SplitRange(const String& range, int& first, int& last) {
  const std::size_t dash = range.find('-');
  first = ToFrame(String(range.substr(0, dash)));
  last = dash == String::npos ? first : ToFrame(String(range.substr(dash + 1)));
}

} // namespace

TessivarJob::TessivarJob() : RenderJob(true) {}

TessivarJob::~TessivarJob() = default;

void TessivarJob::SetType(const UID& type) {
  Job::SetType(type);
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(Type(), true);
  if (info == nullptr) {
    return; // the factory has logged it
  }
  for (std::size_t i = 0; i < info->ParamCount(); ++i) {
    const ParameterInfo* param = info->GetParam(i);
    String answer;
    if (!IsStandard(param->Name) && !GetParameter(param->Name, answer)) {
      m_ExtraParameters.emplace(param->Name, param->Default);
    }
  }
}

bool TessivarJob::ProcessCommand(const String& command, void* context) {
  if (RenderJob::ProcessCommand(command, context)) {
    return true;
  }
  const String text = GetCommandString(Type(), command);
  if (text.empty()) {
    return false;
  }
  // Detached: the program outlives the object at once.
  const Process started(FormatStringWithParameters(text), Process::k_Detached, Path(String::Null));
  return true;
}

void TessivarJob::PackObject(OutStream& out) const {
  RenderJob::PackObject(out);
  out.Put(k_StreamVersion);
  out.Put(m_CommandString);
  out.Put(m_ImageStartText);
  out.Put(m_ImageEndText);
  out.Put(static_cast<unsigned int>(m_ExtraParameters.size()));
  for (const auto& [name, value] : m_ExtraParameters) {
    out.Put(name);
    out.Put(value);
  }
  out.Put(m_ImageNotEndText);
  out.Put(m_SuccessTexts);
  out.Put(m_SceneNameFormat);
  out.Put(static_cast<unsigned char>(m_EnquoteActual));
  out.Put(static_cast<unsigned char>(m_HideSubrange));
}

void TessivarJob::UnpackObject(InStream& in, unsigned int version) {
  RenderJob::UnpackObject(in, version);
  unsigned int own = 0;
  in.Get(own);
  in.Get(m_CommandString);
  in.Get(m_ImageStartText);
  in.Get(m_ImageEndText);
  unsigned int count = 0;
  in.Get(count);
  for (; count != 0; --count) {
    String name;
    String value;
    in.Get(name);
    in.Get(value);
    const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(Type(), name, true);
    if (info != nullptr &&
        (info->Type() == ParameterInfo::k_File || info->Type() == ParameterInfo::k_Folder)) {
      value = Path(value).TranslateToLocal();
    }
    m_ExtraParameters[name] = value;
  }
  in.Get(m_ImageNotEndText);
  if (own >= 1) {
    in.Get(m_SuccessTexts);
  }
  if (own >= 2) {
    if (own == 2) {
      String format;
      in.Get(format);
      m_SceneNameFormat = format;
    } else {
      in.Get(m_SceneNameFormat);
    }
    // Written as one unsigned byte and read as a signed one.
    signed char value = 0;
    in.Get(value);
    m_EnquoteActual = static_cast<BoolOverride>(value);
    in.Get(value);
    m_HideSubrange = static_cast<BoolOverride>(value);
  }
}

BoolOverrideInfo TessivarJob::FindOverrideInfo(const String& name) const {
  const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(Type(), name, true);
  const BoolOverrideInfo* found = BoolOverrideInfo::CastFrom(info);
  // A job without a type, or one whose file declares the name as another kind.
  return found == nullptr ? BoolOverrideInfo() : *found;
}

bool TessivarJob::GetParameter(const String& name, String& value) const {
  const auto is = [&name](const char* known) { return String::EqualNoCase(name, known); };
  if (!m_SceneNameFormat.empty() && is(p_SubRange) &&
      GetParameterOrOption(p_HideSubrange, true, true).Bool()) {
    value.clear();
    return true;
  }
  if (RenderJob::GetParameter(name, value)) {
    return true;
  }
  if (is(p_CommandString)) {
    value = m_CommandString;
  } else if (is(p_ImageStartText)) {
    value = m_ImageStartText;
  } else if (is(p_ImageEndText)) {
    value = m_ImageEndText;
  } else if (is(p_ImageNotEndText)) {
    value = m_ImageNotEndText;
  } else if (is(p_SuccessTexts)) {
    value = m_SuccessTexts;
  } else if (is(p_SceneNameFormat)) {
    value = m_SceneNameFormat.Text();
  } else if (is(p_EnquoteActual)) {
    value = FindOverrideInfo(name).ToString(m_EnquoteActual);
  } else if (is(p_HideSubrange)) {
    value = FindOverrideInfo(name).ToString(m_HideSubrange);
  } else if (is(p_ActualScene)) {
    return GetActualScene(value);
  } else if (is(p_ActualSubRange)) {
    if (m_SceneNameFormat.empty()) {
      return GetParameter(p_SubRange, value);
    }
    value.clear();
  } else {
    const auto found = m_ExtraParameters.find(name);
    if (found == m_ExtraParameters.end()) {
      return false;
    }
    value = found->second;
  }
  return true;
}

bool TessivarJob::SetParameter(const String& name, const String& value) {
  if (RenderJob::SetParameter(name, value)) {
    return true;
  }
  const auto is = [&name](const char* known) { return String::EqualNoCase(name, known); };
  const auto setText = [this, &value](String& text) {
    text = value;
    m_TextsParsed = false;
    WantEveryLine();
  };
  if (is(p_CommandString)) {
    m_CommandString = value;
  } else if (is(p_ImageStartText)) {
    setText(m_ImageStartText);
  } else if (is(p_ImageEndText)) {
    setText(m_ImageEndText);
  } else if (is(p_ImageNotEndText)) {
    setText(m_ImageNotEndText);
  } else if (is(p_SuccessTexts)) {
    setText(m_SuccessTexts);
  } else if (is(p_SceneNameFormat)) {
    m_SceneNameFormat = value;
  } else if (is(p_EnquoteActual)) {
    m_EnquoteActual = FindOverrideInfo(name).FromString(value);
  } else if (is(p_HideSubrange)) {
    m_HideSubrange = FindOverrideInfo(name).FromString(value);
  } else {
    const auto found = m_ExtraParameters.find(name);
    if (found == m_ExtraParameters.end()) {
      return false;
    }
    found->second = value;
  }
  return true;
}

String TessivarJob::FinishScene(const String& file, bool translate, bool enquote,
                                const SmartHandle<const Job>& self) const {
  String scene = translate ? ProcessParameterNameCommands(file, "TranslateContents", self, nullptr) : file;
  return enquote ? Path(scene).Enquote() : scene;
}

bool TessivarJob::GetActualScene(String& value) const {
  const bool enquote = GetParameterOrOption(p_EnquoteActual, true, true).Bool();
  const bool translate = GetParameterOrOption(p_TranslateSceneContents, true, true).Bool();
  const SmartHandle<const Job> self(WeakSelf(), this);
  if (m_SceneNameFormat.empty()) {
    value = FinishScene(StoredScene(), translate, enquote, self);
    return true;
  }
  // The base is asked, so that hiding the sub-range never hides the scenes.
  String range;
  if (!RenderJob::GetParameter(p_SubRange, range)) {
    return false;
  }
  if (range.empty()) {
    value = m_SceneNameFormat.Text();
    return true;
  }
  int first = 0;
  int last = 0;
  SplitRange(range, first, last);
  // Mostly only the number differs: whether a name needs quotes, and where, is
  // then found out once.
  std::optional<SequencePattern> pattern =
      translate ? std::nullopt : SequencePattern::Read(m_SceneNameFormat.Text());
  if (pattern && enquote) {
    pattern = pattern->Enquoted();
  }
  if (pattern) {
    ReserveNames(*pattern, first, last, value);
  }
  // In 64 bits: the last frame may be the last number of 32.
  for (std::int64_t frame = first; frame <= last; ++frame) {
    if (!value.empty()) {
      value += ' ';
    }
    if (pattern) {
      pattern->AppendName(static_cast<int>(frame), value);
    } else {
      value += FinishScene(SFormat(m_SceneNameFormat, static_cast<int>(frame)), translate, enquote, self);
    }
    if (value.size() > k_ScenesLimit) {
      RaiseException("TessivarJob::GetParameter", k_ErrorLimit,
                     "the scene files of frames " + range +
                         " would make a command line of more than 64 MiB: use smaller packets");
    }
  }
  return true;
}

String TessivarJob::CreateCommandLine(Path& executable) {
  String line;
  executable = GetParameterOrOption(p_Executable, true, true);
  if (!executable.empty()) {
    line = executable.Enquote() + " ";
  }
  return line + GetParameterOrOption(p_CommandString, true, true);
}

Path TessivarJob::GetLatestExecutable() {
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(Type(), true);
  if (info == nullptr) {
    return {}; // the factory has logged it
  }
  const auto refuse = [info](const char* reason) {
    if (!IsLogged(LogLevel::Debug)) {
      return Path();
    }
    LogDebug("Virtual Module '" + info->Name + "' not looking for latest executable: " + reason);
    return Path();
  };
  if (info->GetParam(String(p_Executable)) == nullptr) {
    return refuse("no Executable parameter");
  }
  const IniFile& options = Application::the_Application->Options();
  if (!options.GetValue(Type().GenString(), p_Executable, String::Null).empty()) {
    return refuse("already have Executable in options");
  }
  std::vector<Path> roots;
  std::vector<Path> bases;
  Path program;
  if (!GetLatestExeSearch(Type(), roots, bases, program)) {
    return refuse("no FindLatestExecutable section in the TVX file");
  }
  return FindLatestExecutable(roots, bases, program);
}
