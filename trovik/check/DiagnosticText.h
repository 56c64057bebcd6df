#pragma once

#include "trovik/check/Diagnostic.h"
#include "trovik/check/TypeSource.h"
#include "trovik/text/Console.h"

#include <string>

namespace trovik {

/// One problem as people and editors read it:
///
///     sketch.tvx:12:6: error: unknown parameter type "Interger"
///        12 | Type=Interger
///           |      ^^^^^^^^
///     hint: did you mean "Integer"?
///
/// Whatever the file holds is made harmless; a long line is cut around the
/// place, so that the excerpt stays within `width` columns.
std::string diagnosticText(const Console& console, const TypeSource& source, const Diagnostic& diagnostic,
                           std::size_t width);

} // namespace trovik
