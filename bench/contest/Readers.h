#pragma once

#include <string>

namespace bench {

/// Reads every `.tvx` file of a directory with its sections and entries, by one
/// of several ways, and keeps all of them until the last is read: `limit` (views
/// of their bytes), `IniFile` (the host's), `OnModuleLoad` (the module's entry
/// point, which makes a type of each), `SimpleIni` or `inih` (into maps, as its
/// callback tells them). Prints how many entries, or types, there were. Throws
/// std::runtime_error where there is no such way.
void readTypes(const std::string& way, const std::string& directory);

} // namespace bench
