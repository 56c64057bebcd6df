// References in every text of the file that has some.

#include "host/application/Excerpt.h"
#include "trovik/check/References.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>

namespace trovik {

std::vector<Reference> referencesIn(const String& text,
                                    const std::function<void(const ReferenceProblem&)>& tell) {
  constexpr std::size_t limit = 1000;
  std::vector<Reference> references;
  bool literal = false;
  std::size_t at = 0;
  while (references.size() < limit && (at = FindReference(text, at, literal)) != String::npos) {
    Reference reference;
    ReferenceProblem problem;
    if (literal) {
      at += 2;
    } else if (ReadReference(text, at, reference, problem)) {
      at = reference.End;
      references.push_back(std::move(reference));
    } else {
      if (tell) {
        tell(problem);
      }
      at = std::max(at + 2, problem.End);
    }
  }
  return references;
}

bool hasCommand(const Reference& reference, const char* name) {
  return std::any_of(reference.Calls.begin(), reference.Calls.end(), [name](const CommandCall& call) {
    return String::EqualNoCase(call.Command->Name, name);
  });
}

std::set<std::string> allNamesIn(const TypeCheck& check, const String& text) {
  std::set<std::string> names;
  std::vector<String> open = {text};
  while (!open.empty()) {
    const String next = open.back();
    open.pop_back();
    for (const Reference& reference : referencesIn(next)) {
      if (names.insert(lowered(reference.Name)).second) {
        open.push_back(check.effective(reference.Name));
      }
    }
  }
  return names;
}

namespace {

std::vector<String> answeredNames(const TypeCheck& check) {
  return check.job == nullptr ? std::vector<String>() : check.job->ParameterNames();
}

Span within(const PlacedText& text, std::size_t begin, std::size_t end) {
  return text.span.part(begin, end - begin);
}

/// "${Width}" and "$Width" are the references of other languages.
void tellOtherLanguages(const TypeCheck& check, const PlacedText& text) {
  const String& all = String(text.text);
  for (std::size_t at = all.find('$'); at != String::npos; at = all.find('$', at + 1)) {
    const bool braces = at + 1 < all.size() && all[at + 1] == '{';
    const std::size_t begin = at + (braces ? 2 : 1);
    const std::size_t end = std::min(
        all.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_", begin),
        all.size());
    const String name = all.substr(begin, end - begin);
    if (!name.empty() && (!braces || (end < all.size() && all[end] == '}')) && check.isAnswered(name)) {
      const std::size_t close = end + (braces ? 1 : 0);
      check.out.warning("no-reference", within(text, at, close),
                        quotedText(all.substr(at, close - at)) + " is no reference, and stays as it is",
                        "write $(" + Shown(name) + ")");
    }
  }
}

/// How other programs write what is put in.
struct OtherForm {
  std::string_view open;
  char close;
};
constexpr std::array<OtherForm, 6> otherForms = {
    {{"%(", ')'}, {"$[", ']'}, {"{", '}'}, {"<", '>'}, {"%", '%'}, {"@", '@'}}};

/// "%(Frame)", "{SubRange.Start}", "<Scene>" and the like.
void tellOtherForms(const TypeCheck& check, const PlacedText& text,
                    const std::vector<Reference>& references) {
  std::string masked = text.text;
  for (const Reference& reference : references) {
    std::fill(masked.begin() + static_cast<std::ptrdiff_t>(reference.Begin),
              masked.begin() + static_cast<std::ptrdiff_t>(reference.End), ' ');
  }
  for (const OtherForm& form : otherForms) {
    for (std::size_t at = masked.find(form.open); at != std::string::npos;
         at = masked.find(form.open, at + 1)) {
      const std::size_t begin = at + form.open.size();
      constexpr std::size_t longest = 100; // no name is longer
      const std::size_t length = std::string_view(masked).substr(begin, longest).find(form.close);
      const std::size_t end = length == std::string::npos ? length : begin + length;
      const bool braces = form.open == "{" && at > 0 && masked[at - 1] == '$'; // reported already
      if (end == std::string::npos || braces) {
        continue;
      }
      const String inside(masked.substr(begin, end - begin));
      const String name(inside.substr(0, inside.find('.')));
      if (!name.empty() && check.isAnswered(name)) {
        check.out.warning("no-reference", within(text, at, end + 1),
                          quotedText(masked.substr(at, end + 1 - at)) +
                              " is no reference, and stays as it is",
                          "write $(" + Shown(inside) + ")");
      }
    }
  }
}

/// One text; `place` is where it stands in the file.
void checkText(const TypeCheck& check, const PlacedText& text) {
  const String all(text.text);
  const std::vector<Reference> references = referencesIn(all, [&](const ReferenceProblem& problem) {
    const char* rule = problem.Message.starts_with("unknown") ? "unknown-command" : "bad-reference";
    check.out.error(rule, within(text, problem.Begin, problem.End), problem.Message, problem.Hint);
  });
  for (const Reference& reference : references) {
    const Span name = text.span.part(reference.Begin + 2, reference.Name.size());
    const ParameterInfo* parameter = check.info->GetParam(reference.Name);
    if (check.out.full()) {
      return;
    }
    if (reference.Name.empty()) {
      check.out.error("unknown-reference", within(text, reference.Begin, reference.End),
                      "this reference names nothing",
                      "write the name of a parameter, or \"$$(\" where \"$(\" is meant as it stands");
    } else if (!check.isAnswered(reference.Name)) {
      const std::string near = didYouMean(reference.Name, answeredNames(check));
      check.out.error(
          "unknown-reference", name, "nobody answers $(" + Shown(reference.Name) + ")",
          near.empty() ? "define the parameter, or write \"$$(\" where \"$(\" is meant as it stands" : near);
    } else if (parameter != nullptr && parameter->Type() == ParameterInfo::k_Heading) {
      check.out.warning("empty-reference", name,
                        quotedText(reference.Name) + " is a heading, which has no value", "name a parameter");
    }
  }
  tellOtherLanguages(check, text);
  tellOtherForms(check, text, references);
}

/// Searches circles among the defaults, depth first.
class Circles {
public:
  explicit Circles(const TypeCheck& check) : check_(check) {}

