#include "host/foundation/IniFile.h"

#include "host/foundation/Exception.h"
#include "host/foundation/MarkedLines.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

// The text of such a file, read and written.
//
// A host loads every .tvx file of a site when it starts, so the parse is made
// to cost little more than reading the bytes. The file's text is kept whole;
// names and values are slices of it, and all entries stand in one vector. Lines
// and their first "=" are found many bytes at a time (MarkedLines.h). Only after
// the last line are repeated sections merged and the entries brought into key
// order, by sorting indexes: linear in the lines apart from sorts within
// sections, so a hostile file of a million sections or keys is no trap either.
//
// What cost time then were branches that no processor can guess: whether there
// is a blank beside a "=", and which of two keys comes first. So the usual first
// blank is dropped and the few keys of a usual section are sorted without any;
// that took 7 % off the time for files of 60 lines. The lengths of names nearly
// always tell a few sections apart, which so need no index by name; and each
// section's range is known as soon as the next one begins. That took another 7 %.

namespace {

constexpr std::string_view k_Utf8Mark = "\xEF\xBB\xBF";

constexpr std::array<bool, 256> k_IsBlank = [] {
  std::array<bool, 256> isBlank{};
  for (const char blank : {' ', '\t', '\r', '\v', '\f'}) {
    isBlank[static_cast<unsigned char>(blank)] = true;
  }
  return isBlank;
}();

bool IsBlank(char c) {
  return k_IsBlank[static_cast<unsigned char>(c)];
}

// Whether there is one blank or none is anybody's guess, so the first costs no
// branch; nearly always there is no second.
const char* SkipBlanks(const char* begin, const char* end) {
  if (begin != end) {
    begin += IsBlank(*begin) ? 1 : 0;
  }
  while (begin != end && IsBlank(*begin)) {
    ++begin;
  }
  return begin;
}

const char* DropBlanks(const char* begin, const char* end) {
  if (begin != end) {
    end -= IsBlank(end[-1]) ? 1 : 0;
  }
  while (begin != end && IsBlank(end[-1])) {
    --end;
  }
  return end;
}

std::string_view ViewOf(const char* begin, const char* end) {
  return {begin, static_cast<std::size_t>(end - begin)};
}

std::string_view TrimBlanks(std::string_view text) {
  const char* const end = text.data() + text.size();
  const char* const begin = SkipBlanks(text.data(), end);
  return ViewOf(begin, DropBlanks(begin, end));
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

// Reads the lines of a text into the tables, behind what they hold.
class __attribute__((visibility("hidden"))) IniFile::LineReader {
public:
  explicit LineReader(IniFile& file)
      : m_File(file), m_Start(file.m_Tables->Text.data()), m_Sections(file.m_Tables->Sections),
        m_Entries(file.m_Tables->Entries) {}

  // `text` is a part of the tables' text.
  void Read(std::string_view text) {
    m_HasNul = text.find('\0') != std::string_view::npos;
    // What ordinary files need, in one allocation each.
    m_Entries.reserve(m_Entries.size() + std::min<std::size_t>(64, text.size() / 16));
    m_Sections.reserve(m_Sections.size() + 12);
    VisitLines(text, [this](const MarkedLine& line) { ReadLine(line); });
    EndSection();
  }

private:
  // Within the loop over the lines, since a call would cost as much as it does.
  __attribute__((always_inline)) void ReadLine(const MarkedLine& line) {
    ++m_Number;
    const char* begin = line.Begin;
    const char* end = line.End;
    if (begin == end) {
      return;
    }
    if (IsBlank(*begin) || IsBlank(end[-1])) {
      begin = SkipBlanks(begin, end);
      end = DropBlanks(begin, end);
      if (begin == end) {
        return;
      }
    }
    if (*begin == ';' || *begin == '#') {
      return;
    }
    const std::string_view text = ViewOf(begin, end);
    if (const std::size_t nul = m_HasNul ? text.find('\0') : std::string_view::npos;
        nul != std::string_view::npos) {
      Note(Oddity::Kind::NulByte, PlaceOf(line, begin + nul), text);
    }
    if (*begin == '[') {
      ReadSection(line, text);
    } else {
      ReadEntry(line, text);
    }
  }

  // `text` is what the line holds between its blanks.
  void ReadSection(const MarkedLine& line, std::string_view text) {
    const TextPlace place = PlaceOf(line, text.data());
    const std::size_t close = text.find(']');
    if (close == std::string_view::npos) {
      Note(Oddity::Kind::UnclosedSection, place, text);
      return;
    }
    if (close + 1 < text.size()) {
      const std::string_view rest = TrimBlanks(text.substr(close + 1));
      Note(Oddity::Kind::TextAfterSection, PlaceOf(line, rest.data()), rest);
    }
    EndSection();
    m_Section = static_cast<std::uint32_t>(m_Sections.size());
    m_Sections.push_back({SliceOf(TrimBlanks(text.substr(1, close - 1))), place,
                          static_cast<std::uint32_t>(m_Entries.size()), 0});
  }

  void EndSection() {
    if (m_Section != k_None) {
      m_Sections[m_Section].Count =
          static_cast<std::uint32_t>(m_Entries.size()) - m_Sections[m_Section].First;
    }
  }

  void ReadEntry(const MarkedLine& line, std::string_view text) {
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    if (line.Equals == nullptr || line.Equals == begin || m_Section == k_None) {
      Note(line.Equals == nullptr ? Oddity::Kind::NoEquals
           : line.Equals == begin ? Oddity::Kind::EmptyKey
                                  : Oddity::Kind::NoSection,
           PlaceOf(line, begin), text);
      return;
    }
    // A key begins with what is no blank, so nothing else ends the search there.
    const char* keyEnd = line.Equals - (IsBlank(line.Equals[-1]) ? 1 : 0);
    while (IsBlank(keyEnd[-1])) {
      --keyEnd;
    }
    const std::string_view key = ViewOf(begin, keyEnd);
    const std::string_view value = ViewOf(SkipBlanks(line.Equals + 1, end), end);
    m_Entries.push_back(
        {m_Section, SliceOf(key), SliceOf(value), PlaceOf(line, key.data()), PlaceOf(line, value.data())});
  }

  void Note(Oddity::Kind what, TextPlace place, std::string_view text) {
    m_File.Note(what, place.Line, place.Column, text);
  }

  TextPlace PlaceOf(const MarkedLine& line, const char* part) const {
    return {m_Number, static_cast<std::uint32_t>(part - line.Begin) + 1};
  }

  Slice SliceOf(std::string_view part) const {
    return {static_cast<std::uint32_t>(part.data() - m_Start), static_cast<std::uint32_t>(part.size())};
  }

  IniFile& m_File;
  const char* const m_Start;
  std::vector<Section>& m_Sections;
  std::vector<Entry>& m_Entries;
  bool m_HasNul = false;
  std::uint32_t m_Number = 0;
  std::uint32_t m_Section = k_None;
};

void IniFile::Parse(std::string_view text, bool replace) {
  ParseText(std::string(text), replace);
}

void IniFile::ParseText(std::string text, bool replace) {
  if (replace) {
    Clear();
  } else {
    Detach();
    Compact(); // or the sorting below would see replaced entries again
    LeaveSection();
  }
  const std::size_t start = m_Tables->Text.size();
  const std::size_t oddities = m_Tables->Oddities.size();
  const bool isFirst = m_Tables->Sections.empty();
  if (start + text.size() >= k_None) {
    RaiseException("IniFile::Parse", k_ErrorLimit, "more than 4 GiB of settings in " + Filename().Text());
  }
  if (start == 0) {
    m_Tables->Text = std::move(text);
  } else {
    m_Tables->Text.append(text);
  }
  const std::string_view added = std::string_view(m_Tables->Text).substr(start);
  LineReader(*this).Read(added.starts_with(k_Utf8Mark) ? added.substr(k_Utf8Mark.size()) : added);
  const bool wereMerged = MergeSections();
  m_Tables->Order.resize(m_Tables->Entries.size());
  std::iota(m_Tables->Order.begin(), m_Tables->Order.end(), 0U);
  if (wereMerged || !isFirst) {
    GroupEntries();
  }
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

// Sorts indexes, which come in ascending order, by the names that they stand
// for; those of one name stay in theirs. Whether names are repeated. A name is
// looked at once: nearly always eight bytes of it tell.
template <typename NameOf>
bool IniFile::SortByName(std::uint32_t* first, std::uint32_t* last, NameOf nameOf) {
  constexpr std::size_t k_Few = 16; // with 32, files of sections of twenty keys take a quarter longer
  const auto count = static_cast<std::size_t>(last - first);
  if (count <= k_Few) {
    // Each is compared with each, which tells how many are before it: nobody can
    // guess the order of a section's keys, and here no branch depends on it. Those
    // that begin alike are compared whole then.
    std::array<std::uint64_t, k_Few> prefixes;
    std::array<std::uint32_t, k_Few> indexes;
    std::array<std::uint32_t, k_Few> before;
    bool repeats = false;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string_view name = nameOf(first[i]);
      const std::uint64_t prefix = String::NoCasePrefix(name);
      std::uint32_t earlier = 0;
      bool isTold = true;
      for (std::size_t j = 0; j < i; ++j) {
        const std::uint32_t isLater = prefixes[j] > prefix ? 1 : 0;
        before[j] += isLater;
        earlier += isLater ^ 1U;
        isTold &= prefixes[j] != prefix;
      }
      for (std::size_t j = 0; !isTold && j < i; ++j) {
        const int order = prefixes[j] == prefix ? String::CompareNoCase(nameOf(indexes[j]), name) : -1;
        const std::uint32_t isLater = order > 0 ? 1 : 0;
        before[j] += isLater;
        earlier -= isLater;
        repeats |= order == 0;
      }
      prefixes[i] = prefix;
      indexes[i] = first[i];
      before[i] = earlier;
    }
    for (std::size_t i = 0; i < count; ++i) {
      first[before[i]] = indexes[i];
    }
    return repeats;
  }
  struct Key {
    std::uint64_t Prefix;
    std::uint32_t Index;
  };
  std::vector<Key> keys(count);
  std::transform(first, last, keys.begin(), [&nameOf](std::uint32_t index) {
    return Key{String::NoCasePrefix(nameOf(index)), index};
  });
  bool repeats = false; // neighbours are always compared
  std::sort(keys.begin(), keys.end(), [&](const Key& left, const Key& right) {
    if (left.Prefix != right.Prefix) {
      return left.Prefix < right.Prefix;
    }
    const int order = String::CompareNoCase(nameOf(left.Index), nameOf(right.Index));
    repeats |= order == 0 && left.Index != right.Index;
    return order != 0 ? order < 0 : left.Index < right.Index;
  });
  std::transform(keys.begin(), keys.end(), first, [](const Key& key) { return key.Index; });
  return repeats;
}

// Makes the index of the sections by name. Whether names are repeated.
bool IniFile::IndexSections() {
  std::vector<std::uint32_t>& sorted = m_Tables->ByName;
  sorted.resize(m_Tables->Sections.size());
  std::iota(sorted.begin(), sorted.end(), 0U);
  return SortByName(sorted.data(), sorted.data() + sorted.size(),
                    [this](std::uint32_t index) { return View(m_Tables->Sections[index].Name); });
}

// Whether no two of a few sections share a name.
bool IniFile::AreDifferent(std::span<const Section> sections) const {
  for (std::size_t i = 1; i < sections.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (sections[i].Name.Length == sections[j].Name.Length &&
          String::EqualNoCase(View(sections[i].Name), View(sections[j].Name))) {
        return false;
      }
    }
  }
  return true;
}

// Makes one section of all that share a name, and the index by name where there
// is one. Whether some were merged.
bool IniFile::MergeSections() {
  m_Tables->ByName.clear();
  const bool areFew = m_Tables->Sections.size() <= k_FewSections;
  if (areFew ? AreDifferent(m_Tables->Sections) : !IndexSections()) {
    return false;
  }
  if (areFew) {
    IndexSections();
  }
  const std::vector<std::uint32_t>& sorted = m_Tables->ByName;
  const auto nameOf = [this](std::uint32_t index) { return View(m_Tables->Sections[index].Name); };
  const auto repeats = [&nameOf](std::uint32_t left, std::uint32_t right) {
    return String::EqualNoCase(nameOf(left), nameOf(right));
  };
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
  return true;
}

// Gives each section the range of its entries in the order, where they stand as
// in the file: for sections that were continued. The others have it already.
void IniFile::GroupEntries() {
  std::vector<std::uint32_t>& order = m_Tables->Order;
  const auto sectionOf = [this](std::uint32_t entry) { return m_Tables->Entries[entry].Section; };
  std::stable_sort(order.begin(), order.end(), [&sectionOf](std::uint32_t left, std::uint32_t right) {
    return sectionOf(left) < sectionOf(right);
  });
  std::uint32_t next = 0;
  for (std::uint32_t index = 0; index < m_Tables->Sections.size(); ++index) {
    Section& section = m_Tables->Sections[index];
    section.First = next;
    while (next < order.size() && sectionOf(order[next]) == index) {
      ++next;
    }
    section.Count = next - section.First;
  }
}

// Brings the entries into key order within each section; of entries with one
// key the first stays, with the last one's value.
void IniFile::OrderEntries() {
  std::uint32_t used = 0;
  for (Section& section : m_Tables->Sections) {
    std::uint32_t* const first = m_Tables->Order.data() + section.First;
    std::uint32_t* const last = first + section.Count;
    const bool repeats =
        SortByName(first, last, [this](std::uint32_t index) { return View(m_Tables->Entries[index].Key); });
    if (!repeats && used == section.First) {
      used += section.Count; // all stay where they are
      continue;
    }
    const std::uint32_t sectionStart = used;
    for (const std::uint32_t* at = first; at != last; ++at) {
      Entry& entry = m_Tables->Entries[*at];
      if (used > sectionStart) {
        Entry& before = m_Tables->Entries[m_Tables->Order[used - 1]];
        if (String::EqualNoCase(View(before.Key), View(entry.Key))) {
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
