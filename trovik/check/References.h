#pragma once

#include "host/application/ParameterCommands.h"
#include "trovik/check/TypeCheck.h"

#include <initializer_list>
#include <vector>

namespace trovik {

/// The references of a text that can be read, in their order; what cannot be
/// read is handed to `tell`, if that is not null.
std::vector<Reference> referencesIn(const String& text,
                                    const std::function<void(const ReferenceProblem&)>& tell = {});

/// Whether a chain of commands has one of that name.
bool hasCommand(const Reference& reference, const char* name);

/// The names that a text refers to, and those that the defaults of these refer
/// to, in lower case.
std::set<std::string> allNamesIn(const TypeCheck& check, const String& text);

/// Whether a text depends on the frames of a work by the names in it.
bool namesFrame(const TypeCheck& check, const String& text);

/// What a reference's value may hold.
enum class ValueKind {
  Plain, ///< a number, a frame range, one of the type's own words
  Path,
  Text,
  Scenes, ///< the scene files of a work
};

/// Of the name that a reference has, before its commands.
ValueKind kindOf(const TypeCheck& check, const String& name);

/// Whether a command gives numbers, or words that the type's author chose,
/// whatever the value is.
bool givesPlain(const CommandCall& call);

/// Whether a text is one of some names, in any case of letters.
bool isOneOf(const String& name, std::initializer_list<const char*> names);

} // namespace trovik
