#include "trovik/jobs/SceneSequence.h"

#include "host/application/Application.h"
#include "host/application/JobFactory.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Format.h"
#include "host/foundation/Log.h"
#include "host/foundation/Quoting.h"
#include "trovik/machine/Locations.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <system_error>
#include <vector>

// Detection says what it took and nothing else. Who renders the wrong half of a
// sequence wants to know why the other half was left out, so the folder is read
// here for what is named like the scene. Whether the length of a number was to
// blame is not guessed: detection is asked again without that demand.

namespace trovik {
namespace {

constexpr const char* digitLetters = "0123456789";
constexpr std::size_t rangeLimit = 20; // runs; a longer range nobody pastes

/// A scene's name around its last number, which detection takes for the frame.
struct NumberedName {
  std::string head;
  std::string digits;
  std::string tail;

  std::optional<int> frame() const {
    int number = 0;
    return std::from_chars(digits.data(), digits.data() + digits.size(), number).ec == std::errc()
               ? std::optional(number)
               : std::nullopt;
  }
  /// The name of another frame, with at least as many digits.
  std::string of(int frame) const {
    const std::string text = std::to_string(frame);
    return head + std::string(digits.size() > text.size() ? digits.size() - text.size() : 0, '0') + text +
           tail;
  }
};

std::optional<NumberedName> numberedName(const std::string& leaf) {
  const std::size_t last = leaf.find_last_of(digitLetters);
  if (last == std::string::npos) {
    return std::nullopt;
  }
  const std::size_t before = leaf.find_last_not_of(digitLetters, last);
  const std::size_t first = before == std::string::npos ? 0 : before + 1;
  return NumberedName{leaf.substr(0, first), leaf.substr(first, last - first + 1), leaf.substr(last + 1)};
}

Path besides(const Path& scene, const std::string& leaf) {
  Path path(scene.Branch(true, true));
  return path /= String(leaf);
}

/// The files that are named like a scene but for the number.
struct Siblings {
  RunSet frames;           ///< of one numbering with the scene, which is among them
  std::size_t shorter = 0; ///< of a numbering without zeros in front
  std::string shortest;    ///< the first of those
  std::size_t others = 0;  ///< neither
};

Siblings siblingsOf(const Path& scene, const NumberedName& name) {
  Siblings siblings;
  const std::string own = scene.Leaf(true);
  std::optional<int> least;
  bool zeros = false; // stand in front of some of its numbers
  FileFinder finder;
  // A head may hold wildcards of its own, so each name is read again.
  for (bool found = finder.Find(besides(scene, name.head + '*' + name.tail)); found; found = finder.Next()) {
    const std::string leaf = finder.Name().Leaf(true);
    const std::optional<NumberedName> other = numberedName(leaf);
    if (!other || other->head != name.head || other->tail != name.tail) {
      continue;
    }
    const std::optional<int> frame = other->frame();
    if (frame && name.frame() && name.of(*frame) == leaf) {
      siblings.frames.add({*frame, *frame});
      zeros = zeros || other->digits.front() == '0';
    } else if (frame && other->digits.size() < name.digits.size() && other->digits.front() != '0') {
      ++siblings.shorter;
      if (!least || *frame < *least) {
        least = frame;
        siblings.shortest = leaf;
      }
    } else if (leaf != own) {
      ++siblings.others;
    }
  }
  if (zeros) {
    siblings.shorter = 0;
  }
  return siblings;
}

/// "shot_0004.pov" is missing: why detection went no further than there.
std::string faultOf(const Path& file) {
  std::error_code error;
  const bool link = std::filesystem::is_symlink(file.Text().c_str(), error);
  return inQuotes(file.Leaf(true)) + (IsDirectory(file)       ? " is a folder"
                                      : link && !exists(file) ? " is a link to nothing"
                                                              : " is missing");
}

std::string rangeOption(const RunSet& frames) {
  return frames.runs().size() > rangeLimit ? "--range" : "--range " + frames.text();
}

/// Names the pattern, where detection cannot find it, and the frames.
std::string patternHint(const Path& scene, const NumberedName& name, const RunSet& frames) {
  const Path pattern =
      besides(scene, name.head + "%0" + std::to_string(name.digits.size()) + 'd' + name.tail);
  if (frames.count() < 2 || sequenceScene(pattern.Text(), *name.frame()).Leaf(true) != scene.Leaf(true)) {
    return {};
  }
  return "--set " + EnquoteWord("SceneNameFormat=" + pattern.Text()) + ' ' + rangeOption(frames) +
         " takes all that are there";
}

/// The component of a path that the pattern does not give back as it is.
std::string readAsPattern(const Path& scene, int frame) {
  const std::string& text = scene.Text();
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('/', begin), text.size());
    std::string component = text.substr(begin, end - begin);
    if (SFormat(component, frame) != component) {
      return component;
    }
    begin = end + 1;
  }
  return {};
}

