#pragma once

#include "host/foundation/String.h"

#include <optional>
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

  /// The pattern that a text is; nothing for one that is not made of a plain
  /// head and tail around one "%0Nd".
  static std::optional<SequencePattern> Read(std::string_view text);

  /// The pattern of the same names as words of a command line, see
  /// Path::Enquote. Of a plain pattern only.
  SequencePattern Enquoted() const;

  /// The name of a frame. Valid until the next call.
  const String& Name(int frame);

  /// Appends the name of a frame. Of a plain pattern only.
  void AppendName(int frame, String& text) const;

  /// Whether the names of any two frames differ in the number alone.
  bool IsPlain() const { return m_Plain; }
  std::size_t Digits() const { return m_Digits; }

private:
  String m_Text;
  String m_Head;
  std::size_t m_Digits;
  String m_Tail;
  bool m_Plain;
  String m_Name;
};
