#pragma once

#include "host/foundation/String.h"

#include <string_view>

/// Sixteen hexadecimal digits that depend on the text alone (FNV-1a): a short
/// name for what is kept for a path. Texts may share one; compare what is kept.
String HashName(std::string_view text);
