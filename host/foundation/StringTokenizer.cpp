#include "host/foundation/StringTokenizer.h"

StringTokenizer::StringTokenizer(const String& text, char separator, bool skipEmpty, char quote, char escape)
    : m_Text(text), m_Separator(separator), m_SkipEmpty(skipEmpty), m_Quote(quote), m_Escape(escape) {
  FindPiece();
}

bool StringTokenizer::HasNext() const {
  return m_HasNext;
}

String StringTokenizer::GetNext() {
  String piece = std::move(m_Next);
  FindPiece();
  return piece;
}

std::vector<String> StringTokenizer::Split(const String& text, char separator) {
  std::vector<String> pieces;
  StringTokenizer tokenizer(text, separator, false, '"', '\\');
  while (tokenizer.HasNext()) {
    pieces.push_back(tokenizer.GetNext());
  }
  return pieces;
}

std::vector<StringTokenizer::Piece> StringTokenizer::SplitPlaced(const String& text, char separator) {
  std::vector<Piece> pieces;
  StringTokenizer tokenizer(text, separator, false, '"', '\\');
  while (tokenizer.HasNext()) {
    const std::size_t begin = tokenizer.m_NextBegin;
    const std::size_t end = tokenizer.m_NextEnd;
    pieces.push_back({tokenizer.GetNext(), begin, end});
  }
  return pieces;
}

void StringTokenizer::FindPiece() {
  m_HasNext = false;
  while (m_Position < m_Text.size() && !m_HasNext) {
    m_Next.clear();
    m_NextBegin = m_Position;
    bool inQuotes = false;
    bool sawQuote = false;
    for (; m_Position < m_Text.size(); ++m_Position) {
      const char c = m_Text[m_Position];
      const char next = m_Position + 1 < m_Text.size() ? m_Text[m_Position + 1] : '\0';
      if (c == m_Escape && m_Position + 1 < m_Text.size() &&
          (next == m_Separator || next == m_Quote || next == m_Escape)) {
        m_Next.push_back(next);
        ++m_Position;
      } else if (c == m_Quote) {
        inQuotes = !inQuotes;
        sawQuote = true;
      } else if (c == m_Separator && !inQuotes) {
        break;
      } else {
        m_Next.push_back(c);
      }
    }
    m_NextEnd = m_Position;
    ++m_Position; // over the separator
    m_HasNext = !m_SkipEmpty || sawQuote || !m_Next.empty();
  }
  if (!m_HasNext) {
    m_Next.clear();
  }
}
