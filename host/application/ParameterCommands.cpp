#include "host/application/ParameterCommands.h"

#include "host/application/Excerpt.h"
#include "host/application/FrameRange.h"
#include "host/application/Job.h"
#include "host/application/PlainPath.h"
#include "host/application/SceneTranslation.h"
#include "host/application/StringLiterals.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/Suggest.h"
#include "host/foundation/WholeNumber.h"

#include <algorithm>
#include <optional>

namespace {

constexpr int k_PadLimit = 64;
constexpr std::int64_t k_AddLimit = 1'000'000'000'000;

bool IsSpecial(char c) {
  return c == '(' || c == ')' || c == ',' || c == '\\';
}

// Removes the backslashes that keep a special character plain. Before anything
// else a backslash is plain itself, so C:\renders survives.
String Unescape(std::string_view argument) {
  String plain;
  for (std::size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] == '\\' && i + 1 < argument.size() && IsSpecial(argument[i + 1])) {
      ++i;
    }
    plain.push_back(argument[i]);
  }
  return plain;
}

// Where the argument that begins at `position` ends: its closing parenthesis,
// or the end of the text.
std::size_t FindArgumentEnd(const String& text, std::size_t position) {
  int depth = 0;
  for (; position < text.size(); ++position) {
    if (text[position] == '\\' && position + 1 < text.size() && IsSpecial(text[position + 1])) {
      ++position;
    } else if (text[position] == '(') {
      ++depth;
    } else if (text[position] == ')' && depth-- == 0) {
      break;
    }
  }
  return std::min(position, text.size());
}

// Splits an argument at its first plain comma outside of parentheses.
std::pair<String, std::optional<String>> SplitArgument(const String& argument) {
  int depth = 0;
  for (std::size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] == '\\' && i + 1 < argument.size() && IsSpecial(argument[i + 1])) {
      ++i;
    } else if (argument[i] == '(') {
      ++depth;
    } else if (argument[i] == ')') {
      --depth;
    } else if (argument[i] == ',' && depth == 0) {
      const std::string_view all = argument;
      return {Unescape(all.substr(0, i)), Unescape(all.substr(i + 1))};
    }
  }
  return {Unescape(argument), std::nullopt};
}

[[noreturn]] void Refuse(const CommandCall& call, const String& needs, const String& notThis) {
  RaiseException("Job::ProcessParameterNameCommands", k_ErrorReference,
                 String(call.Command->Name) + " needs " + needs + ", not \"" + Shown(notThis) + "\"");
}

String Plain(const CommandCall& call) {
  return Unescape(call.Argument);
}

// The ends and the number of frames of a work, or of any range.
struct RangeFacts {
  int First = 0;
  int Last = 0;
  std::int64_t Count = 0;
};

RangeFacts ReadRange(const CommandCall& call, const String& value) {
  FrameRun run;
  if (ParseRun(value, run)) {
    return {run.First, run.Last, run.Count()};
  }
  try {
    const FrameSet set = FrameSet::Parse(value);
    if (!set.empty()) {
      const auto ends = std::minmax_element(set.Frames().begin(), set.Frames().end());
      return {*ends.first, *ends.second, static_cast<std::int64_t>(set.Frames().size())};
    }
  } catch (Exception* exception) {
    delete exception; // what is wanted here is said below
  }
  Refuse(call, "a frame range", value);
}

String Start(const CommandCall& call, const String& value) {
  return std::to_string(ReadRange(call, value).First);
}
String End(const CommandCall& call, const String& value) {
  return std::to_string(ReadRange(call, value).Last);
}
String Count(const CommandCall& call, const String& value) {
  return std::to_string(ReadRange(call, value).Count);
}

String Pad(const CommandCall& call, const String& value) {
  const String argument = Plain(call);
  const int width = ReadWholeNumber<int>(argument).value_or(-1);
  if (width < 0 || width > k_PadLimit) {
    Refuse(call, "a number of digits from 0 to " + std::to_string(k_PadLimit), argument);
  }
  const bool negative = value[0] == '-';
  String digits = value.substr(negative || value[0] == '+' ? 1 : 0);
  if (digits.empty() || digits.find_first_not_of("0123456789") != String::npos) {
    Refuse(call, "a whole number", value);
  }
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
  if (digits.size() < static_cast<std::size_t>(width)) {
    digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
  }
  return (negative ? "-" : "") + digits;
}

