#pragma once

#include "host/foundation/Path.h"

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Tells whether a work has written a file, or found it there. See
/// FilesBefore.cpp.
class FilesBefore {
public:
  /// Everything counts as written.
  FilesBefore() = default;

  /// To be called right before the program is started: notes what `files` are
  /// now, and what time it is where they, and others in `folders`, lie. After
  /// `closeEarlier`, another program may have written such a file a moment ago;
  /// then this waits until the file system's clock has gone on, mostly 4 ms and
  /// never longer than its stamps are coarse.
  void Note(const std::vector<Path>& files, const std::vector<Path>& folders, bool closeEarlier);

  /// What counts, to be kept: for who judges the work when this process has
  /// died. Empty where it is more than is worth keeping.
  std::string Text() const;

  /// Instead: what another process has noted, on this machine or another one,
  /// which gives other numbers to file systems and may give them to files.
  /// Nothing counts as written where the text is none, since then nobody knows
  /// what was there.
  void FromText(std::string_view text, bool ofThisMachine = true);

  /// Whether a file that looks like this now was written.
  bool IsWritten(const Path& file, const struct stat& now) const;

private:
  /// What differs between two states of a file, in stamps of nanoseconds.
  struct Identity {
    Identity() = default;
    explicit Identity(const struct stat& status);
    bool operator==(const Identity&) const = default;

    std::uint64_t Number = 0;
    std::int64_t Size = 0;
    std::int64_t Modified = 0;
    std::int64_t Changed = 0;
  };

  bool ReadLine(std::string_view line);
  std::int64_t StartAt(std::uint64_t fileSystem) const;

  bool m_Noted = false;
  bool m_Unknown = false; // nothing counts
  bool m_OfThisMachine = true;
  std::int64_t m_OurStart = 0;                    // for a file system whose clock is not known
  std::map<std::uint64_t, std::int64_t> m_Starts; // by the file system's clock
  std::map<std::string, Identity> m_Identities;   // of the files that were there
};
