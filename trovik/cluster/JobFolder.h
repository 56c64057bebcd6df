#pragma once

#include "host/foundation/Path.h"
#include "trovik/cluster/FolderForms.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What the submitting side and the tasks on the nodes of a cluster tell each
// other, as files of a folder that both see. docs/formats.md has every form.
//
//   FOLDER/               one job
//     job.json            what a task must know of it; never changes
//     stream              the packed job (Job::PackObject)
//     logs/               the output of attempts, unless the user named a folder
//     1/, 2/, …           one array job each, by its number
//       plan.json         which works it has; never changes
//       cancel            nothing of it is wanted any more; empty
//       task-INDEX.log    what the task itself printed
//       POSITION.claim.N  the Nth process that claimed the work at this position
//       POSITION.beat     that it is alive, and how far it is
//       POSITION.result   how the work ended: the truth
//
// The position is that of a work in the plan. Claims and results are written
// so that the first one stays and nobody ever sees half of one, even on a
// network file system; the same call by another process then says false.
//
// All raise Exception* where a file cannot be read or written; the text names
// the file and the reason.

/// The folder of a job. Cheap to make; touches nothing until it is asked.
class JobFolder {
public:
  explicit JobFolder(Path directory);
  const Path& directory() const { return directory_; }
  Path logs() const;

  /// Makes the folder (and those above it), readable by the group as the
  /// user's umask says.
  void create(const FolderJob& job) const;
  FolderJob read() const;
  Path array(int number) const;

private:
  Path directory_;
};

/// The folder of one array job.
class ArrayFolder {
public:
  explicit ArrayFolder(Path directory);
  const Path& directory() const { return directory_; }

  void create(const ArrayPlan& plan) const;
  ArrayPlan plan() const;
  /// The file for what task `index` itself prints; sbatch's "%a" stands for the index.
  Path taskLog(const std::string& index) const;

  void cancel() const;
  bool isCanceled() const;

  /// Takes the position: false when a process has this number already.
  bool claim(std::size_t position, const WorkClaim& claim) const;
  std::optional<WorkClaim> claimOf(std::size_t position, int number) const;
  /// The number of the newest claim; 0 for none. Searched from `known` on.
  int lastClaim(std::size_t position, int known = 0) const;

  void beat(std::size_t position, const WorkBeat& beat) const;
  /// Nothing where there is none, or where it is just being written.
  std::optional<WorkBeat> beatOf(std::size_t position) const;

  /// Leaves the work's end: false when there is one already, which counts.
  bool leave(std::size_t position, const WorkEnd& end) const;
  std::optional<WorkEnd> endOf(std::size_t position) const;
  bool hasEnded(std::size_t position) const;

private:
  Path fileOf(std::size_t position, const std::string& suffix) const;

  Path directory_;
};

} // namespace trovik
