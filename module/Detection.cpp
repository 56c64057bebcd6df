// Scene sequences on disk, and what a changed parameter brings with it.
//
// A scene is one of a sequence when its neighbours by number lie beside it.
// Only neighbours are looked for, never the whole directory: a gap ends the
// sequence, and what lies behind it is another one.

#include "module/Tessivar.h"

#include "host/application/Application.h"
#include "host/application/Constants.h"
#include "host/application/Job.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Format.h"
#include "job/SequencePattern.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <cstdlib>
#include <limits>
#include <utility>

namespace {

constexpr const char* k_Digits = "0123456789";

/// Asks for the neighbours of one scene.
///
/// The name of a file may hold conversions of its own that use up the number,
/// as in "50%d_0001.ma": the pattern then gives one name for every frame, and a
/// search that found it would never end. So a frame whose name is that of the
/// selected one counts as missing.
class Prober {
public:
  Prober(SequencePattern& pattern, int start) : m_Pattern(pattern), m_Selected(pattern.Name(start)) {
    m_Finder.ExpectMany();
  }

  bool Exists(int frame) {
    m_Asked = &m_Pattern.Name(frame);
    // Exactly this file: "*" and "?" in the name of a scene are no wildcards,
    // which would match other files and make up frames that are not there.
    return *m_Asked != m_Selected && m_Finder.Holds(*m_Asked);
  }

  /// The frames that are there around the one that was asked for last and is, as
  /// far as no question is needed to know them: itself at least.
  std::pair<int, int> KnownAround(int frame) const {
    return m_Pattern.IsPlain() && frame >= 0 ? m_Finder.KnownRun(*m_Asked, frame, m_Pattern.Digits())
                                             : std::pair(frame, frame);
  }

private:
  SequencePattern& m_Pattern;
  String m_Selected;
  const String* m_Asked = nullptr; // the pattern's
  FileFinder m_Finder;
};

} // namespace

bool DetectMultipleFiles(Path const& scene, int minimumDigits, std::map<String, String>& result) {
  const String leaf = scene.Leaf(true);
  const std::size_t last = leaf.find_last_of(k_Digits);
  if (last == String::npos) {
    return false;
  }
  const std::size_t before = leaf.find_last_not_of(k_Digits, last);
  const bool runBeginsLeaf = before == String::npos;
  const std::size_t runStart = runBeginsLeaf ? 0 : before + 1;
  const auto count = static_cast<int>(last + 1 - runStart);
  if (count < minimumDigits) {
    return false;
  }

  Path head = scene.Branch(true, true);
  head /= String(leaf.substr(0, runStart));
  SequencePattern pattern(head.Text(), count, leaf.substr(last + 1));
  const String run(leaf.substr(runStart, last + 1 - runStart));
  const auto start = static_cast<int>(std::strtol(run.c_str(), nullptr, 10));

  Prober prober(pattern, start);
  int low = start;
  while (low > std::numeric_limits<int>::min() && prober.Exists(low - 1)) {
    low = prober.KnownAround(low - 1).first;
  }
  int high = start;
  while (high < std::numeric_limits<int>::max() && prober.Exists(high + 1)) {
    high = prober.KnownAround(high + 1).second;
  }
  if (low == high) {
    return false;
  }

  // Without the character before the digits, whatever it is; a leaf that
  // begins with its digits is its own base name.
  String name(leaf.substr(0, runBeginsLeaf ? String::npos : before));
  boost::algorithm::trim_right_if(name, boost::algorithm::is_any_of("._-"));
  result[p_Name] = name;
  result[p_SceneNameFormat] = pattern.Text();
  result[p_Range] = SFormat("%d-%d", low, high);
  return true;
}

namespace {

[[noreturn]] void RaiseUnknownType() {
  // Hosts know this record, the name of the function in it included.
  auto* exception =
      new Exception("Tessivar", "CreateJob", 0x21000002,
                    "Tessivar cannot create jobs for types it does not know about", 0, String::Null, 1);
  Exception::Log(exception);
  throw exception;
}

void DetectScene(UID const& type, const TvxInfo& info, String const& changed,
                 std::map<String, String>& parameters) {
  // The pattern of an earlier scene never survives.
  parameters[p_SceneNameFormat] = String::Null;
  const IniFile& settings = Application::the_Application->Settings();
  const String& section = type.GenString();
  if (!settings.GetValue(section, p_CheckForMultipleFiles, info.CheckForMultipleFiles)) {
    return;
  }
  // Read under the name as it was passed, which another spelling is not.
  const auto found = parameters.find(changed);
  const Path scene = found == parameters.end() ? Path() : Path(found->second);
  const int digits = settings.GetValue(section, p_SceneNumberLength, info.SceneNumberLength);
  DetectMultipleFiles(scene, digits, parameters);
}

} // namespace

void AutoDetect(UID const& type, String const& changed, std::map<String, String>& parameters) {
  const auto found = g_TvxMap.find(type);
  if (found == g_TvxMap.end()) {
    RaiseUnknownType();
  }
  const TvxInfo& info = found->second;
  if (String::EqualNoCase(changed, p_Scene)) {
    DetectScene(type, info, changed, parameters);
  }
  const auto rules = info.AutoDetect.find(changed);
  if (rules == info.AutoDetect.end()) {
    return;
  }
  // Each rule sees what the ones before it have set.
  for (const auto& [target, format] : rules->second) {
    parameters[target] = Job::FormatStringWithParameters(format, parameters);
  }
}
