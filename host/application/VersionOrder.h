#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

/// The version that a folder's name tells behind the name of the program, read
/// as people read it: "4.2", "-v4.2-rc1", "_20240210", "-4.2.0-linux-x64". The
/// essay in the source tells the rules. Its texts point into the name.
struct FolderVersion {
  explicit FolderVersion(std::string_view name);

  /// Less than 0, 0, more than 0. Names that read the same are equal.
  int Compare(const FolderVersion& other) const;

  /// The word that tells that somebody put the folder aside, such as "old" or
  /// "backup"; empty if none does.
  std::string_view PutAside;

  // What is compared, the strongest first; numbers without leading zeros.
  std::vector<std::string_view> Numbers; ///< 4 and 2
  std::string_view Letter;               ///< of 2.79b
  int Stage = 0;                         ///< rises from a developer's build to the release
  std::string_view StageNumber;          ///< of rc1
  std::vector<std::string_view> Builds;  ///< further numbers
  std::size_t OtherWords = 0;            ///< the fewer, the plainer
  bool Copy = false;                     ///< "4.2 (2)"
};

/// Orders two such names.
int CompareVersions(std::string_view left, std::string_view right);
