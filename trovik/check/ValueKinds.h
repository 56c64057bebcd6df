#pragma once

#include "host/application/ParameterCommands.h"
#include "trovik/check/TypeCheck.h"

#include <initializer_list>

namespace trovik {

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
