// Command lines: quotes, and what becomes of names with blanks in them.
//
// A reference is one opaque letter here: what stands around it decides whether
// its value stands within quotes. Whether the whole line can be expanded and
// split is then tried with a real job of the type.

#include "host/application/Excerpt.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "trovik/check/References.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace trovik {
namespace {

bool isTrue(const TypeCheck& check, const char* parameter) {
  return check.effective(parameter).Bool();
}

/// A text that users write as arguments on purpose: what the type says of it
/// tells.
bool isForArguments(const TypeCheck& check, const String& name) {
  const ParameterInfo* parameter = check.info->GetParam(name);
  const std::string words =
      lowered(name + (parameter == nullptr ? String::Null : " " + parameter->Label + " " + parameter->Help));
  static constexpr std::array<const char*, 6> marks = {"argument", "option", "flag",
                                                       "switch",   "args",   "as they are"};
  return std::any_of(marks.begin(), marks.end(),
                     [&words](const char* mark) { return words.find(mark) != std::string::npos; });
}

class CommandLine {
public:
  CommandLine(const TypeCheck& check, const PlacedText& text)
      : check_(check), placed_(text), text_(text.text), references_(referencesIn(text_)), masked_(text_) {
    for (const Reference& reference : references_) {
      std::fill(masked_.begin() + static_cast<std::ptrdiff_t>(reference.Begin),
                masked_.begin() + static_cast<std::ptrdiff_t>(reference.End), 'x');
    }
  }

  void run() {
    quotes();
    for (const Reference& reference : references_) {
      if (check_.out.full()) {
        return;
      }
      one(reference);
    }
  }

private:
  void quotes() {
    const bool opaque = std::none_of(references_.begin(), references_.end(), [this](const Reference& at) {
      return isEscaped(at) || std::any_of(at.Calls.begin(), at.Calls.end(), [](const CommandCall& call) {
               return call.Argument.find_first_of("\"'\\") != String::npos;
             });
    });
    const std::size_t quote = FindUnclosedQuote(masked_);
    if (opaque && quote != String::npos) {
      check_.out.error("unclosed-quote", placed_.span.part(quote, 1),
                       "the quote " + masked_.substr(quote, 1) + " is never closed",
                       "close it, or write a backslash before it where it is meant as it stands");
    }
  }

  /// Whether a backslash before it keeps the first letter of its value.
  bool isEscaped(const Reference& reference) const {
    return reference.Begin > 0 && text_[reference.Begin - 1] == '\\';
  }

  Span span(const Reference& reference) const {
    return placed_.span.part(reference.Begin, reference.End - reference.Begin);
  }

  /// The quote that a reference stands in; 0 for none.
  char quoteAround(const Reference& reference) const {
    const String before = masked_.substr(0, reference.Begin);
    const std::size_t quote = FindUnclosedQuote(before);
    return quote == String::npos ? '\0' : before[quote];
  }

  bool standsAlone(const Reference& reference) const {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    return (reference.Begin == 0 || isBlank(text_[reference.Begin - 1])) &&
           (reference.End == text_.size() || isBlank(text_[reference.End]));
  }

  /// The reference with another chain of commands, as text for a hint.
  String written(const Reference& reference, const String& chain) const {
    return "$(" + Shown(reference.Name) + chain + ")";
  }
  String chainOf(const Reference& reference) const {
    return reference.Calls.empty()
               ? String::Null
               : String("." +
                        Shown(text_.substr(reference.Calls.front().Begin,
                                           reference.Calls.back().End - reference.Calls.front().Begin)));
  }

  void one(const Reference& reference) {
    const ValueKind value = kindOf(check_, reference.Name);
    bool quotedHere = false;
    for (const CommandCall& call : reference.Calls) {
      const String name(call.Command->Name);
      if (givesPlain(call)) {
        return; // a number, or words that the author chose
      }
      if (isOneOf(name, {"Leaf", "Branch", "Base", "TranslateToLocal", "TranslateContents", "PlainPath"}) &&
          quotedHere) {
        check_.out.warning("enquote-first", placed_.span.part(call.Begin, call.End - call.Begin),
                           name + " gets the quotes of Enquote too, where a name needs some",
                           "write Enquote as the last command");
        return;
      }
      quotedHere =
          isOneOf(name, {"Enquote", "Option", "Each"}) || (quotedHere && !isOneOf(name, {"Dequote"}));
    }
    if (value == ValueKind::Plain) {
      return;
    }
    if (isEscaped(reference)) {
      check_.out.warning("escaped-reference", placed_.span.part(reference.Begin - 1, 1),
                         "this backslash keeps the first letter of a value, which may be a quote",
                         "leave it out; a plain \"$(\" is written \"$$(\"");
      return;
    }
    if (value == ValueKind::Scenes) {
      scenes(reference, quotedHere);
      return;
    }
    const char quote = quoteAround(reference);
    if (quote != '\0' && quotedHere) {
      check_.out.warning(
          "quoted-twice", span(reference),
          "Enquote writes quotes where a name needs some, but this stands within quotes already",
          "leave out the quotes around it");
    } else if (quote != '\0') {
      check_.out.warning(
          "quoted-by-hand", span(reference),
          "a quote or a backslash in the value of " + quotedText(reference.Name) + " breaks these quotes",
          "write " + written(reference, chainOf(reference) + ".Enquote") + " without quotes around it");
    } else if (!quotedHere && !(standsAlone(reference) && value == ValueKind::Text &&
                                reference.Calls.empty() && isForArguments(check_, reference.Name))) {
      unquoted(reference, value);
    }
  }

