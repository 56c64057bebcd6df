#pragma once

#include "host/application/ParameterInfo.h"
#include "host/foundation/String.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// Parameter references in texts: $(Name), $(Name.Command.Command(argument)).
/// "$$(" is a literal "$(". A name ends at the first "." or ")"; arguments
/// stand in parentheses, balanced or with a backslash before a lone one.

/// What a name stands for.
struct ParameterAnswer {
  String Value;
  /// The value's own references are expanded; false for picked files and
  /// computed values.
  bool Expands = false;
  const ParameterInfo* Info = nullptr;
  /// The value is what ExpansionSource::Ask gave; false for one that stands in
  /// for an empty text.
  bool Own = false;
};

struct ExpansionSource {
  /// The answer for a name, or nothing.
  std::function<std::optional<ParameterAnswer>(const String& name)> Find;
  /// The text by which Find answers, before anything stands in for an empty
  /// one; false where nobody has any. Only RepeatedExpansion asks for it, of
  /// names that Find has answered. Where it gives the same, so does Find.
  std::function<bool(const String& name, String& value)> Ask;
  /// Applies one command; ApplyCommand does where there is none. The command is
  /// as written: "Pad(4)".
  std::function<String(const String& value, const String& command, const ParameterInfo* info)> Apply;
  /// Known names, for suggestions.
  std::function<std::vector<String>()> Names;
  /// What the text is, for messages: "command line".
  String What = "text";
  /// References that nobody answers stay as written, and "$(" that comes out
  /// of a value is written "$$(": the result is again a text with references.
  bool ForLater = false;
};

/// No expansion makes a longer text than this.
constexpr std::size_t k_ExpansionLimit = std::size_t{64} << 20;

/// Whether a text has no reference, and is no longer than an expansion may be:
/// then it is its own.
bool IsPlainText(const String& text);

/// Expands a text. Raises Exception* with "WHAT:COLUMN: ..." for an unknown
/// name (with a suggestion), an unknown command, an unclosed reference or a
/// cycle (which it names), then the text in question with a caret under the
/// place. Beyond the limit above, and for references more than 100 parameters
/// deep, it raises Exception* of the code k_ErrorLimit.
String ExpandReferences(const String& text, const ExpansionSource& source);

/// Expands the same text again and again, as for each frame of a job: gives and
/// raises what ExpandReferences does, but makes anew only what depends on
/// answers that have changed. Not for a source whose result is for later.
class RepeatedExpansion {
public:
  RepeatedExpansion(String text, ExpansionSource source);
  ~RepeatedExpansion();
  RepeatedExpansion(const RepeatedExpansion&) = delete;
  RepeatedExpansion& operator=(const RepeatedExpansion&) = delete;

  /// Valid until the next call.
  const String& Run();

private:
  class Plan;

  const String m_Text;
  const ExpansionSource m_Source;
  std::unique_ptr<Plan> m_Plan; // null where it does not pay, or is not possible
  String m_Plain;
};

/// Writes "$(" as "$$(", so that a name from outside stays as it is.
String EscapeReferences(const String& text);
String UnescapeReferences(const String& text);

/// The parameter commands, for help and suggestions.
struct ParameterCommand {
  std::string_view Name;
  const char* Arguments; ///< as shown: "" or "(n)"
  const char* Help;
};
const std::vector<ParameterCommand>& ParameterCommands();