void tellShorter(const Siblings& siblings, SequenceAccount& account) {
  const std::size_t digits = numberedName(siblings.shortest)->digits.size();
  account.reason += inQuotes(siblings.shortest) +
                    (siblings.shorter == 1 ? std::string(" has")
                                           : " and " + counted(siblings.shorter - 1, "other") + " have") +
                    " fewer digits";
  account.hint = "pick " + inQuotes(siblings.shortest) +
                 " with --set SceneNumberLength=" + std::to_string(digits) + " to take them all";
}

/// A sequence was taken: whether it is all that lies there.
void accountForPart(const DetectedSequence& taken, const Path& scene, const NumberedName& name,
                    SequenceAccount& account) {
  const Siblings siblings = siblingsOf(scene, name);
  RunSet all = siblings.frames;
  all.add(taken.frames);
  account.leftOut = all.count() > taken.frames.count() || siblings.shorter > 0;
  if (!account.leftOut) {
    return;
  }
  const std::string frames = taken.frames.text(rangeLimit);
  if (all.count() == taken.frames.count()) {
    account.reason = "only " + frames + ": ";
    tellShorter(siblings, account);
    return;
  }
  std::vector<std::string> faults;
  const std::vector<FrameRun> runs = taken.frames.runs();
  const std::vector<FrameRun> there = all.runs();
  if (there.front().First < runs.front().First) {
    faults.push_back(faultOf(besides(scene, name.of(runs.front().First - 1))));
  }
  if (there.back().Last > runs.back().Last) {
    faults.push_back(faultOf(besides(scene, name.of(runs.back().Last + 1))));
  }
  account.reason = "only " + frames + " of " + all.text(rangeLimit) +
                   (faults.empty() ? "" : ": " + joined(faults, " and "));
  account.hint = rangeOption(all) + " takes all that are there";
}

/// No sequence was taken, though one was looked for.
void accountForSingle(const SceneQuestion& question, const NumberedName& name, SequenceAccount& account) {
  const Path& scene = question.scene;
  const std::string leaf = scene.Leaf(true);
  const Siblings siblings = siblingsOf(scene, name);
  const std::size_t own = siblings.frames.contains(account.frame.value_or(-1)) ? 1 : 0;
  account.leftOut =
      siblings.frames.count() > own || siblings.shorter > 0 || (!account.frame && siblings.others > 0);
  const DetectedSequence found = question.withAnyDigits();
  if (!found.format.empty()) {
    account.reason = "its number " + name.digits + " has " + counted(name.digits.size(), "digit") + ", and " +
                     question.digitsAsked;
    account.hint = "--set SceneNumberLength=" + std::to_string(name.digits.size()) + " takes the sequence " +
                   found.frames.text(rangeLimit);
    return;
  }
  if (!account.frame) {
    account.reason = account.leftOut ? "the number " + name.digits + " is too large for a frame"
                                     : "no other file is called like it but for the number";
    return;
  }
  const int frame = *account.frame;
  std::vector<Path> neighbours;
  if (frame > 0) {
    neighbours.push_back(besides(scene, name.of(frame - 1)));
  }
  if (frame < std::numeric_limits<int>::max()) {
    neighbours.push_back(besides(scene, name.of(frame + 1)));
  }
  const auto isFile = [](const Path& path) { return exists(path) && !IsDirectory(path); };
  if (std::any_of(neighbours.begin(), neighbours.end(), isFile)) {
    const std::string component = readAsPattern(scene, frame);
    if (component.empty()) { // the type's form says that it looks, its section [Module] does not
      account.reason = "the type does not look for scene sequences by itself";
      account.hint = "--set CheckForMultipleFiles=Yes takes the sequence";
    } else {
      account.reason =
          "the \"%\" in " + inQuotes(component) + " stands for a number in the sequence's pattern";
      account.hint = "rename it without the \"%\"";
    }
    return;
  }
  if (siblings.frames.count() <= own && siblings.shorter > 0) {
    tellShorter(siblings, account);
    return;
  }
  std::vector<std::string> names;
  std::vector<std::string> faults;
  bool allMissing = true;
  for (const Path& neighbour : neighbours) {
    names.push_back(inQuotes(neighbour.Leaf(true)));
    faults.push_back(faultOf(neighbour));
    allMissing = allMissing && faults.back().ends_with(" is missing");
  }
  account.reason = !allMissing         ? joined(faults, " and ")
                   : names.size() == 1 ? "it has no neighbour: there is no " + names.front()
                                       : "it has no neighbour: there is neither " + joined(names, " nor ");
  account.hint = patternHint(scene, name, siblings.frames);
}

