#include "host/foundation/IniFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

// All that a parsed file tells, with places and oddities, against a reader that
// goes line by line and looks each name up among those before.

namespace {

struct PlainEntry {
  std::string Key;
  std::string Value;
  TextPlace KeyPlace;
  TextPlace ValuePlace;
};

struct PlainSection {
  std::string Name;
  TextPlace Place;
  std::vector<PlainEntry> Entries;
};

class PlainReader {
public:
  using Kind = IniFile::Oddity::Kind;

  explicit PlainReader(std::string text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
      text.erase(0, 3);
    }
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      m_Line = text.substr(begin, end - begin);
      ++m_Number;
      ReadLine();
      begin = end + 1;
    }
    // Repeats are found when all lines are read.
    for (const auto* repeats : {&m_RepeatedSections, &m_RepeatedKeys}) {
      Oddities.insert(Oddities.end(), repeats->begin(), repeats->end());
    }
    std::stable_sort(Oddities.begin(), Oddities.end(),
                     [](const IniFile::Oddity& left, const IniFile::Oddity& right) {
                       return std::pair(left.Place.Line, left.Place.Column) <
                              std::pair(right.Place.Line, right.Place.Column);
                     });
  }

  std::vector<PlainSection> Sections;
  std::vector<IniFile::Oddity> Oddities;

private:
  static constexpr const char* k_Blanks = " \t\r\v\f";

  // The first byte from a place on that is no blank, and where the blanks
  // before a place begin.
  std::size_t SkipBlanks(std::size_t from, std::size_t to) const {
    return std::min(m_Line.find_first_not_of(k_Blanks, from), to);
  }
  std::size_t DropBlanks(std::size_t from, std::size_t to) const {
    while (to > from && std::string(k_Blanks).find(m_Line[to - 1]) != std::string::npos) {
      --to;
    }
    return to;
  }
  std::string Part(std::size_t from, std::size_t to) const { return m_Line.substr(from, to - from); }
  TextPlace Place(std::size_t column) const { return {m_Number, static_cast<std::uint32_t>(column) + 1}; }

  void ReadLine() {
    const std::size_t begin = SkipBlanks(0, m_Line.size());
    const std::size_t end = DropBlanks(begin, m_Line.size());
    if (begin == end || m_Line[begin] == ';' || m_Line[begin] == '#') {
      return;
    }
    const String text = Part(begin, end);
    if (const std::size_t nul = text.find('\0'); nul != std::string::npos) {
      Oddities.push_back({Kind::NulByte, Place(begin + nul), text});
    }
    if (m_Line[begin] == '[') {
      ReadSection(begin, end);
      return;
    }
    const std::size_t equals = m_Line.find('=');
    if (equals == std::string::npos) {
      Oddities.push_back({Kind::NoEquals, Place(begin), text});
    } else if (equals == begin) {
      Oddities.push_back({Kind::EmptyKey, Place(begin), text});
    } else if (m_Current == k_NoSection) {
      Oddities.push_back({Kind::NoSection, Place(begin), text});
    } else {
      const std::size_t value = SkipBlanks(equals + 1, end);
      AddEntry({Part(begin, DropBlanks(begin, equals)), Part(value, end), Place(begin), Place(value)});
    }
  }

  void ReadSection(std::size_t begin, std::size_t end) {
    const std::size_t close = m_Line.find(']', begin);
    if (close == std::string::npos) {
      Oddities.push_back({Kind::UnclosedSection, Place(begin), Part(begin, end)});
      return;
    }
    if (close + 1 < end) {
      const std::size_t rest = SkipBlanks(close + 1, end);
      Oddities.push_back({Kind::TextAfterSection, Place(rest), Part(rest, end)});
    }
    const std::size_t nameBegin = SkipBlanks(begin + 1, close);
    const String name = Part(nameBegin, DropBlanks(nameBegin, close));
    const auto known = std::find_if(Sections.begin(), Sections.end(), [&name](const PlainSection& section) {
      return String(section.Name).Lower() == name.Lower();
    });
    m_Current = static_cast<std::size_t>(known - Sections.begin());
    if (known == Sections.end()) {
      Sections.push_back({name, Place(begin), {}});
    } else {
      m_RepeatedSections.push_back({Kind::RepeatedSection, Place(begin), name});
    }
  }

  void AddEntry(const PlainEntry& entry) {
    for (PlainEntry& before : Sections[m_Current].Entries) {
      if (String(before.Key).Lower() == String(entry.Key).Lower()) {
        m_RepeatedKeys.push_back({Kind::RepeatedKey, entry.KeyPlace, entry.Key});
        before.Value = entry.Value;
        before.ValuePlace = entry.ValuePlace;
        return;
      }
    }
    Sections[m_Current].Entries.push_back(entry);
  }

  static constexpr std::size_t k_NoSection = std::string::npos;

  std::string m_Line;
  std::uint32_t m_Number = 0;
  std::size_t m_Current = k_NoSection;
  std::vector<IniFile::Oddity> m_RepeatedSections;
  std::vector<IniFile::Oddity> m_RepeatedKeys;
};

