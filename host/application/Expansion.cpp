#include "host/application/Expansion.h"

#include "host/application/Constants.h"
#include "host/application/Excerpt.h"
#include "host/application/ParameterCommands.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Suggest.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

// References are read from left to right; a value that may hold references of
// its own is expanded before it is put in, so nothing that came out of a value
// is ever read a second time. That is what makes names from outside harmless.
//
// Two forms of result exist. A final one is plain text. A text for later is
// again a text with references: what could not be answered stays as it was
// written, and a "$(" that a value brought along is written "$$(". Commands
// always work on plain text; a reference with commands whose value cannot be
// told yet stays as it was written.
//
// A type file is a stranger's text, and A=$(B)$(B), B=$(C)$(C), ... doubles
// with every line. So each name is answered and expanded once and remembered,
// and one budget bounds all the bytes that an expansion reads and writes.
//
// A command line may hold the same few references thousands of times. To read one,
// to look up its name and commands and to apply these takes ten times as long as
// to copy what comes out. So that is remembered as well, by the text of the
// reference. Only what is sure to come out the same again is: nothing that is left
// for later, and no command that makes a file. What it spends of the budget stays
// the same.
//
// And it may hold a single reference to a hundred thousand file names. Their text
// is as good as the whole line, so the result takes it over and lends it back
// where it is referred to again: two such texts at a time cost the system more
// than making one of them.

namespace {

constexpr std::size_t k_DepthLimit = 100;
constexpr std::size_t k_WorkLimit = 4 * k_ExpansionLimit;
// What is remembered of references: so many, and none with commands that became longer.
constexpr std::size_t k_MadeLimit = 1024;
constexpr std::size_t k_LongestMade = std::size_t{64} << 10;

constexpr std::size_t k_LongValue = std::size_t{64} << 10; // a shorter one is copied

struct Expanded {
  String Text;
  bool Complete = true; // nothing is left for later
};

class Expander {
public:
  explicit Expander(const ExpansionSource& source) : m_Source(source) {}

  String Run(const String& text) {
    Run(text, m_Source.What, m_Whole);
    return std::move(m_Whole.Text);
  }

private:
  void Run(const String& text, const String& where, Expanded& result) {
    std::size_t position = 0;
    for (;;) {
      bool literal = false;
      const std::size_t found = FindReference(text, position, literal);
      const std::size_t plainEnd = found == String::npos ? text.size() : found - (literal ? 1 : 0);
      Append(result, std::string_view(text).substr(position, plainEnd - position), where);
      if (found == String::npos) {
        return;
      }
      if (literal) {
        Append(result, m_Source.ForLater ? "$$(" : "$(", where);
        position = found + 2;
      } else if (const Made* made = FindMade(text, found); made != nullptr) {
        Spend(made->CommandBytes, where);
        Append(result, made->Text(), where);
        position = found + made->Reference.size();
      } else {
        position = ExpandOne(result, text, found, where);
      }
    }
  }

  struct Remembered {
    std::optional<ParameterAnswer> Answer;
    std::optional<Expanded> Value;
    std::size_t TakenSize = 0; // of its text, while only the whole result holds it
    std::size_t TakenAt = 0;   // where
  };

  // What a reference became, in the form of the result.
  struct Made {
    std::string_view Reference;    // in the text where it was met first, which stays
    const String* Value = nullptr; // as remembered, where there are no commands
    String Commanded;
    std::size_t CommandBytes = 0; // that the commands read

    const String& Text() const { return Value != nullptr ? *Value : Commanded; }
  };

  // A reference that holds no ")" but its own is known by what stands before
  // that, any other only by the whole of it: of those that begin alike up to
  // there, the first one is remembered.
  static std::string_view KeyOf(std::string_view text, std::size_t start) {
    return text.substr(start, text.find(')', start) - start);
  }

  const Made* FindMade(std::string_view text, std::size_t start) const {
    const auto found = m_Made.find(KeyOf(text, start));
    return found != m_Made.end() && text.substr(start).starts_with(found->second.Reference) ? &found->second
                                                                                            : nullptr;
  }

  void Remember(Made&& made) {
    if (m_Made.size() < k_MadeLimit) {
      m_Made.try_emplace(KeyOf(made.Reference, 0), std::move(made));
    }
  }