// Frames and their likes: what no program takes is no number here, and so no sum
// can leave the range of its type.
std::int64_t WholeNumber(const CommandCall& call, const String& needs, const String& text) {
  const std::size_t sign = text.size() > 1 && text[0] == '+' && text[1] != '-' ? 1 : 0;
  const auto number = ReadWholeNumber<std::int64_t>(std::string_view(text).substr(sign));
  if (!number || *number < -k_AddLimit || *number > k_AddLimit) {
    Refuse(call, needs, text);
  }
  return *number;
}

String Add(const CommandCall& call, const String& value) {
  const std::int64_t number = WholeNumber(call, "a whole number", value);
  return std::to_string(number + WholeNumber(call, "a whole number to add", Plain(call)));
}

String Enquote(const CommandCall& /*call*/, const String& value) {
  return EnquoteWord(value);
}
String Dequote(const CommandCall& /*call*/, const String& value) {
  return DequoteWord(value);
}
String PythonString(const CommandCall& /*call*/, const String& value) {
  return PythonLiteral(value);
}
String LispString(const CommandCall& /*call*/, const String& value) {
  return LispLiteral(value);
}
String JsonString(const CommandCall& call, const String& value) {
  std::optional<String> literal = JsonLiteral(value);
  if (!literal.has_value()) {
    Refuse(call, "a text in UTF-8", value);
  }
  return std::move(*literal);
}
String Leaf(const CommandCall& /*call*/, const String& value) {
  return Path(value).Leaf(true);
}
String Branch(const CommandCall& /*call*/, const String& value) {
  return Path(value).Branch(true, true);
}
String Base(const CommandCall& /*call*/, const String& value) {
  return Path(value).Leaf(false);
}
String Extension(const CommandCall& /*call*/, const String& value) {
  return Path(value).Extension();
}
String Upper(const CommandCall& /*call*/, const String& value) {
  return value.Upper();
}
String Lower(const CommandCall& /*call*/, const String& value) {
  return value.Lower();
}
String Default(const CommandCall& call, const String& value) {
  return value.empty() ? Plain(call) : value;
}
String Prefix(const CommandCall& call, const String& value) {
  return Plain(call) + value;
}
String Suffix(const CommandCall& call, const String& value) {
  return value + Plain(call);
}

// The text is a piece of command line as its author wrote it.
String Option(const CommandCall& call, const String& value) {
  return Plain(call) + EnquoteWord(value);
}

String If(const CommandCall& call, const String& value) {
  const auto [yes, no] = SplitArgument(call.Argument);
  return value.Bool() ? yes : no.value_or(String::Null);
}

String Replace(const CommandCall& call, const String& value) {
  const auto [from, to] = SplitArgument(call.Argument);
  if (from.empty() || !to.has_value()) {
    Refuse(call, "two texts with a comma between", call.Argument);
  }
  String result;
  std::size_t position = 0;
  for (std::size_t found = 0; (found = value.find(from, position)) != String::npos;
       position = found + from.size()) {
    result.append(value, position, found - position).append(*to);
    if (result.size() > k_ExpansionLimit) {
      RaiseException("Job::ProcessParameterNameCommands", k_ErrorLimit,
                     "Replace makes a text of more than 64 MiB");
    }
  }
  return String(result.append(value, position));
}

// The number's conversion is the first one, or the module would have found no
// sequence. "%%" is doubled already.
String DoublePercent(const CommandCall& /*call*/, const String& value) {
  String result;
  bool numbered = false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    result.push_back(value[i]);
    if (value[i] != '%') {
      continue;
    }
    const std::size_t letter = value.find_first_not_of("0123456789", i + 1);
    if (!numbered && letter != String::npos && value[letter] == 'd') {
      numbered = true;
      continue;
    }
    if (i + 1 < value.size() && value[i + 1] == '%') {
      ++i;
    }
    result.push_back('%');
  }
  return result;
}

// The prefix is a piece of command line as its author wrote it; the texts come
// from users, and each must stay one word.
String Each(const CommandCall& call, const String& value) {
  const String prefix = Plain(call);
  String result;
  for (const String& text : ListParameterInfo().Unpack(value)) {
    if (!text.empty()) {
      result += (result.empty() ? "" : " ") + prefix + EnquoteWord(text);
    }
    if (result.size() > k_ExpansionLimit) {
      RaiseException("Job::ProcessParameterNameCommands", k_ErrorLimit,
                     "Each makes a text of more than 64 MiB");
    }
  }
  return result;
}

