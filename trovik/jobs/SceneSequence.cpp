#include "trovik/jobs/SceneSequence.h"

#include "host/application/Application.h"
#include "host/application/JobFactory.h"
#include "host/foundation/Format.h"
#include "trovik/machine/Locations.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

namespace trovik {
namespace {

/// The number with at least so many digits.
std::string numbered(long long number, std::size_t digits) {
  const std::string text = std::to_string(number);
  return std::string(digits > text.size() ? digits - text.size() : 0, '0') + text;
}

} // namespace

Path sequenceScene(const String& format, int frame) {
  return {SFormat(format, frame)};
}

std::string whyNoSequence(const UID& type, const Path& scene) {
  const IniFile& settings = Application::the_Application->Settings();
  const String& section = type.GenString();
  const ParameterInfo* check =
      JobFactory::s_JobFactory->GetTypeParameterInfo(type, "CheckForMultipleFiles", false);
  if (!settings.GetValue(section, "CheckForMultipleFiles", check != nullptr && check->Default.Bool())) {
    return "the type does not look for scene sequences";
  }
  const std::string leaf = scene.Leaf(true);
  const std::string shown = printable(leaf, OddBytes::Show);
  const std::size_t last = leaf.find_last_of("0123456789");
  if (last == std::string::npos) {
    return '"' + shown + "\" has no number in its name";
  }
  const std::size_t before = leaf.find_last_not_of("0123456789", last);
  const std::size_t first = before == std::string::npos ? 0 : before + 1;
  const std::string digits = leaf.substr(first, last - first + 1);
  if (digits.size() > 9) {
    return "the number " + digits + " is too large for a frame";
  }
  const long long number = std::stoll(digits);
  const std::string head = scene.Branch(true, false) + leaf.substr(0, first);
  const std::string tail = leaf.substr(last + 1);
  const std::string below = number > 0 ? numbered(number - 1, digits.size()) : std::string();
  const std::string above = numbered(number + 1, digits.size());
  const bool neighbour = (!below.empty() && exists(head + below + tail)) || exists(head + above + tail);
  const int minimum = settings.GetValue(section, "SceneNumberLength", 0);
  if (neighbour || static_cast<int>(digits.size()) < minimum) {
    return "the number " + digits + " has " + counted(digits.size(), "digit") + "; the type asks for " +
           (minimum > static_cast<int>(digits.size()) ? std::to_string(minimum) : std::string("more"));
  }
  const std::string leafHead = printable(leaf.substr(0, first), OddBytes::Show);
  const std::string leafTail = printable(tail, OddBytes::Show);
  const std::string aboveName = '"' + leafHead + above + leafTail + '"';
  return "it has no neighbour: there is " +
         (below.empty() ? "no " + aboveName
                        : "neither \"" + leafHead + below + leafTail + "\" nor " + aboveName);
}

} // namespace trovik