  [[noreturn]] static void Fail(const String& text, std::size_t position, const String& where, int code,
                                const String& message) {
    RaisePlaced("ExpandReferences", code, where + ":" + std::to_string(position + 1), message, text,
                position);
  }

  void Append(Expanded& result, std::string_view piece, const String& where) {
    Spend(piece.size(), where);
    // Two pieces must not make a reference between them.
    if (m_Source.ForLater && !piece.empty() && piece[0] == '(' && !result.Text.empty() &&
        result.Text.back() == '$') {
      result.Text.push_back('$');
    }
    result.Text.append(piece);
    CheckSize(result, where);
  }

  static void CheckSize(const Expanded& result, const String& where) {
    if (result.Text.size() > k_ExpansionLimit) {
      FailLimit(where);
    }
  }

  // Appends a long value by taking its memory, where that has room for all of the
  // line; `rest` is what is still to be read of it.
  bool TakeOver(Expanded& result, Remembered& entry, std::size_t rest, const String& where) {
    String& value = entry.Value->Text;
    const bool pays = &result == &m_Whole && !m_Source.ForLater && value.size() >= k_LongValue &&
                      result.Text.size() < value.size() &&
                      value.capacity() - value.size() >= result.Text.size() + rest;
    if (pays) {
      Spend(value.size(), where);
      entry.TakenAt = result.Text.size();
      entry.TakenSize = value.size();
      value.insert(0, result.Text);
      result.Text = std::move(value);
      CheckSize(result, where);
    }
    return pays;
  }

  void Spend(std::size_t bytes, const String& where) {
    m_Spent += bytes;
    if (m_Spent > k_WorkLimit) {
      FailLimit(where);
    }
  }

  [[noreturn]] static void FailLimit(const String& where) {
    RaiseException("ExpandReferences", k_ErrorLimit,
                   where + ": its references make more than " + std::to_string(k_ExpansionLimit >> 20U) +
                       " MiB of text");
  }

  // Expands the reference at `start` into the result; returns where it ends.
  std::size_t ExpandOne(Expanded& result, const String& text, std::size_t start, const String& where) {
    Reference reference;
    ReferenceProblem problem;
    if (!ReadReference(text, start, reference, problem)) {
      Fail(text, problem.Begin, where, k_ErrorReference, problem.Text());
    }
    const String& name = reference.Name;
    const std::vector<CommandCall>& calls = reference.Calls;
    const std::size_t position = reference.End;

    Remembered& entry = m_Remembered[name]; // a map's elements stay where they are
    const Expanded* value = Resolve(name, entry, text, start, where);
    if (value == nullptr || (!value->Complete && !calls.empty())) {
      Append(result, std::string_view(text).substr(start, position - start), where);
      result.Complete = false;
      return position;
    }
    const std::string_view written = std::string_view(text).substr(start, position - start);
    if (calls.empty()) {
      if (TakeOver(result, entry, text.size() - position, where)) {
        return position;
      }
      Append(result, value->Text, where);
      result.Complete = result.Complete && value->Complete;
      // A long one may be taken over, and is copied by its bytes anyway.
      if (value->Complete && value->Text.size() < k_LongValue) {
        Remember({written, &value->Text, {}, 0});
      }
      return position;
    }
    const ParameterInfo* info = entry.Answer->Info;
    String plain = m_Source.ForLater ? UnescapeReferences(value->Text) : value->Text;
    std::size_t read = 0;
    for (const CommandCall& call : calls) {
      Spend(plain.size(), where);
      read += plain.size();
      plain = Apply(plain, call, info, text, where);
    }
    if (m_Source.ForLater) {
      plain = EscapeReferences(plain);
    }
    Append(result, plain, where);
    if (!m_Source.Apply && plain.size() <= k_LongestMade &&
        std::none_of(calls.begin(), calls.end(), MakesFile)) {
      Remember({written, nullptr, std::move(plain), read});
    }
    return position;
  }

