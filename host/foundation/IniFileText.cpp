#include "host/foundation/IniFile.h"

#include "host/foundation/Exception.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

// The text of such a file, read and written.
//
// A host loads every .tvx file of a site when it starts, so the parse is made
// to cost little more than reading the bytes. The file's text is kept whole;
// names and values are slices of it, and all entries stand in one vector. Only
// after the last line are repeated sections merged and the entries brought into
// key order, by sorting indexes: linear in the lines apart from sorts within
// sections, so a hostile file of a million sections or keys is no trap either.

namespace {

constexpr std::string_view k_Utf8Mark = "\xEF\xBB\xBF";

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

// Raises unless the text is read back as it is.
void CheckWritable(bool readable, const char* what, std::string_view text, const Path& file) {
  if (!readable) {
    RaiseException("IniFile::Save", k_ErrorSyntax,
                   "cannot write " + file.Text() + ": the " + what + " \"" + String(text.substr(0, 80)) +
                       "\" would not be read back as it is");
  }
}

bool IsOneTrimmedLine(std::string_view text) {
  return text.find('\n') == std::string_view::npos && TrimBlanks(text).size() == text.size();
}

} // namespace

void IniFile::Parse(std::string_view text, bool replace) {
  ParseText(std::string(text), replace);
}

void IniFile::ParseText(std::string text, bool replace) {
  if (replace) {
    Clear();
  } else {
    Detach();
    Compact(); // or the sorting below would see replaced entries again
    m_Current = k_None;
    m_Walk.clear();
  }
  const std::size_t start = m_Tables->Text.size();
  const std::size_t oddities = m_Tables->Oddities.size();
  if (start + text.size() >= k_None) {
    RaiseException("IniFile::Parse", k_ErrorLimit, "more than 4 GiB of settings in " + Filename().Text());
  }
  if (start == 0) {
    m_Tables->Text = std::move(text);
  } else {
    m_Tables->Text.append(text);
  }
  ParseLines(start);
  MergeSections();
  OrderEntries();
  const auto first = m_Tables->Oddities.begin() + static_cast<std::ptrdiff_t>(oddities);
  if (first == m_Tables->Oddities.end()) {
    return; // a sort that keeps the order of equals allocates even for nothing
  }
  std::stable_sort(first, m_Tables->Oddities.end(), [](const Oddity& left, const Oddity& right) {
    return left.Place.Line != right.Place.Line ? left.Place.Line < right.Place.Line
                                               : left.Place.Column < right.Place.Column;
  });
}

void IniFile::Note(Oddity::Kind what, std::uint32_t line, std::size_t column, std::string_view text) {
  if (m_Tables->Oddities.size() >= k_OddityLimit) {
    return;
  }
  m_Tables->Oddities.push_back({what, {line, static_cast<std::uint32_t>(column)}, String(text)});
}

void IniFile::ParseLines(std::size_t start) {
  const std::string_view all = m_Tables->Text;
  std::size_t position = start;
  if (all.substr(position, k_Utf8Mark.size()) == k_Utf8Mark) {
    position += k_Utf8Mark.size();
  }
  const bool hasNul = all.find('\0', position) != std::string_view::npos;
  // What ordinary files need, in one allocation each.
  m_Tables->Entries.reserve(m_Tables->Entries.size() +
                            std::min<std::size_t>(64, (all.size() - position) / 16));
  m_Tables->Sections.reserve(m_Tables->Sections.size() + 12);
  std::uint32_t number = 0;
  std::uint32_t section = k_None;
  while (position < all.size()) {
    ++number;
    const std::size_t end = std::min(all.find('\n', position), all.size());
    const std::string_view whole = all.substr(position, end - position);
    const std::string_view line = TrimBlanks(whole);
    position = end + 1;
    if (line.empty() || line.front() == ';' || line.front() == '#') {
      continue;
    }
    const std::size_t indent = static_cast<std::size_t>(line.data() - whole.data());
    if (const std::size_t nul = hasNul ? line.find('\0') : std::string_view::npos;
        nul != std::string_view::npos) {
      Note(Oddity::Kind::NulByte, number, indent + nul + 1, line);
    }
    if (line.front() != '[') {
      ParseEntry(whole, line, number, section);
      continue;
    }
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos) {
      Note(Oddity::Kind::UnclosedSection, number, indent + 1, line);
      continue;
    }
    if (close + 1 < line.size()) {
      const std::string_view rest = TrimBlanks(line.substr(close + 1));
      Note(Oddity::Kind::TextAfterSection, number, static_cast<std::size_t>(rest.data() - whole.data()) + 1,
           rest);
    }
    const std::string_view name = TrimBlanks(line.substr(1, close - 1));
    section = static_cast<std::uint32_t>(m_Tables->Sections.size());
    m_Tables->Sections.push_back({{static_cast<std::uint32_t>(name.data() - m_Tables->Text.data()),
                                   static_cast<std::uint32_t>(name.size())},
                                  {number, static_cast<std::uint32_t>(indent + 1)},
                                  0,
                                  0});
  }
}