String TranslateToLocal(const CommandCall& /*call*/, const String& value) {
  return Path(value).TranslateToLocal();
}
String TranslateContents(const CommandCall& /*call*/, const String& value) {
  return TranslateSceneContents(Path(value));
}

String WithoutLetters(const CommandCall& call, const String& value) {
  return PlainPath(value, NameLetters(Plain(call), String(call.Command->Name)));
}

struct Action : ParameterCommand {
  String (*Apply)(const CommandCall& call, const String& value);
  bool OfEmpty;           // whether the empty value gives anything but the empty text
  bool OfEach = false;    // of a list it takes each text by itself
  bool MakesFile = false; // a copy or a link, besides the text
};

constexpr Action k_Actions[] = {
    {{"Enquote", "", "one word of the command line, quoted where needed"}, Enquote, true},
    {{"Dequote", "", "undoes Enquote"}, Dequote, false},
    {{"PythonString", "", "a string of Python, quotes included"}, PythonString, true},
    {{"LispString", "", "a string of Lisp or Scheme, quotes included"}, LispString, true},
    {{"JsonString", "", "a string of JSON, quotes included"}, JsonString, true},
    {{"Leaf", "", "the last component of a path"}, Leaf, false},
    {{"Branch", "", "the directory of a path"}, Branch, false},
    {{"Base", "", "the last component without its extension"}, Base, false},
    {{"Extension", "", "the extension without its point"}, Extension, false},
    {{"Start", "", "the first frame of a range"}, Start, false},
    {{"End", "", "the last frame of a range"}, End, false},
    {{"Count", "", "the number of frames of a range"}, Count, false},
    {{"Pad", "(n)", "the number with at least n digits"}, Pad, false},
    {{"Add", "(n)", "the number plus n"}, Add, false},
    {{"Upper", "", "in upper case"}, Upper, false},
    {{"Lower", "", "in lower case"}, Lower, false},
    {{"Default", "(text)", "the text where the value is empty"}, Default, true},
    {{"Prefix", "(text)", "the text before the value, nothing where it is empty"}, Prefix, false},
    {{"Suffix", "(text)", "the text after the value, nothing where it is empty"}, Suffix, false},
    {{"Option", "(text)", "the text and the value as one quoted word, nothing where it is empty"},
     Option,
     false},
    {{"If", "(yes,no)", "one of two texts, by the truth of the value"}, If, true},
    {{"Replace", "(from,to)", "every occurrence replaced"}, Replace, false},
    {{"DoublePercent", "", "a sequence's pattern with every % doubled but that of the number"},
     DoublePercent,
     false},
    {{"Each", "(prefix)", "each text of a list with the prefix, quoted, joined with blanks"}, Each, false},
    {{"TranslateToLocal", "", "the path as this machine knows it"}, TranslateToLocal, false},
    {{"TranslateContents", "", "a copy of the text file with its paths rewritten for this machine"},
     TranslateContents,
     false,
     false,
     true},
    {{"PlainPath", "(letters)", "the path, by a link where it holds such letters"},
     WithoutLetters,
     false,
     true,
     true},
};

const Action* FindAction(std::string_view name) {
  const auto* found = std::find_if(std::begin(k_Actions), std::end(k_Actions), [name](const Action& action) {
    return String::EqualNoCase(action.Name, name);
  });
  return found == std::end(k_Actions) ? nullptr : found;
}

// Every command of a call is one of those above.
const Action& ActionOf(const CommandCall& call) {
  return static_cast<const Action&>(*call.Command);
}

} // namespace

const std::vector<ParameterCommand>& ParameterCommands() {
  static const std::vector<ParameterCommand> commands = [] {
    std::vector<ParameterCommand> list;
    for (const Action& action : k_Actions) {
      list.push_back(action);
    }
    return list;
  }();
  return commands;
}

