#pragma once

#include "host/foundation/String.h"
#include "host/foundation/TextFilter.h"

#include <string_view>
#include <vector>

/// Texts that a program's output must hold, each anywhere in some line. The case
/// of ASCII letters does not matter. A digit at either end of a text is part of a
/// whole number: "frame 10" is not in "frame 100". Empty texts are left out.
class RequiredTexts {
public:
  explicit RequiredTexts(const std::vector<String>& texts);

  /// Takes a line of output. The last text, in their order, that no line before
  /// held; null when it brings nothing new. Valid as long as this.
  const String* See(std::string_view line);

  /// How many of the texts no line has held yet.
  std::size_t Unseen() const { return m_Unseen; }

  /// Has a filter find every line that may hold one of those.
  void AddToFilter(TextFilter& filter) const;

  /// The first text that no line held; null when all were seen.
  const String* Missing() const;

  bool empty() const { return m_Texts.empty(); }

private:
  struct Text {
    String Written;
    String Lowered;
    bool Seen = false;
  };
  void BuildFilter();

  std::vector<Text> m_Texts;
  TextFilter m_Filter; // of those that were not seen
  std::size_t m_Unseen;
};
