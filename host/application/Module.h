#pragma once

#include "host/application/JobFactory.h"
#include "host/foundation/Path.h"

#include <functional>
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
///
/// What goes wrong in a module, whatever it throws, costs that module alone: it
/// is logged as a warning with the library's name, or raised as an Exception*
/// by the calls that are for one type.
///
/// A library is in one loader at a time, and there once, also under two names:
/// it has one state, and unloading it for one would take its types from the
/// other. The second one is left out with a warning.
class ModuleLoader {
public:
  ModuleLoader();
  ~ModuleLoader();
  ModuleLoader(const ModuleLoader&) = delete;
  ModuleLoader& operator=(const ModuleLoader&) = delete;

  /// Loads everything along the path; problems are logged as warnings. May be
  /// called again: every library that reads .tvx files then has all directories
  /// of both calls, each once. Returns the number of libraries that are new.
  int Load(const std::vector<Path>& path);

  /// The same, but no directory is handed to the libraries that read .tvx
  /// files: for whoever tries such files one by one. Not together with Load.
  int LoadWithoutTypeFiles(const std::vector<Path>& path);

  /// Has one .tvx file read as a module path's would be, and forgets it again.
  /// Only after LoadWithoutTypeFiles. False, with the reason in the log, when
  /// it is refused. Else `look` (if there is one) is called with its type,
  /// which is registered for just as long.
  bool TryTypeFile(const Path& file, const std::function<void(const UID& type)>& look);

  /// Whether TryTypeFile has a library to ask.
  bool ReadsTypeFiles() const;

  /// Unregisters the types and unloads the libraries, last first. A job that
  /// is still alive keeps its library's code in memory until its last handle
  /// goes: it stays valid, but its module has forgotten its type.
  void Unload();

  /// The file names of the libraries.
  std::vector<Path> Libraries() const;

  /// Lets the module that owns the type react to a changed parameter. Does
  /// nothing for a type of a module without that entry point. Raises Exception*
  /// where the module fails.
  void AutoDetect(const UID& type, const String& changed, std::map<String, String>& parameters) const;

  /// The search for a type's newest program as its file describes it; false
  /// when it describes none. Raises Exception* where the module fails.
  bool LatestExecutableSearch(const UID& type, std::vector<Path>& roots, std::vector<Path>& bases,
                              Path& exe) const;

private:
  struct Library;
  enum class TypeFiles { Read, Leave };
  int Load(const std::vector<Path>& path, TypeFiles typeFiles);
  Library* TypeFileReader() const;
  const Library* Owner(const UID& type) const;
  std::vector<std::unique_ptr<Library>> m_Libraries;
  std::vector<Path> m_TypeDirectories;
  std::size_t m_TypeFiles = 0; // in these // that hold .tvx files, of all calls of Load
};