std::string Told(TextPlace place) {
  return std::to_string(place.Line) + ":" + std::to_string(place.Column);
}

std::string Told(const std::vector<IniFile::Oddity>& oddities) {
  std::string told;
  for (const IniFile::Oddity& oddity : oddities) {
    told +=
        Told(oddity.Place) + " " + std::to_string(static_cast<int>(oddity.What)) + " " + oddity.Text + "\n";
  }
  return told;
}

std::string Told(const std::string& key, TextPlace keyPlace, const std::string& value, TextPlace valuePlace) {
  return Told(keyPlace) + " " + key + " is " + Told(valuePlace) + " " + value + "\n";
}

void ExpectPlainReading(const std::string& text) {
  const PlainReader plain(text);
  IniFile file;
  file.Parse(text);
  SCOPED_TRACE(testing::PrintToString(text));
  ASSERT_EQ(file.SectionNames().size(), plain.Sections.size());
  for (std::size_t i = 0; i < plain.Sections.size(); ++i) {
    const PlainSection& section = plain.Sections[i];
    ASSERT_EQ(file.SectionNames()[i], section.Name);
    ASSERT_EQ(Told(file.SectionPlace(section.Name)), Told(section.Place));
    std::string entries;
    std::string expected;
    for (const IniFile::EntryView& entry : file.Entries(section.Name)) {
      entries += Told(std::string(entry.Key), entry.KeyPlace, std::string(entry.Value), entry.ValuePlace);
    }
    std::vector<PlainEntry> sorted = section.Entries;
    for (const PlainEntry& entry : sorted) {
      expected += Told(entry.Key, entry.KeyPlace, entry.Value, entry.ValuePlace);
    }
    ASSERT_EQ(entries, expected);
    std::sort(sorted.begin(), sorted.end(), [](const PlainEntry& left, const PlainEntry& right) {
      return String(left.Key).Lower() < String(right.Key).Lower();
    });
    ASSERT_TRUE(file.SetSection(section.Name));
    ASSERT_EQ(file.EntryCount(), sorted.size());
    IniFile::EntryView walked;
    for (const PlainEntry& entry : sorted) {
      ASSERT_TRUE(file.GetNextEntry(walked));
      ASSERT_EQ(Told(std::string(walked.Key), walked.KeyPlace, std::string(walked.Value), walked.ValuePlace),
                Told(entry.Key, entry.KeyPlace, entry.Value, entry.ValuePlace));
    }
    ASSERT_FALSE(file.GetNextEntry(walked));
  }
  ASSERT_EQ(Told(file.Oddities()), Told(plain.Oddities));
}

/// A text of lines as files have them, with some of all that is odd; with few
/// different names there are many repeats.
std::string RandomText(std::mt19937& random) {
  const auto one = [&random](const std::vector<std::string>& of) { return of[random() % of.size()]; };
  const std::size_t names = 1 + random() % 60;
  const std::size_t oddness = 2 + random() % 40;
  const auto name = [&] {
    const std::string number = std::to_string(random() % names);
    return one({"key", "KEY", "Image", "a name that is long, ", "", "\xC3\xA9", "x"}) + number;
  };
  const auto blanks = [&] { return one({"", "", "", " ", "\t", "  ", " \v\f"}); };
  std::string text = random() % 8 == 0 ? "\xEF\xBB\xBF" : "";
  for (std::size_t lines = random() % 150; lines > 0; --lines) {
    std::string line;
    switch (random() % 8) {
    case 0:
      line = blanks() + "[" + blanks() + name() + blanks() + "]" + blanks();
      break;
    case 1:
      line = blanks() +
             one({"# a comment", ";", "", "# x=y", "[a]=", "no sign", "= value", "[open", "[a] rest"});
      break;
    default:
      line = blanks() + name() + blanks() + "=" + blanks() +
             one({"", "1", "a=b", "\"a value\"", name(), "[a]"}) + blanks();
      break;
    }
    if (!line.empty() && random() % oddness == 0) {
      line[random() % line.size()] = one({"=", "[", "]", " ", "\n", "#", std::string(1, '\0'), "\x8A"})[0];
    }
    text += line + one({"\n", "\n", "\n", "\r\n", "\n\n"});
  }
  return random() % 2 == 0 ? text.substr(0, text.size() - std::min<std::size_t>(text.size(), 1)) : text;
}

TEST(IniFilePlaces, RandomFilesAreReadAsLineByLine) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 3000; ++round) {
    ExpectPlainReading(RandomText(random));
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(IniFilePlaces, RandomBytesAreReadAsLineByLine) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string bytes("[[]]==\n\n\n  \t\r\v\f;#aAbB\0\xEF\xBB\xBF", 25);
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 120, ' ');
    for (char& byte : text) {
      byte = bytes[random() % bytes.size()];
    }
    ExpectPlainReading(text);
    if (HasFatalFailure()) {
      return;
    }
  }
}

} // namespace