  void unquoted(const Reference& reference, ValueKind value) {
    const ParameterInfo* parameter = check_.info->GetParam(reference.Name);
    std::string hint = "write " + written(reference, chainOf(reference) + ".Enquote");
    // Enquote would make an empty argument of nothing.
    const auto prefix =
        std::find_if(reference.Calls.begin(), reference.Calls.end(), [](const CommandCall& call) {
          return String::EqualNoCase(call.Command->Name, "Prefix");
        });
    if (parameter != nullptr && parameter->Type() == ParameterInfo::k_List) {
      hint = "write " + written(reference, ".Each()") + ", or with a prefix for each text";
    } else if (prefix != reference.Calls.end()) {
      hint = "write " + written(reference, ".Option(" + Shown(prefix->Argument) + ")") +
             ", which quotes, and gives nothing where the value is empty";
    }
    check_.out.warning("unquoted", span(reference),
                       String(value == ValueKind::Path ? "a name" : "a text") +
                           " with a blank or a quote in it becomes several arguments here",
                       hint);
  }

  void scenes(const Reference& reference, bool quotedHere) {
    const bool quotes = isTrue(check_, "EnquoteActual");
    const char around = quoteAround(reference);
    if (quotes && quotedHere) {
      check_.out.warning("quoted-twice", span(reference),
                         "$(ActualScene) is quoted already, each file by itself",
                         "leave out Enquote, or write EnquoteActual=No in [OverrideDefaults]");
    } else if (quotes && around != '\0') {
      check_.out.warning("quoted-twice", span(reference),
                         "$(ActualScene) is quoted already, but this stands within quotes",
                         "leave out the quotes around it");
    } else if (quotes && isPathCommand(reference)) {
      check_.out.warning("quoted-scene", span(reference),
                         "$(ActualScene) is quoted where a name needs it, and commands get the quotes too",
                         "write EnquoteActual=No in [OverrideDefaults], and Enquote as the last command");
    } else if (!quotes && !quotedHere) {
      check_.out.warning(
          "unquoted", span(reference), "a name with a blank or a quote in it becomes several arguments here",
          "write " + written(reference, chainOf(reference) + ".Enquote") + ", or leave EnquoteActual on");
    } else if (!quotes && isTrue(check_, "CheckForMultipleFiles") && severalFrames()) {
      check_.out.warning("joined-scenes", span(reference),
                         "the scene files of a work of several frames become one word here",
                         "leave EnquoteActual on and Enquote out, or fix PacketSize at 1");
    }
  }

  static bool isPathCommand(const Reference& reference) {
    for (const CommandCall& call : reference.Calls) {
      if (String::EqualNoCase(call.Command->Name, "Dequote")) {
        return false;
      }
      if (isOneOf(String(call.Command->Name), {"Leaf", "Branch", "Extension", "PlainPath"})) {
        return true;
      }
    }
    return false;
  }

  bool severalFrames() const {
    const ParameterInfo* packet = check_.info->GetParam("PacketSize");
    return packet != nullptr && (packet->Default != "1" || (packet->Flags & ParameterInfo::k_ReadOnly) == 0);
  }

