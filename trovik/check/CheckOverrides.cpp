// [OverrideDefaults] and its like, and [AutoDetect].

#include "host/application/Definition.h"
#include "host/application/Excerpt.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/StringTokenizer.h"
#include "trovik/check/References.h"
#include "trovik/check/TypeCheck.h"
#include "trovik/text/Amounts.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

std::vector<String> parameterNames(const TypeCheck& check) {
  std::vector<String> names;
  for (std::size_t i = 0; i < check.info->ParamCount(); ++i) {
    const ParameterInfo* parameter = check.info->GetParam(static_cast<unsigned long>(i));
    if (parameter->Type() != ParameterInfo::k_Heading) {
      names.push_back(parameter->Name);
    }
  }
  return names;
}

/// The parameter that an entry's key names; tells it where there is none.
const ParameterInfo* namedParameter(const TypeCheck& check, const PlacedText& name,
                                    const std::string& passedOver) {
  const ParameterInfo* parameter = check.info->GetParam(String(name.text));
  if (parameter == nullptr) {
    const std::string near = didYouMean(name.text, parameterNames(check));
    const std::string home = homeOfKey(check, String(name.text));
    check.out.error("unknown-parameter", name.span,
                    "the type has no parameter " + quotedText(name.text) + ", so this " + passedOver,
                    !home.empty()  ? "write it in [" + home + "]"
                    : near.empty() ? "\"trovik type\" lists what a type has"
                                   : near);
  }
  return parameter;
}

void checkDefault(const TypeCheck& check, const ParameterInfo& parameter, const PlacedText& value) {
  const auto refuse = [&](const std::string& why) {
    const auto [fact, hint] = factAndHint(why);
    check.out.error("bad-default", value.span, "this default is refused: " + Shown(String(fact)), hint);
  };
  String why;
  if (!parameter.Accepts(String(value.text), why)) {
    refuse(why);
    return;
  }
  if (value.text.find("$(") == std::string::npos) {
    try {
      if (String::EqualNoCase(parameter.Name, p_SuccessExitCodes)) {
        IsSuccessExitCode(String(value.text), 0);
      } else if (String::EqualNoCase(parameter.Name, p_Memory) ||
                 String::EqualNoCase(parameter.Name, p_ClusterMemory)) {
        memoryOf(parameter.Name, value.text, "for what is usual");
      } else if (String::EqualNoCase(parameter.Name, p_Limits)) {
        amountsOf(parameter.Name, value.text);
      } else if (String::EqualNoCase(parameter.Name, p_RefusedInSceneName)) {
        const NameLetters letters(String(value.text), p_RefusedInSceneName);
      }
    } catch (Exception* exception) {
      refuse(takeText(exception));
    } catch (const UsageError& error) { // "Memory: ..."
      check.out.error("bad-default", value.span,
                      "this default is refused: " + error.message.substr(parameter.Name.size() + 2),
                      error.hint);
    }
  }
  if (String::EqualNoCase(parameter.Name, p_ErrorDetectPosition) &&
      value.text.find("$(") == std::string::npos &&
      !ParameterInfo(ParameterInfo::k_Boolean).Accepts(String(value.text), why)) {
    check.out.warning("bad-boolean", value.span,
                      quotedText(value.text) + " is neither yes nor no, and is read as no",
                      "write 1 for error texts that count anywhere in a line, 0 for its start");
  }
  if (isOneOf(parameter.Name, {"CheckForMultipleFiles", "SceneNumberLength"})) {
    check.out.warning("no-effect", value.span, "detection does not ask this parameter",
                      "write " + Shown(parameter.Name) + "=" + Shown(String(value.text)) + " in [Module]");
  }
  if (String::EqualNoCase(parameter.Name, "HideSubrange") && String(value.text).Bool()) {
    check.out.warning("deprecated", value.span, "HideSubrange should not be used any more",
                      "write $(ActualSubRange) where the frames of a sequence shall be left out");
  }
}

