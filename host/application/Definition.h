#pragma once

#include "host/application/JobTypeInfo.h"

#include <vector>

/// What is wrong with one definition in a type file.
struct DefinitionProblem {
  enum class Kind {
    Unnamed,    ///< the list names nothing
    Missing,    ///< named, but there is no section
    Repeated,   ///< the type has one of that name already
    UnknownKey, ///< a key that definitions do not have
    UselessKey, ///< a key that this type of parameter has no use for
    Type,
    Flag,
    Boolean,
    Limit,
    Choices,
    Default,
    Command, ///< a command without a command line
  };
  Kind What;
  TextPlace Place;
  std::size_t Length = 0; ///< bytes of the offending text; 0 where it is none
  String Message;
  String Hint; ///< what to do; may be empty

  String Text() const { return Hint.empty() ? Message : Message + "; " + Hint; }
};

// What SLoadParameter and SLoadCommand do, for whoever shows the problems in
// another way than in the log. Problems come in the order of their places.

std::vector<DefinitionProblem> ReadParameter(const String& name, IniFile& file, JobTypeInfo* info);
std::vector<DefinitionProblem> ReadCommand(const String& name, IniFile& file, JobTypeInfo* info);

/// The flags that a list between commas names, as overrides and definitions
/// write it; unknown names are left out and told, places from `place` on.
unsigned int ReadFlags(std::string_view list, TextPlace place, std::vector<DefinitionProblem>& problems);

/// The keys of a definition.
std::vector<String> ParameterKeys();
std::vector<String> CommandKeys();
