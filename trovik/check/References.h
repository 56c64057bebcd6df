#pragma once

#include "host/application/ParameterCommands.h"
#include "trovik/check/TypeCheck.h"

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

} // namespace trovik
