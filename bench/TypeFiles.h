#pragma once

#include "host/foundation/FileFinder.h"
#include "host/foundation/IniFile.h"

#include <memory>
#include <string>
#include <vector>

namespace bench {

using TypeFiles = std::vector<std::unique_ptr<IniFile>>;

/// Reads every type file of a directory as the host does.
inline TypeFiles loadTypes(const std::string& directory) {
  TypeFiles files;
  FileFinder finder;
  for (bool more = finder.Find(Path(directory + "/*.tvx")); more; more = finder.Next()) {
    files.push_back(std::make_unique<IniFile>());
    files.back()->SetFilename(finder.Name());
    files.back()->Load(true, true);
  }
  return files;
}

inline std::size_t entriesOf(const TypeFiles& files) {
  std::size_t entries = 0;
  for (const auto& file : files) {
    for (const String& section : file->SectionNames()) {
      entries += file->Entries(section).size();
    }
  }
  return entries;
}

} // namespace bench
