#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/UID.h"

#include <set>
#include <vector>

/// Logs what a module that reads the .tvx files of these folders (those of a
/// module path, in its order) did not tell: files that cannot be read and why,
/// what is wrong with an ID, which of several files with one ID counts, and the
/// flags that the types named do not know. For when something went wrong, since
/// it reads all files once more.
///
/// The first folder that has a file with an ID counts, and in it the last file
/// by name. A type of the same name in a later folder is left out on purpose,
/// which is only worth an information.
void ReportTypeFiles(const std::vector<Path>& folders, const std::set<UID>& withUnknownFlags);

/// While it lives, STranslateFlag tells it of an unknown flag in this thread,
/// and not the log.
class UnknownFlags {
public:
  UnknownFlags();
  ~UnknownFlags();
  UnknownFlags(const UnknownFlags&) = delete;
  UnknownFlags& operator=(const UnknownFlags&) = delete;

  bool Any() const { return m_Any; }

  /// Whether there is one in this thread, which then knows.
  static bool Note();

private:
  bool m_Any = false;
  UnknownFlags* m_Before;
};
