#pragma once

#include "host/foundation/String.h"

#include <vector>

/// Splits a text into pieces at a separator, with quotes and an escape
/// character.
///
/// A quote groups up to the next quote, wherever in a piece it stands, and is
/// removed; an unclosed one runs to the end. The escape character acts only
/// before the separator, the quote or itself, inside quotes as outside, and is
/// then removed; before anything else it is plain, so C:\renders survives.
/// Empty pieces between separators are yielded unless `skipEmpty`; an empty
/// text yields nothing, and a trailing separator yields no extra piece. A
/// quoted empty piece ("") is a piece also with `skipEmpty`.
class StringTokenizer {
public:
  StringTokenizer(const String& text, char separator, bool skipEmpty, char quote, char escape);

  /// Whether a piece is left.
  bool HasNext() const;

  /// The next piece; the empty text after the last.
  String GetNext();

  /// All pieces of a text with the module's usual settings: no skipping,
  /// double quote and backslash.
  static std::vector<String> Split(const String& text, char separator);

  /// A piece, and the bytes of the text that it was read from: quotes and
  /// blanks included, the separator not.
  struct Piece {
    String Text;
    std::size_t Begin = 0;
    std::size_t End = 0;
  };
  /// The same pieces with their places.
  static std::vector<Piece> SplitPlaced(const String& text, char separator);

private:
  void FindPiece();

  String m_Text;
  char m_Separator;
  bool m_SkipEmpty;
  char m_Quote;
  char m_Escape;
  std::size_t m_Position = 0;
  String m_Next;
  std::size_t m_NextBegin = 0;
  std::size_t m_NextEnd = 0;
  bool m_HasNext = false;
};