  void visit(const String& name) {
    const std::string key = lowered(name);
    if (done_.contains(key) || open_.size() > 100) {
      return;
    }
    open_.push_back(name);
    const ParameterInfo* parameter = check_.info->GetParam(name);
    const std::optional<PlacedText> text = check_.defaultOf(name);
    if (parameter != nullptr && !parameter->IsLiteral() && text) {
      for (const Reference& reference : referencesIn(String(text->text))) {
        const auto same = [&reference](const String& other) {
          return String::EqualNoCase(other, reference.Name);
        };
        const auto first = std::find_if(open_.begin(), open_.end(), same);
        if (first == open_.end()) {
          visit(reference.Name);
          continue;
        }
        std::string circle;
        for (auto at = first; at != open_.end(); ++at) {
          circle += Shown(*at) + " -> ";
        }
        check_.out.error("circle", text->span.part(reference.Begin, reference.End - reference.Begin),
                         "parameters refer to each other in a circle: " + circle + Shown(*first),
                         "take one of the references out");
      }
    }
    open_.pop_back();
    done_.insert(key);
  }

private:
  const TypeCheck& check_;
  std::vector<String> open_;
  std::set<std::string> done_;
};

/// Picked files, and names from outside, are never expanded.
bool isExpanded(const ParameterInfo& parameter) {
  return !parameter.IsLiteral() && !String::EqualNoCase(parameter.Name, "Name");
}

bool isJudgingText(const String& name) {
  static const std::vector<String> names = {"ImageStartText", "ImageEndText", "ImageNotEndText",
                                            "SuccessTexts",   p_ErrorStarts,  p_ErrorIgnores,
                                            p_NoRetryTexts};
  return std::any_of(names.begin(), names.end(),
                     [&name](const String& known) { return String::EqualNoCase(known, name); });
}

void checkDefault(const TypeCheck& check, const ParameterInfo& parameter) {
  const std::optional<PlacedText> text = check.defaultOf(parameter.Name);
  if (!text || isJudgingText(parameter.Name) || text->text != parameter.Default) {
    return;
  }
  if (isExpanded(parameter)) {
    checkText(check, *text);
  } else if (text->text.find("$(") != std::string::npos) {
    check.out.warning("not-expanded", text->span,
                      "the value of " + quotedText(parameter.Name) +
                          " is taken as it is, and its \"$(\" with it",
                      "references work in parameters of other types");
  }
}

} // namespace

void checkReferences(const TypeCheck& check) {
  Circles circles(check);
  const std::size_t count = std::min<std::size_t>(check.info->ParamCount(), 2000);
  for (std::size_t i = 0; i < count && !check.out.full(); ++i) {
    const ParameterInfo& parameter = *check.info->GetParam(static_cast<unsigned long>(i));
    if (parameter.Type() != ParameterInfo::k_Heading && check.info->GetParam(parameter.Name) == &parameter) {
      checkDefault(check, parameter);
      circles.visit(parameter.Name);
    }
  }
  for (const CommandInfo& command : check.info->Commands()) {
    IniFile::EntryView entry;
    if (check.source.ini().FindEntry(command.Name, "Command", entry) && !check.out.full()) {
      checkText(check, valueOf(entry));
    }
  }
  for (const IniFile::EntryView& entry : check.source.ini().Entries("AutoDetect")) {
    for (const PlacedText& piece : piecesOf(valueOf(entry), ',')) {
      const std::size_t equals = piece.text.find('=');
      // A piece in quotes is checked where it is plain text; its places are
      // those of the text within the quotes.
      const std::size_t quote = piece.span.length > piece.text.size() ? 1 : 0;
      if (equals != std::string::npos && !check.out.full()) {
        checkText(check, {piece.text.substr(equals + 1),
                          piece.span.part(equals + 1 + quote, piece.text.size() - equals - 1)});
      }
    }
  }
}

bool isOneOf(const String& name, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [&name](const char* known) { return String::EqualNoCase(name, known); });
}

bool givesPlain(const CommandCall& call) {
  return isOneOf(String(call.Command->Name), {"If", "Start", "End", "Count", "Add", "Pad", "Extension"});
}

ValueKind kindOf(const TypeCheck& check, const String& name) {
  if (String::EqualNoCase(name, "ActualScene")) {
    return ValueKind::Scenes;
  }
  const ParameterInfo* parameter = check.info->GetParam(name);
  if (parameter == nullptr ||
      isOneOf(name, {"ErrorDetectPosition", "SuccessExitCodes", "RefusedInSceneName"})) {
    return ValueKind::Plain;
  }
  switch (parameter->Type()) {
  case ParameterInfo::k_File:
  case ParameterInfo::k_Folder:
    return ValueKind::Path;
  case ParameterInfo::k_Text:
  case ParameterInfo::k_Multiline:
  case ParameterInfo::k_List:
    return ValueKind::Text;
  default:
    return ValueKind::Plain;
  }
}

} // namespace trovik
