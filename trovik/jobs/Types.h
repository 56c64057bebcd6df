#pragma once

#include "host/application/JobFactory.h"

#include <string>

namespace trovik {

/// The one type that a name, alias or ID in any case stands for. Throws a
/// UsageError with a suggestion for an unknown one, and with the IDs where
/// several types answer to it.
UID findType(const std::string& text);

/// The type's name, or its ID where it has none.
std::string typeTitle(const UID& type);

/// The parameter of that name in any case. Throws a UsageError with a
/// suggestion when the type has none.
const ParameterInfo& findParameter(const UID& type, const std::string& name);

/// What kind of value a parameter takes, with its limits: "whole number, 1 to
/// 64", "one of: png, exr".
std::string kindText(const ParameterInfo& info);

/// The kind as files name it, in lower case: "integer".
std::string kindName(const ParameterInfo& info);

} // namespace trovik
