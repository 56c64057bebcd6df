#pragma once

#include "host/application/JobFactory.h"
#include "host/foundation/Path.h"

#include <map>
#include <memory>
#include <vector>

/// What a module is told about itself when it is loaded.
class Module {
public:
  explicit Module(Path filename) : m_Filename(std::move(filename)) {}
  /// The path of the module's library; its directory is where the module
  /// looks for its own files. For a further directory of type files it is a
  /// name in that directory.
  const Path& Filename() const { return m_Filename; }

private:
  Path m_Filename;
};

/// Loads modules, registers their types and unloads them.
///
/// The path is a list of directories, the user's own first. Every library
/// ("*.so") in them is loaded once (of two with the same name the first wins).
/// A library that reads .tvx files is handed every directory that holds some,
/// as a Module of its own, in the order of the path; the first type of an ID
/// wins. Not for use from several threads.
class ModuleLoader {
public:
  ModuleLoader();
  ~ModuleLoader();
  ModuleLoader(const ModuleLoader&) = delete;
  ModuleLoader& operator=(const ModuleLoader&) = delete;

  /// Loads everything along the path; problems are logged as warnings.
  /// Returns the number of libraries loaded.
  int Load(const std::vector<Path>& path);

  /// Unregisters the types and unloads the libraries, last first.
  void Unload();

  /// The file names of the libraries.
  std::vector<Path> Libraries() const;

  /// Lets the module that owns the type react to a changed parameter. Does
  /// nothing for a type of a module without that entry point.
  void AutoDetect(const UID& type, const String& changed, std::map<String, String>& parameters) const;

  /// The search for a type's newest program as its file describes it; false
  /// when it describes none.
  bool LatestExecutableSearch(const UID& type, std::vector<Path>& roots, std::vector<Path>& bases,
                              Path& exe) const;

private:
  struct Library;
  const Library* Owner(const UID& type) const;
  std::vector<std::unique_ptr<Library>> m_Libraries;
};