  const TypeCheck& check_;
  const PlacedText& placed_;
  String text_;
  std::vector<Reference> references_;
  String masked_;
};

/// A sequence whose works would all read the scene that was picked.
void checkSequence(const TypeCheck& check, const PlacedText& command) {
  if (!isTrue(check, "CheckForMultipleFiles")) {
    return;
  }
  const std::set<std::string> names = allNamesIn(check, String(command.text));
  if (names.contains("scene") && !names.contains("actualscene") && !names.contains("scenenameformat") &&
      !names.contains("frame") && !names.contains("subrange")) {
    for (const Reference& reference : referencesIn(String(command.text))) {
      if (String::EqualNoCase(reference.Name, "Scene")) {
        check.out.warning("picked-scene", command.span.part(reference.Begin, reference.End - reference.Begin),
                          "$(Scene) is the scene that was picked, in all works of a sequence",
                          "write $(ActualScene), or CheckForMultipleFiles=No");
        return;
      }
    }
  }
}

/// The names that a command line depends on: those in it, in the type's own
/// parameters that it names, in the environment and the start directory. The
/// output folder's default names the scene in most types, and says nothing.
std::set<std::string> namesOfWork(const TypeCheck& check, const String& command) {
  std::set<std::string> names;
  std::vector<String> open = {command, check.effective(p_Environment), check.effective(p_StartDirectory)};
  while (!open.empty()) {
    const String text = open.back();
    open.pop_back();
    for (const Reference& reference : referencesIn(text)) {
      if (names.insert(lowered(reference.Name)).second &&
          !String::EqualNoCase(reference.Name, p_OutputFolder)) {
        open.push_back(check.effective(reference.Name));
      }
    }
  }
  return names;
}

bool isSettable(const TypeCheck& check, const char* parameter) {
  const ParameterInfo* info = check.info->GetParam(parameter);
  return info != nullptr && (info->Flags & ParameterInfo::k_ReadOnly) == 0;
}

/// A command line that is the same for all scenes, or for all frames. A name that
/// is mistyped may have been the one that is missed.
void checkSameForAll(const TypeCheck& check, const PlacedText& command) {
  if (check.out.errors() > 0) {
    return;
  }
  const std::set<std::string> names = namesOfWork(check, String(command.text));
  const auto hasAny = [&names](std::initializer_list<const char*> some) {
    return std::any_of(some.begin(), some.end(), [&names](const char* name) { return names.contains(name); });
  };
  if (isSettable(check, p_Scene) && !hasAny({"scene", "actualscene", "scenenameformat", "name"})) {
    check.out.warning("no-scene", command.span, "the program is never told the scene that users pick",
                      "write $(ActualScene) or $(Scene.Enquote), or Scene=OfJob, ReadOnly, Literal in "
                      "[OverrideFlags] if it reads none");
  }
  const std::string frames = check.severalFrames();
  if (!frames.empty() && isSettable(check, p_Range) &&
      !hasAny({"frame", "subrange", "actualsubrange", "range", "actualscene", "scenenameformat"})) {
    check.out.warning(
        "no-frame", command.span,
        "the program is never told the frames, so each work of " + frames + " renders the same",
        "write $(SubRange.Start) and $(SubRange.End), or Range=OfJob, ReadOnly in [OverrideFlags] "
        "if it knows none");
  }
}

constexpr const char* trialScene = "/shots/a/scene_0001.ext";
constexpr const char* trialSequence = "/shots/a/scene_%04d.ext";

/// The file that an argument may name, with "%04d" and "####" as frame 1: all of
/// it, or what is behind its "=".
Path fileIn(const String& word, const Path& start) {
  String name;
  for (std::size_t i = word.find('=') + 1; i < word.size();) {
    std::size_t end = i;
    std::size_t digits = 0;
    if (word[i] == '#') {
      end = std::min(word.find_first_not_of('#', i), word.size());
      digits = end - i;
    } else if (word[i] == '%') {
      const std::size_t last = std::min(word.find_first_not_of("0123456789", i + 1), word.size());
      digits = static_cast<std::size_t>(std::max(1, std::atoi(word.c_str() + i + 1)));
      end = last < word.size() && word[last] == 'd' && digits < 10 ? last + 1 : i;
    }
    if (end == i) {
      name.push_back(word[i++]);
    } else {
      name += String(digits - 1, '0') + "1";
      i = end;
    }
  }
  return MakeAbsolute(Path(name), start);
}

/// Expected files beside what the command line names: the same name in another
/// folder, or with another extension. `words` is that of frame 1.
void checkOtherFiles(const TypeCheck& check, RenderJob& job, const std::vector<String>& words) {
  const std::optional<PlacedText> list = check.defaultOf(p_ExpectedFiles);
  if (!list) {
    return;
  }
  const std::vector<PlacedText> pieces = piecesOf(*list, ';');
  const std::vector<Path> expected = job.ExpectedFiles();
  constexpr std::size_t filesLimit = 300; // each is compared with each
  if (pieces.size() != expected.size() || expected.size() > filesLimit) {
    return;
  }
  const Path start = job.DetermineStartDirectory();
  std::vector<Path> named;
  for (std::size_t i = 0; i < std::min(words.size(), filesLimit); ++i) {
    if (const Path file = fileIn(words[i], start); file.Text() != trialScene) {
      named.push_back(file);
    }
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const String branch = expected[i].Branch(false, true);
    const auto isSame = [&](const Path& file) {
      return file == expected[i] ||
             (file.Branch(false, true) == branch && file.Leaf(true) == expected[i].Leaf(false));
    };
    if (std::any_of(named.begin(), named.end(), isSame)) {
      continue;
    }
    for (const Path& file : named) {
      const bool folder = file.Leaf(true) == expected[i].Leaf(true);
      const bool extension = file.Leaf(false) == expected[i].Leaf(false) &&
                             file.Branch(false, true) == branch && !file.Extension().empty() &&
                             branch != Path(trialScene).Branch(false, true);
      if (folder || extension) {
        check.out.warning("other-file", pieces[i].span,
                          "the command line names " + quotedText(file.Text()) + ", and " +
                              quotedText(expected[i].Text()) + " is expected: another " +
                              (folder ? "folder" : "extension"),
                          "write both alike");
        break;
      }
    }
  }
}

/// Templates that name the frame, and are one file for two frames all the same:
/// what they name is that of the scene, or is empty for a sequence.
void checkSharedFiles(const TypeCheck& check, RenderJob& job) {
  const std::optional<PlacedText> list = check.defaultOf(p_ExpectedFiles);
  const String rule = check.effective(p_FileCheck);
  if (!list || !isSettable(check, p_Range) || String::EqualNoCase(rule, "Work") ||
      String::EqualNoCase(rule, "None")) {
    return;
  }
  const bool sequence = isTrue(check, "CheckForMultipleFiles");
  if (sequence) {
    job.SetParameter(sceneNameFormat, trialSequence);
  }
  const auto filesOf = [&job](const char* frame) {
    job.SetParameter(p_SubRange, frame);
    return job.ExpectedFiles();
  };
  const std::vector<Path> first = filesOf("1-1");
  const std::vector<Path> second = filesOf("2-2");
  const std::vector<PlacedText> pieces = piecesOf(*list, ';');
  if (pieces.size() != first.size() || first.size() != second.size()) {
    return;
  }
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (first[i] == second[i] && namesFrame(check, String(pieces[i].text))) {
      check.out.warning("no-frame", pieces[i].span,
                        std::string(sequence ? "all frames of a sequence" : "all frames of a job") +
                            " have this one file",
                        "write $(Frame.Pad(4)) into the name, or FileCheck=Work in [OverrideDefaults]");
    }
  }
}