IniFile& settings() {
  return Application::the_Application->Settings();
}

/// What the installation says of a type; empty for nothing.
String settingOf(const UID& type, const char* key) {
  return settings().GetValue(type.GenString(), key, String::Null);
}

/// Brings the settings back as they were.
class SettingsAsBefore {
public:
  SettingsAsBefore() : before_(settings()) {}
  ~SettingsAsBefore() { settings() = before_; }
  SettingsAsBefore(const SettingsAsBefore&) = delete;
  SettingsAsBefore& operator=(const SettingsAsBefore&) = delete;

private:
  IniFile before_;
};

} // namespace

Path sequenceScene(const String& format, int frame) {
  return {SFormat(format, frame)};
}

RunSet rangeFrames(const String& range) {
  RunSet frames;
  try {
    for (const FrameRun& run : FrameSet::Parse(range).Split(static_cast<int>(FrameSet::k_CountLimit))) {
      frames.add(run);
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
  }
  return frames;
}

std::optional<int> frameOfScene(const Path& scene) {
  const std::optional<NumberedName> name = numberedName(scene.Leaf(true));
  return name ? name->frame() : std::nullopt;
}

SequenceAccount accountOf(const SceneQuestion& question) {
  SequenceAccount account;
  const std::string leaf = question.scene.Leaf(true);
  const std::optional<NumberedName> name = numberedName(leaf);
  if (name) {
    account.frame = name->frame();
  }
  if (!question.taken.format.empty()) {
    if (name && !question.taken.frames.empty()) {
      accountForPart(question.taken, question.scene, *name, account);
    }
  } else if (!question.notSearched.empty()) {
    account.reason = question.notSearched;
  } else if (!name) {
    account.reason = inQuotes(leaf) + " has no number in its name";
  } else {
    accountForSingle(question, *name, account);
  }
  return account;
}

void SequenceSettings::detect(const DetectFunction& module, const UID& type, const String& changed,
                              std::map<String, String>& values) const {
  const SettingsAsBefore asBefore;
  if (!search.empty()) {
    settings().SetValue(type.GenString(), searchKey, search);
  }
  if (!digits.empty()) {
    settings().SetValue(type.GenString(), digitsKey, digits);
  }
  module(type, changed, values);
}

std::string SequenceSettings::whyNotSearched(const UID& type) const {
  if (!search.empty()) {
    return search.Bool() ? std::string() : std::string(searchKey) + " is switched off for this job";
  }
  if (const String setting = settingOf(type, searchKey); !setting.empty()) {
    return setting.Bool() ? std::string() : "the settings of this installation switch it off for the type";
  }
  const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(type, searchKey, false);
  return info != nullptr && info->Default.Bool() ? std::string()
                                                 : "the type does not look for scene sequences";
}

std::string SequenceSettings::whoAsksForDigits(const UID& type) const {
  if (!digits.empty()) {
    return std::string(digitsKey) + " asks for " + digits;
  }
  const String setting = settingOf(type, digitsKey);
  return setting.empty() ? std::string("the type asks for more")
                         : "the settings of this installation ask for " + setting;
}

} // namespace trovik