// `trimmed` is what the line holds between its blanks.
void IniFile::ParseEntry(std::string_view line, std::string_view trimmed, std::uint32_t number,
                         std::uint32_t section) {
  const std::size_t column = static_cast<std::size_t>(trimmed.data() - line.data()) + 1;
  const std::size_t equals = trimmed.find('=');
  if (equals == std::string_view::npos) {
    Note(Oddity::Kind::NoEquals, number, column, trimmed);
    return;
  }
  const std::string_view key = TrimBlanks(trimmed.substr(0, equals));
  if (key.empty()) {
    Note(Oddity::Kind::EmptyKey, number, column + equals, trimmed);
    return;
  }
  if (section == k_None) {
    Note(Oddity::Kind::NoSection, number, column, trimmed);
    return;
  }
  std::string_view value = TrimBlanks(trimmed.substr(equals + 1));
  if (value.empty()) {
    value = trimmed.substr(equals + 1, 0);
  }
  const auto slice = [this](std::string_view part) {
    return Slice{static_cast<std::uint32_t>(part.data() - m_Tables->Text.data()),
                 static_cast<std::uint32_t>(part.size())};
  };
  const auto columnOf = [&line](std::string_view part) {
    return static_cast<std::uint32_t>(part.data() - line.data()) + 1;
  };
  m_Tables->Entries.push_back(
      {section, slice(key), slice(value), {number, columnOf(key)}, {number, columnOf(value)}});
}

// Sorts indexes by the names that they stand for, and those of one name by
// themselves. A name is looked at once: nearly always eight bytes of it tell.
template <typename NameOf>
void IniFile::SortByName(std::uint32_t* first, std::uint32_t* last, NameOf nameOf) {
  struct Key {
    std::uint64_t Prefix;
    std::uint32_t Index;
  };
  const auto isBefore = [&nameOf](const Key& left, const Key& right) {
    if (left.Prefix != right.Prefix) {
      return left.Prefix < right.Prefix;
    }
    const int order = String::CompareNoCase(nameOf(left.Index), nameOf(right.Index));
    return order != 0 ? order < 0 : left.Index < right.Index;
  };
  constexpr std::size_t k_Few = 32;
  const auto count = static_cast<std::size_t>(last - first);
  std::array<Key, k_Few> few;
  std::vector<Key> many(count > k_Few ? count : 0);
  Key* const keys = count > k_Few ? many.data() : few.data();
  for (std::size_t i = 0; i < count; ++i) {
    keys[i] = {String::NoCasePrefix(nameOf(first[i])), first[i]};
  }
  std::sort(keys, keys + count, isBefore);
  for (std::size_t i = 0; i < count; ++i) {
    first[i] = keys[i].Index;
  }
}

