#pragma once

#include "host/application/FrameRange.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Tells which frame of a work an image belongs to, by the numbers in its
/// path. See FrameFiles.cpp.
///
/// Add every image in the order in which the program named them, each once;
/// answers get better with each. Costs about a pass over the path, whatever
/// the path is; memory is bounded.
class FrameFiles {
public:
  struct Answer {
    std::optional<int> Frame; ///< always a frame of the work
    /// False when other numbers in the path could be the frame as well: good
    /// enough to look for holes, not to leave a frame out of a further attempt.
    bool Sure = true;
  };

  explicit FrameFiles(const FrameRun& frames) : m_Frames(frames) {}

  void Add(std::string_view path);
  /// The path need not have been added.
  Answer FrameOf(std::string_view path) const;

private:
  /// The numbers at one place of all paths with one pattern.
  struct Column {
    int Last = 0;        ///< the last that was a frame of the work
    bool Hits = false;   ///< some were frames of the work
    bool Misses = false; ///< some were not
    bool First = false;  ///< in the first of the paths it was the work's first frame
    bool Varies = false;
    bool Falls = false; ///< some were smaller than the one before
  };
  using Columns = std::vector<Column>;
  using Numbers = std::vector<std::optional<int>>;

  static Numbers Read(std::string_view path, std::string& pattern);
  bool IsFrame(const std::optional<int>& number) const;
  void Learn(const Numbers& numbers, Columns& columns) const;
  Answer Choose(const Numbers& numbers, const Columns& columns) const;

  FrameRun m_Frames;
  std::unordered_map<std::string, Columns> m_Patterns;
};
