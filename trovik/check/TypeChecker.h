#pragma once

#include "host/application/Module.h"
#include "trovik/check/Diagnostic.h"
#include "trovik/check/KnownTypes.h"
#include "trovik/check/TypeSource.h"

#include <string>
#include <vector>

namespace trovik {

/// Finds everything that is wrong or doubtful in type files.
///
/// The last word on a file has the module itself: each is handed to it, so
/// that a file that it refuses is never called good. What it describes then is
/// the type that is checked, overrides and all, and a job of that type tries
/// the command line.
class TypeChecker {
public:
  /// Files above this many bytes, or with more pairs of names, are only judged
  /// by their lines and by the module.
  static constexpr std::size_t deepLimit = std::size_t{1} << 20U;
  static constexpr std::size_t namesLimit = std::size_t{4} << 20U;

  /// `modules` must have its libraries loaded without type files, and outlive
  /// this. With `programs` each type's program is looked for on this machine,
  /// but for the types that come with the program.
  TypeChecker(ModuleLoader& modules, bool programs);

  std::vector<Diagnostic> check(const TypeSource& source, const KnownTypes& others);

private:
  bool tryFile(std::string_view text, const std::function<void(const UID& type)>& use);
  void deep(const TypeSource& source, Findings& out, bool accepted, bool programs);
  void lookForProgram(const struct TypeCheck& check) const;

  ModuleLoader& modules_;
  bool programs_;
  std::vector<String> standard_; ///< the parameters that every type has
};

} // namespace trovik