// Makes one section of all that share a name, and the index by name.
void IniFile::MergeSections() {
  std::vector<std::uint32_t>& sorted = m_Tables->ByName;
  sorted.resize(m_Tables->Sections.size());
  std::iota(sorted.begin(), sorted.end(), 0U);
  const auto nameOf = [this](std::uint32_t index) { return View(m_Tables->Sections[index].Name); };
  SortByName(sorted.data(), sorted.data() + sorted.size(), nameOf);
  const auto repeats = [&nameOf](std::uint32_t left, std::uint32_t right) {
    return String::EqualNoCase(nameOf(left), nameOf(right));
  };
  if (std::adjacent_find(sorted.begin(), sorted.end(), repeats) == sorted.end()) {
    return;
  }
  // The first of a name stands for all; it comes first here too.
  std::vector<std::uint32_t> standsFor(m_Tables->Sections.size());
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    const std::uint32_t index = sorted[i];
    const bool again = i > 0 && repeats(sorted[i - 1], index);
    standsFor[index] = again ? standsFor[sorted[i - 1]] : index;
  }
  std::vector<std::uint32_t> newIndex(m_Tables->Sections.size(), k_None);
  std::vector<Section> kept;
  for (std::uint32_t index = 0; index < m_Tables->Sections.size(); ++index) {
    if (standsFor[index] == index) {
      newIndex[index] = static_cast<std::uint32_t>(kept.size());
      kept.push_back(m_Tables->Sections[index]);
    } else {
      const Section& again = m_Tables->Sections[index];
      Note(Oddity::Kind::RepeatedSection, again.Place.Line, again.Place.Column, View(again.Name));
    }
  }
  for (Entry& entry : m_Tables->Entries) {
    entry.Section = newIndex[standsFor[entry.Section]];
  }
  std::vector<std::uint32_t> byName;
  for (const std::uint32_t index : m_Tables->ByName) {
    if (standsFor[index] == index) {
      byName.push_back(newIndex[index]);
    }
  }
  m_Tables->ByName = std::move(byName);
  m_Tables->Sections = std::move(kept);
}

// Brings the entries into key order within each section; of entries with one
// key the first stays, with the last one's value.
void IniFile::OrderEntries() {
  for (Section& section : m_Tables->Sections) {
    section.Count = 0;
  }
  for (const Entry& entry : m_Tables->Entries) {
    ++m_Tables->Sections[entry.Section].Count;
  }
  std::uint32_t start = 0;
  for (Section& section : m_Tables->Sections) {
    section.First = start;
    start += section.Count;
    section.Count = 0;
  }
  m_Tables->Order.resize(m_Tables->Entries.size());
  for (std::uint32_t index = 0; index < m_Tables->Entries.size(); ++index) {
    Section& section = m_Tables->Sections[m_Tables->Entries[index].Section];
    m_Tables->Order[section.First + section.Count++] = index;
  }
  std::uint32_t used = 0;
  for (Section& section : m_Tables->Sections) {
    const auto first = m_Tables->Order.begin() + section.First;
    const auto last = first + section.Count;
    std::uint32_t* const indexes = m_Tables->Order.data() + section.First;
    SortByName(indexes, indexes + section.Count,
               [this](std::uint32_t index) { return View(m_Tables->Entries[index].Key); });
    const std::uint32_t sectionStart = used;
    for (auto at = first; at != last; ++at) {
      Entry& entry = m_Tables->Entries[*at];
      if (used > sectionStart) {
        Entry& before = m_Tables->Entries[m_Tables->Order[used - 1]];
        if (before.Key.Length == entry.Key.Length && String::EqualNoCase(View(before.Key), View(entry.Key))) {
          Note(Oddity::Kind::RepeatedKey, entry.KeyPlace.Line, entry.KeyPlace.Column, View(entry.Key));
          before.Value = entry.Value;
          before.ValuePlace = entry.ValuePlace;
          continue;
        }
      }
      m_Tables->Order[used++] = *at;
    }
    section.First = sectionStart;
    section.Count = used - sectionStart;
  }
  m_Tables->Order.resize(used);
}

// The text of a file that is parsed to the same sections and entries.
std::string IniFile::WriteText() const {
  std::string text;
  for (const Section& section : m_Tables->Sections) {
    const std::string_view name = View(section.Name);
    CheckWritable(IsOneTrimmedLine(name) && name.find(']') == std::string_view::npos, "section", name,
                  Filename());
    text.append(text.empty() ? "[" : "\n[").append(name).append("]\n");
    for (const EntryView& entry : Entries(String(name))) {
      CheckWritable(IsOneTrimmedLine(entry.Key) && entry.Key.find('=') == std::string_view::npos &&
                        !entry.Key.empty() &&
                        std::string_view("[;#").find(entry.Key.front()) == std::string_view::npos,
                    "key", entry.Key, Filename());
      CheckWritable(IsOneTrimmedLine(entry.Value), "value", entry.Value, Filename());
      text.append(entry.Key).append("=").append(entry.Value).append("\n");
    }
  }
  return text;
}
