#include "host/application/TypeFiles.h"

#include "host/application/Definition.h"
#include "host/application/JobTypeInfo.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/Log.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <optional>

namespace {

// A folder of a thousand bad files is told by a few.
constexpr std::size_t k_WarningLimit = 20;

// As many warnings as are worth reading, then their number.
class Warnings {
public:
  Warnings() = default;
  ~Warnings() {
    if (m_Count > k_WarningLimit) {
      LogWarning("further warnings about type files: " + std::to_string(m_Count - k_WarningLimit));
    }
  }
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  void Add(const Path& file, TextPlace place, const String& text) {
    if (m_Count++ < k_WarningLimit) {
      LogWarning(place.Line == 0 ? file.Text() + ": warning: " + text
                                 : PlacedMessage(file, place, "warning", text));
    }
  }

private:
  std::size_t m_Count = 0;
};

struct TypeFile {
  Path Filename;
  TextPlace Place; // of the ID
  String Name;
  std::size_t Folder = 0;
  std::vector<DefinitionProblem> Flags;
};

String TakeText(Exception* exception) {
  const std::unique_ptr<Exception> owned(exception);
  return owned->Text();
}

// The parsed file; nothing for one that is no readable file, with the reason.
std::optional<IniFile> ReadTypeFile(const Path& filename, String& problem) {
  IniFile file;
  file.SetFilename(filename);
  try {
    if (file.Load(true, true)) {
      return file;
    }
  } catch (Exception* exception) {
    problem = TakeText(exception);
  }
  return std::nullopt;
}

std::vector<Path> FilesOf(const Path& folder) {
  std::vector<Path> files;
  FileFinder finder;
  Path pattern = folder;
  pattern /= "*.tvx";
  for (bool found = finder.Find(pattern); found; found = finder.Next()) {
    files.push_back(finder.Name());
  }
  return files;
}

// The ID that a file has; nothing for one without, or with a malformed one,
// whose problem is told.
std::optional<UID> IdOf(const IniFile& file, TextPlace& place, String& problem) {
  IniFile::EntryView entry;
  if (!file.FindEntry("Module", "ID", entry)) {
    return std::nullopt;
  }
  place = entry.ValuePlace;
  UID id;
  try {
    id.FromString(String(entry.Value));
    return id;
  } catch (Exception* exception) {
    problem = TakeText(exception);
  }
  return std::nullopt;
}

// Of the files with one ID, in the order of folders and names.
const TypeFile& Counting(const std::vector<TypeFile>& files) {
  const auto later = std::find_if(files.begin(), files.end(),
                                  [&](const TypeFile& file) { return file.Folder != files.front().Folder; });
  return *std::prev(later);
}

void ReportShared(const UID& id, const std::vector<TypeFile>& files, const TypeFile& counts,
                  Warnings& warnings) {
  for (const TypeFile& file : files) {
    if (&file == &counts) {
      continue;
    }
    const bool sameFolder = file.Folder == counts.Folder;
    const String text = "the type \"" + file.Name + "\" is not used: the type \"" + counts.Name + "\" of " +
                        counts.Filename.Text() + " has the same ID " + id.GenString() + ", and " +
                        (sameFolder ? "the last file of a folder counts" : "its folder comes first") +
                        "; give one of them an ID of its own";
    if (!sameFolder && file.Name == counts.Name) {
      LogInfo(PlacedMessage(file.Filename, file.Place, "note", text));
    } else {
      warnings.Add(file.Filename, file.Place, text);
    }
  }
}

thread_local UnknownFlags* t_UnknownFlags = nullptr;

} // namespace

void ReportTypeFiles(const std::vector<Path>& folders, const std::set<UID>& withUnknownFlags) {
  Warnings warnings;
  std::map<UID, std::vector<TypeFile>> types;
  for (std::size_t folder = 0; folder < folders.size(); ++folder) {
    for (const Path& filename : FilesOf(folders[folder])) {
      String problem;
      const std::optional<IniFile> file = ReadTypeFile(filename, problem);
      if (!file) {
        warnings.Add(filename, {}, problem);
        continue;
      }
      TextPlace place;
      if (const std::optional<UID> id = IdOf(*file, place, problem)) {
        types[*id].push_back({filename, place, file->GetValue("Module", "Name", ""), folder, {}});
        for (const IniFile::EntryView& entry : withUnknownFlags.contains(*id)
                                                   ? file->Entries("OverrideFlags")
                                                   : std::vector<IniFile::EntryView>()) {
          ReadFlags(entry.Value, entry.ValuePlace, types[*id].back().Flags);
        }
      } else if (!problem.empty()) {
        warnings.Add(filename, place, problem);
      } else if (file->SectionPlace("Module").Line == 0) {
        LogInfo(filename.Text() + ": is no type, since it has no section [Module]");
      }
    }
  }
  for (const auto& [id, files] : types) {
    const TypeFile& counts = Counting(files);
    for (const DefinitionProblem& problem : counts.Flags) {
      warnings.Add(counts.Filename, problem.Place, problem.Text());
    }
    ReportShared(id, files, counts, warnings);
  }
}

UnknownFlags::UnknownFlags() : m_Before(t_UnknownFlags) {
  t_UnknownFlags = this;
}

UnknownFlags::~UnknownFlags() {
  t_UnknownFlags = m_Before;
}

bool UnknownFlags::Note() {
  if (t_UnknownFlags != nullptr) {
    t_UnknownFlags->m_Any = true;
  }
  return t_UnknownFlags != nullptr;
}
