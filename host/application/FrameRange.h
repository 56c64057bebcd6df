#pragma once

#include "host/foundation/String.h"

#include <cstdint>
#include <span>
#include <vector>

/// One ascending run of neighbouring frames.
struct FrameRun {
  int First = 0;
  int Last = 0;
  std::int64_t Count() const { return std::int64_t{Last} - First + 1; }
  /// "first-last", also for one frame: "7-7".
  String Text() const;
  friend bool operator==(const FrameRun&, const FrameRun&) = default;
};

/// A part of a run that lies in a set of frames as a whole, or outside.
struct FramePart {
  FrameRun Run;
  bool Inside = false;
};

/// Cuts a run into the parts inside and outside of a set, which is given as
/// its runs in ascending order; the parts are ascending, too. Costs no more
/// than finding the first of those runs and walking those that it meets.
std::vector<FramePart> CutFrames(const FrameRun& run, std::span<const FrameRun> set);
/// Those outside alone.
std::vector<FrameRun> FramesOutside(const FrameRun& run, std::span<const FrameRun> set);

/// The frames of a job in the order in which they are to be worked, each once.
///
/// The syntax is the one that the field's tools share: "1-100", "1-100x5"
/// (every fifth), "1-100y5" (all but every fifth), "1-100:4" (interleaved:
/// every 4th, then of what is left every 3rd, every 2nd and the rest, each
/// counted from the first frame), lists "1,4,9-12", negative ("-5--1") and
/// descending ("10-1", "10-1x3" or "10-1x-3") ranges; blanks are ignored. A
/// frame that occurs twice counts where it stands first.
class FrameSet {
public:
  /// More frames than this are refused: no job has them, and a mistyped range
  /// must not cost the machine's memory.
  static constexpr std::int64_t k_CountLimit = 10'000'000;

  FrameSet() = default;

  /// Raises Exception* for a malformed range, one with a number beyond 32 bits
  /// or with too many frames; its text has the place and a caret. An empty
  /// text gives no frames.
  static FrameSet Parse(const String& text);

  const std::vector<int>& Frames() const { return m_Frames; }
  bool empty() const { return m_Frames.empty(); }

  /// Cuts the frames into works of at most `packet` frames each (1 if it is
  /// less). Every work is one ascending run of neighbouring frames, so
  /// "first-last" always tells its frames exactly: 1-10x3 with packet 5 gives
  /// four works. Works keep the order of the frames; a descending range is cut
  /// from its high end.
  std::vector<FrameRun> Split(int packet) const;

  /// A short text for the frames in ascending order: "1-5,9", "1-99x2".
  String Text() const;

private:
  std::vector<int> m_Frames;
};

/// Reads a work's "first-last" (each with its own sign) or single frame. False
/// for any other text.
bool ParseRun(const String& text, FrameRun& run);