/// Pairs of a label and patterns between bars.
void checkFilter(const TypeCheck& check, const PlacedText& filter) {
  std::vector<PlacedText> pieces;
  for (std::size_t begin = 0; begin <= filter.text.size();) {
    const std::size_t end = std::min(filter.text.find('|', begin), filter.text.size());
    pieces.push_back({filter.text.substr(begin, end - begin), filter.span.part(begin, end - begin)});
    begin = end + 1;
  }
  if (filter.text.empty()) {
    return;
  }
  if (pieces.size() % 2 != 0) {
    check.out.warning("bad-filter", filter.span, "a filter is pairs of a label and patterns between bars",
                      "write it as in Scenes (*.pov)|*.pov|All files (*)|*");
    return;
  }
  for (std::size_t i = 1; i < pieces.size(); i += 2) {
    const std::string& patterns = pieces[i].text;
    if (patterns.find_first_not_of(" ;") == std::string::npos) {
      check.out.warning("bad-filter", pieces[i - 1].span,
                        "there is no pattern behind the label " + quotedText(pieces[i - 1].text),
                        "write patterns such as *.pov;*.inc");
    } else if (patterns.find('/') != std::string::npos) {
      check.out.warning("bad-filter", pieces[i].span, "patterns are for names of files, without folders",
                        "leave out what stands before \"/\"");
    }
  }
}

} // namespace

void checkOverrides(const TypeCheck& check) {
  const IniFile& ini = check.source.ini();
  for (const IniFile::EntryView& entry : ini.Entries("OverrideDefaults")) {
    if (check.out.full()) {
      return;
    }
    if (const ParameterInfo* parameter = namedParameter(check, keyOf(entry), "default is passed over")) {
      checkDefault(check, *parameter, valueOf(entry));
    }
  }
  for (const IniFile::EntryView& entry : ini.Entries("OverrideFlags")) {
    if (check.out.full() || namedParameter(check, keyOf(entry), "entry is passed over") == nullptr) {
      continue;
    }
    std::vector<DefinitionProblem> problems;
    ReadFlags(entry.Value, entry.ValuePlace, problems);
    for (const DefinitionProblem& problem : problems) {
      check.out.error("unknown-flag", {problem.Place, problem.Length}, problem.Message, problem.Hint);
    }
  }
  for (const IniFile::EntryView& entry : ini.Entries("OverrideFilters")) {
    if (check.out.full()) {
      return;
    }
    const ParameterInfo* parameter = namedParameter(check, keyOf(entry), "filter is passed over");
    if (parameter != nullptr && FileParameterInfo::CastFrom(parameter) == nullptr) {
      check.out.error("no-file", keyOf(entry).span,
                      "the parameter " + quotedText(entry.Key) + " is no file, so this filter is passed over",
                      "take it out, or define the parameter with Type=File");
    } else if (parameter != nullptr) {
      checkFilter(check, valueOf(entry));
    }
  }
  for (std::size_t i = 0; i < check.info->ParamCount(); ++i) {
    IniFile::EntryView entry;
    const ParameterInfo* parameter = check.info->GetParam(static_cast<unsigned long>(i));
    if (FileParameterInfo::CastFrom(parameter) != nullptr && !check.isStandard(parameter->Name) &&
        ini.FindEntry(parameter->Name, "Filter", entry)) {
      checkFilter(check, valueOf(entry));
    }
  }
}

void checkAutoDetect(const TypeCheck& check) {
  for (const IniFile::EntryView& entry : check.source.ini().Entries("AutoDetect")) {
    if (check.out.full()) {
      return;
    }
    const ParameterInfo* changed = namedParameter(check, keyOf(entry), "rule is never applied");
    if (changed != nullptr && changed->Name != entry.Key) {
      check.out.error("wrong-case", keyOf(entry).span,
                      "the parameter is spelled " + quotedText(changed->Name) +
                          ", so this rule is never applied",
                      "write it with the same capital letters");
    }
    const std::vector<PlacedText> pieces = piecesOf(valueOf(entry), ',');
    if (pieces.empty()) {
      check.out.warning("no-target", keyOf(entry).span, "this rule fills nothing", "write TARGET=TEXT");
    }
    for (const PlacedText& piece : pieces) {
      const std::size_t equals = piece.text.find('=');
      if (equals == std::string::npos) {
        const bool split = piece.text.find(')') < piece.text.find('(');
        check.out.error("no-target", piece.span, "this piece is passed over: it has no TARGET=TEXT",
                        split ? "a comma ends a rule; write the whole rule in double quotes"
                              : "write which parameter it fills");
        continue;
      }
      String target(piece.text.substr(0, equals));
      const std::size_t blanks = target.size() - std::min(target.find_first_not_of(" \t"), target.size());
      const std::size_t quote = piece.span.length > piece.text.size() ? 1 : 0;
      const std::size_t offset = target.size() - blanks + quote;
      target.Trim();
      namedParameter(check, {target, piece.span.part(offset, target.size())}, "text goes nowhere");
    }
  }
}

} // namespace trovik