  String Apply(const String& value, const CommandCall& call, const ParameterInfo* info, const String& text,
               const String& where) {
    try {
      return m_Source.Apply ? m_Source.Apply(value, text.substr(call.Begin, call.End - call.Begin), info)
                            : ApplyCommand(call, value, info);
    } catch (Exception* exception) {
      // Say where the command stands; the rest of the record stays.
      const std::unique_ptr<Exception> inner(exception);
      RaiseException("ExpandReferences", inner->Code(),
                     where + ":" + std::to_string(call.Begin + 1) + ": " + inner->Message() +
                         CaretExcerpt(text, call.Begin),
                     inner->Number(), inner->Details());
    }
  }

  // The value of a name in the form of the result; null where nobody answers
  // and that is for later.
  const Expanded* Resolve(const String& name, Remembered& entry, const String& text, std::size_t start,
                          const String& where) {
    if (std::find(m_Open.begin(), m_Open.end(), name) != m_Open.end()) {
      FailCycle(name, text, start, where);
    }
    if (entry.Value) {
      if (entry.TakenSize != 0) {
        entry.Value->Text.assign(m_Whole.Text, entry.TakenAt, entry.TakenSize);
        entry.TakenSize = 0;
      }
      return &*entry.Value;
    }
    if (!entry.Answer) {
      entry.Answer = m_Source.Find(name);
    }
    if (!entry.Answer) {
      if (m_Source.ForLater) {
        return nullptr;
      }
      const bool ofForerunner =
          String::EqualNoCase(name, p_AfterOutputFolder) || String::EqualNoCase(name, p_AfterImages);
      if (ofForerunner) {
        Fail(text, start, where, k_ErrorReference,
             "nobody answers $(" + Shown(name) + "), since the job waits for no other one");
      }
      const String near = SuggestName(name, m_Source.Names());
      Fail(text, start, where, k_ErrorReference,
           "nobody answers $(" + Shown(name) + ")" +
               (near.empty() ? "" : "; did you mean \"" + near + "\"?"));
    }
    Spend(entry.Answer->Value.size(), where);
    if (!entry.Answer->Expands) {
      String& answer = entry.Answer->Value; // not asked for again: it may be long
      entry.Value = Expanded{m_Source.ForLater ? EscapeReferences(answer) : std::move(answer), true};
      return &*entry.Value;
    }
    if (m_Open.size() >= k_DepthLimit) {
      Fail(text, start, where, k_ErrorLimit,
           "references nest deeper than " + std::to_string(k_DepthLimit) + " parameters");
    }
    m_Open.push_back(name);
    Expanded value;
    Run(entry.Answer->Value, "parameter " + Shown(name), value);
    m_Open.pop_back();
    entry.Value = std::move(value);
    return &*entry.Value;
  }

  [[noreturn]] void FailCycle(const String& name, const String& text, std::size_t start,
                              const String& where) {
    String circle;
    for (auto at = std::find(m_Open.begin(), m_Open.end(), name); at != m_Open.end(); ++at) {
      circle += Shown(*at) + " -> ";
    }
    Fail(text, start, where, k_ErrorReference,
         "parameters refer to each other in a circle: " + circle + Shown(name));
  }

  const ExpansionSource& m_Source;
  std::map<String, Remembered> m_Remembered;
  std::unordered_map<std::string_view, Made> m_Made; // by KeyOf
  std::vector<String> m_Open;                        // the parameters being expanded, outermost first
  Expanded m_Whole;                                  // of the text that is expanded in all
  std::size_t m_Spent = 0;
};

// Replaces every occurrence of a mark, from left to right.
String ReplaceMark(const String& text, std::string_view mark, std::string_view replacement) {
  String result;
  std::size_t position = 0;
  for (std::size_t found = 0; (found = text.find(mark, position)) != String::npos;
       position = found + mark.size()) {
    result.append(text, position, found - position).append(replacement);
  }
  return String(result.append(text, position));
}

} // namespace

bool IsPlainText(const String& text) {
  return text.size() <= k_ExpansionLimit && text.find("$(") == String::npos;
}

String ExpandReferences(const String& text, const ExpansionSource& source) {
  return Expander(source).Run(text);
}

String EscapeReferences(const String& text) {
  return ReplaceMark(text, "$(", "$$(");
}
String UnescapeReferences(const String& text) {
  return ReplaceMark(text, "$$(", "$(");
}