/// The last word: a job of the type, with a scene of an ordinary name.
void tryJob(const TypeCheck& check, const Span& span) {
  auto* job = dynamic_cast<ProcessJob*>(check.job);
  if (job == nullptr || check.out.errors() > 0) {
    return;
  }
  try {
    Path executable;
    const auto words = [&](const char* frames) {
      job->SetParameter(p_SubRange, frames);
      return SplitCommandLine(job->FormatStringWithParameters(job->CreateCommandLine(executable)));
    };
    job->SetParameter(p_Scene, trialScene);
    job->Set(p_AfterOutputFolder, "/before");
    job->Set(p_AfterImages, "/before/image.png");
    job->SetParameter(p_Name, "scene");
    words("1-2");
    if (auto* render = dynamic_cast<RenderJob*>(job); render != nullptr) {
      checkOtherFiles(check, *render, words("1-1"));
      checkSharedFiles(check, *render);
    }
  } catch (Exception* exception) {
    const int code = exception->Code();
    const auto [fact, hint] = factAndHint(takeText(exception));
    if (code == k_ErrorReference || code == k_ErrorSyntax || code == k_ErrorLimit) {
      check.out.error("command-fails", span, "no work can start by this: " + Shown(String(fact)), hint);
    }
  }
}

} // namespace

void checkCommandLines(const TypeCheck& check) {
  for (const CommandInfo& command : check.info->Commands()) {
    IniFile::EntryView entry;
    if (check.source.ini().FindEntry(command.Name, "Command", entry) && !check.out.full()) {
      const PlacedText line = valueOf(entry);
      CommandLine(check, line).run();
    }
  }
  const std::optional<PlacedText> command = check.defaultOf("CommandString");
  if (!command || command->text.empty()) {
    return;
  }
  CommandLine(check, *command).run();
  checkSequence(check, *command);
  tryJob(check, command->span);
  checkSameForAll(check, *command);
}

} // namespace trovik
