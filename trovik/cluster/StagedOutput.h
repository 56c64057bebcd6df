#pragma once

#include "host/application/Job.h"
#include "host/application/jobs/FilesBefore.h"
#include "host/foundation/Path.h"
#include "trovik/records/Records.h"

#include <functional>
#include <string>
#include <vector>

namespace trovik {

/// Where an attempt renders into before its files are moved to the job's output
/// folder: "OUTPUT/.trovik-MARK", a folder of the attempt's own on the same
/// file system.
///
/// A cluster may start a work a second time while its first process, on a node
/// that it lost, still runs. With a folder of its own no process can damage
/// what another one has finished, however late it writes: files come into the
/// output folder by a rename, whole and checked. Who takes over moves the files
/// of its predecessor one by one into a folder of its own, so that a
/// predecessor that wakes in the middle of its renames finds nothing to rename.
///
/// Only what a type writes below $(OutputFolder) is kept apart so.
class StagedOutput {
public:
  StagedOutput() = default;
  /// Lets the job of a work write into its own folder, made here. Does nothing
  /// where the job has no output folder, or none that can be known (the start
  /// of the work then says why). Raises Exception* when the folder cannot be
  /// made. The mark holds letters, digits, "-" and "." only.
  StagedOutput(Job& job, const std::string& mark);
  bool isUsed() const { return !stage_.empty(); }
  const Path& stage() const { return stage_; }
  const Path& output() const { return output_; }
  /// Where the stage of that mark would be, without making it; empty for none.
  static Path stageOf(const Job& job, const std::string& mark);

  /// Moves what another process of the same work has left in its stage, which
  /// had that mark, into this one, in place of what is here, and removes it.
  void takeOver(const std::string& mark);
  /// The name here of a file that was in that stage.
  std::string nameFrom(const std::string& mark, const std::string& file) const;
  /// Takes files back into the stage that such a process had moved already:
  /// those of the names (below the stage) that the output folder has instead,
  /// and that were not there before. They stay there as well.
  void takeBack(const std::vector<std::string>& names, const FilesBefore& before) const;

  /// The name that a file has, or will have, for users: below the output
  /// folder, not below the stage.
  std::string finalName(const std::string& file) const;
  /// The same for every mention in a text.
  std::string finalText(std::string text) const;

  /// Moves files to the output folder and renames them in the outcome's files
  /// and texts: of a good attempt everything that the stage holds, replacing
  /// what is there; of another one the files of its good frames, and of the
  /// rest what is in nobody's way. Then removes the stage. A file that cannot
  /// be moved stays in it, is a problem of that file, and its frame is not
  /// good.
  ///
  /// `mayGoOn` is asked before each file; false ends all, the stage is removed,
  /// and the outcome means nothing. Returns whether it got to the end.
  bool publish(Outcome& outcome, const std::function<bool()>& mayGoOn = {});
  /// Removes the stage with all that is in it.
  void discard();
  /// Removes the stage of a process that was given up, by the name that its
  /// claim has, so that it cannot publish anything any more. Nothing else is
  /// ever removed, whatever a claim says.
  static void remove(const Path& stage);

private:
  std::string partIn(const std::string& file) const;
  void rename(Outcome& outcome) const;

  Path stage_;
  Path output_;
  std::string component_; // "/.trovik-MARK"
};

} // namespace trovik
