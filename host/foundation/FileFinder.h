#pragma once

#include "host/foundation/Path.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

/// Whether there is a folder of that name, or a link to one.
bool IsDirectory(const Path& path);

/// Finds files by name or by a pattern with "*" and "?" in the last component.
///
/// Matching is by bytes and by case; a name that begins with a point is
/// matched only by a pattern that begins with one. Directories do not match;
/// links count as what they point at. Matches come sorted by name. A path
/// that exists as written matches itself, whatever characters it holds; others
/// that it describes as a pattern match too (FindExact asks for it alone).
///
/// One finder may be asked for many names, one after the other: after some
/// questions about one directory it reads that directory once and answers from
/// memory, so files that appear later may be missed by that finder.
class FileFinder {
public:
  FileFinder();
  ~FileFinder();
  FileFinder(const FileFinder&) = delete;
  FileFinder& operator=(const FileFinder&) = delete;

  /// Many names will be asked for, one after the other, in each directory: it is
  /// looked at before the first of them already.
  void ExpectMany() { m_AreManyExpected = true; }

  /// Starts a search; whether there is a first match.
  bool Find(const Path& pattern);

  /// The same for exactly this name: "*" and "?" are plain characters.
  bool FindExact(const Path& file);

  /// The same, but only tells it: the matches stay as they are.
  bool Holds(const String& file);

  /// The first and the last number of a numbered sequence around one of its
  /// files, which Holds has found, such that all between are there, too: as far
  /// as that is known without asking the system, and the file alone where it
  /// is not. Its name has the number behind which no other digit stands, 0 or
  /// above, filled up with zeros to so many digits.
  std::pair<int, int> KnownRun(const String& file, int number, std::size_t digits) const;

  /// The current match, as a path by which it can be opened; empty without.
  const Path& Name() const;

  /// Moves on; false after the last match.
  bool Next();

private:
  struct Directory;
  struct Leaf {
    std::size_t Offset; // in m_Leaves
    std::size_t Length;
  };
  std::unique_ptr<Directory> m_Directory;
  bool m_AreManyExpected = false;
  Path m_Name;
  String m_Branch;           // of all matches, as written
  std::string m_Leaves;      // the names of all, one behind the other
  std::vector<Leaf> m_Order; // of them
  std::size_t m_Next = 0;    // in that order
};

/// While it lives, FileFinder::FindExact finds files that are not there yet as
/// well, such as those that another job is going to write. Not for several
/// threads; of two the newer one counts.
class FilesToCome {
public:
  explicit FilesToCome(std::function<bool(const Path& file)> isToCome);
  ~FilesToCome();
  FilesToCome(const FilesToCome&) = delete;
  FilesToCome& operator=(const FilesToCome&) = delete;

private:
  friend class FileFinder;
  static const FilesToCome* s_Newest;

  std::function<bool(const Path& file)> m_IsToCome;
  const FilesToCome* m_Before;
};
