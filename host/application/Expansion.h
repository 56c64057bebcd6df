#pragma once

#include "host/application/ParameterInfo.h"
#include "host/foundation/String.h"

#include <functional>
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
};

struct ExpansionSource {
  /// The answer for a name, or nothing.
  std::function<std::optional<ParameterAnswer>(const String& name)> Find;
  /// Applies one command; see Job::ProcessParameterNameCommands.
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

/// Expands a text. Raises Exception* with "WHAT:COLUMN: ..." for an unknown
/// name (with a suggestion), an unknown command, an unclosed reference or a
/// cycle (which it names), then the text in question with a caret under the
/// place. Beyond the limit above, and for references more than 100 parameters
/// deep, it raises Exception* of the code k_ErrorLimit.
String ExpandReferences(const String& text, const ExpansionSource& source);

/// Writes "$(" as "$$(", so that a name from outside stays as it is.
String EscapeReferences(const String& text);
String UnescapeReferences(const String& text);

/// The parameter commands, for help and suggestions.
struct ParameterCommand {
  const char* Name;
  const char* Arguments; ///< as shown: "" or "(n)"
  const char* Help;
};
const std::vector<ParameterCommand>& ParameterCommands();