namespace {

// Reads one command and its argument; `position` is then behind them.
bool ReadCommand(const String& text, std::size_t& position, CommandCall& call, ReferenceProblem& problem) {
  call.Begin = position;
  position = std::min(text.find_first_of(".()", position), text.size());
  const std::size_t nameEnd = position;
  const std::string_view name = std::string_view(text).substr(call.Begin, nameEnd - call.Begin);
  const Action* action = FindAction(name);
  if (name.empty()) {
    problem = {call.Begin, call.Begin, "a parameter command is missing after \".\"", {}};
    return false;
  }
  if (action == nullptr) {
    std::vector<String> known;
    for (const ParameterCommand& command : ParameterCommands()) {
      known.emplace_back(command.Name);
    }
    const String near = SuggestName(name, known);
    problem = {call.Begin, nameEnd, "unknown parameter command \"" + Shown(String(name)) + "\"",
               near.empty() ? String::Null : "did you mean \"" + near + "\"?"};
    return false;
  }
  call.Command = action;
  if (position < text.size() && text[position] == '(') {
    const std::size_t open = position;
    position = FindArgumentEnd(text, open + 1);
    if (position == text.size()) {
      problem = {open, position, "this argument is never closed",
                 "write a backslash before a parenthesis that stands alone"};
      return false;
    }
    call.Argument = text.substr(open + 1, position - open - 1);
    call.HasArgument = true;
    ++position;
  }
  call.End = position;
  const bool wantsArgument = *action->Arguments != '\0';
  if (wantsArgument && !call.HasArgument) {
    problem = {call.Begin,
               call.End,
               String(action->Name) + " needs an argument: " + action->Name + action->Arguments,
               {}};
    return false;
  }
  if (!wantsArgument && call.HasArgument) {
    problem = {call.Begin, call.End, String(action->Name) + " takes no argument", {}};
    return false;
  }
  return true;
}

bool ReadChain(const String& text, std::size_t& position, std::vector<CommandCall>& calls,
               ReferenceProblem& problem) {
  for (;;) {
    CommandCall call;
    if (!ReadCommand(text, position, call, problem)) {
      return false;
    }
    calls.push_back(std::move(call));
    if (position == text.size() || text[position] == ')') {
      return true;
    }
    if (text[position] != '.') {
      problem = {position, position + 1, "a \".\" or \")\" is missing behind the argument", {}};
      return false;
    }
    ++position;
  }
}

/// A name ends at its first "." or ")". Only what is told of the jobs that a
/// job waits for has a "." of its own.
std::size_t EndOfName(const String& text, std::size_t begin) {
  for (const std::string_view dotted : {p_AfterOutputFolder, p_AfterImages}) {
    const std::size_t end = begin + dotted.size();
    if (end < text.size() && (text[end] == '.' || text[end] == ')') &&
        String::EqualNoCase(std::string_view(text).substr(begin, dotted.size()), dotted)) {
      return end;
    }
  }
  return text.find_first_of(".)", begin);
}

} // namespace

std::vector<CommandCall> ReadCommands(const String& text, std::size_t& position, const String& where) {
  std::vector<CommandCall> calls;
  ReferenceProblem problem;
  if (!ReadChain(text, position, calls, problem)) {
    RaisePlaced("ExpandReferences", k_ErrorReference, where + ":" + std::to_string(problem.Begin + 1),
                problem.Text(), text, problem.Begin);
  }
  return calls;
}

std::size_t FindReference(const String& text, std::size_t position, bool& literal) {
  const std::size_t found = text.find("$(", position);
  literal = found != String::npos && found > position && text[found - 1] == '$';
  return found;
}

bool ReadReference(const String& text, std::size_t start, Reference& reference, ReferenceProblem& problem) {
  reference.Begin = start;
  std::size_t position = EndOfName(text, start + 2);
  if (position != String::npos) {
    reference.Name = text.substr(start + 2, position - start - 2);
    if (text[position] == '.') {
      ++position;
      if (!ReadChain(text, position, reference.Calls, problem)) {
        return false;
      }
    }
  }
  if (position >= text.size()) {
    problem = {start, text.size(), "this reference is never closed",
               "add \")\", or write \"$$(\" where \"$(\" is meant as it stands"};
    return false;
  }
  reference.End = position + 1;
  return true;
}

String ApplyCommand(const CommandCall& call, const String& value, const ParameterInfo* info) {
  const Action& action = ActionOf(call);
  if (value.empty() && !action.OfEmpty) {
    return String::Null;
  }
  const ListParameterInfo* list = action.OfEach ? ListParameterInfo::CastFrom(info) : nullptr;
  if (list == nullptr) {
    return action.Apply(call, value);
  }
  std::vector<String> texts = list->Unpack(value);
  for (String& text : texts) {
    text = action.Apply(call, text);
  }
  return list->Pack(texts);
}

bool MakesFile(const CommandCall& call) {
  return ActionOf(call).MakesFile;
}
