#pragma once

#include "trovik/commandline/CommandForm.h"

#include <functional>
#include <string>
#include <vector>

namespace trovik {

/// What may stand in the place of the last word.
struct Candidate {
  std::string word;
  std::string description; ///< may be empty
};

/// Where a file or folder is wanted, the shell finds them itself.
enum class Wanted { Nothing, Files, Folders };

struct Completions {
  std::vector<Candidate> candidates;
  Wanted wanted = Wanted::Nothing;
  std::string before; ///< what of the last word stands before the file's name: "--out="
};

/// What only this installation itself tells. Each is called at most once
/// and only where it is needed, with the options that the words hold.
struct CompletionSources {
  std::function<std::vector<Candidate>(const CommonOptions& options)> types;
  std::function<std::vector<Candidate>(const CommonOptions& options)> jobs;
  /// "NAME=" for each parameter that a job of the type takes.
  std::function<std::vector<Candidate>(const CommonOptions& options, const std::string& type)> parameters;
  /// The values of one parameter.
  std::function<Completions(const CommonOptions& options, const std::string& type,
                            const std::string& parameter)>
      values;
};

/// The candidates for the last of the words behind the program's name, as the
/// form wants them. Those that begin with it; where there is none, those that
/// do in another case of letters.
Completions completionsOf(const CommandForm& form, const std::vector<std::string>& words,
                          const CompletionSources& sources);

} // namespace trovik
