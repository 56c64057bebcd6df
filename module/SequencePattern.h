#pragma once

#include "host/foundation/String.h"

#include <string_view>

/// The printf-style pattern of a scene sequence, "HEAD%0NdTAIL", and the names
/// that it gives.
///
/// A name is exactly what SFormat makes of the pattern. While head and tail
/// hold no "%" of their own, only the number changes from frame to frame, and
/// it is written straight between them: a sequence of a hundred thousand files
/// is probed as fast as its directory is read.
class SequencePattern {
public:
  /// `digits` is the least width of the number.
  SequencePattern(std::string_view head, int digits, std::string_view tail);

  const String& Text() const { return m_Text; }

  /// The name of a frame. Valid until the next call.
  const String& Name(int frame);

private:
  String m_Text;
  std::size_t m_HeadLength;
  std::size_t m_Digits;
  String m_Tail;
  bool m_Plain;
  String m_Name;
};
