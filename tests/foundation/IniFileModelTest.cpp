#include "host/foundation/IniFile.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>

// The parsed file against the plainest thing that keeps its rules: maps of
// maps that do not regard case.

namespace {

using SectionMap = std::map<String, String, String::ciless>;
using FileMap = std::map<String, SectionMap, String::ciless>;
using Walked = std::vector<std::pair<String, String>>;

String Trimmed(const std::string& text) {
  const char* blanks = " \t\r\v\f";
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void ParseSlowly(const std::string& text, FileMap& sections) {
  std::string rest = text;
  if (rest.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    rest.erase(0, 3);
  }
  SectionMap* section = nullptr;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const String line = Trimmed(rest.substr(0, end));
    rest.erase(0, end + 1);
    if (line.empty() || line[0] == ';' || line[0] == '#') {
      continue;
    }
    if (line[0] == '[') {
      if (const std::size_t close = line.find(']'); close != String::npos) {
        section = &sections[Trimmed(line.substr(1, close - 1))];
      }
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == String::npos || section == nullptr) {
      continue;
    }
    const String key = Trimmed(line.substr(0, equals));
    if (!key.empty()) {
      (*section)[key] = Trimmed(line.substr(equals + 1));
    }
  }
}

Walked WalkPairs(IniFile& file, const String& section) {
  Walked walked;
  file.SetSection(section);
  String key;
  String value;
  while (file.GetNextValue(key, value)) {
    walked.emplace_back(key, value);
  }
  return walked;
}

void Compare(IniFile& file, const FileMap& model) {
  RC_ASSERT(file.SectionNames().size() == model.size());
  for (const auto& [section, entries] : model) {
    RC_ASSERT(file.SetSection(section.Upper()));
    RC_ASSERT(WalkPairs(file, section.Lower()) == Walked(entries.begin(), entries.end()));
    RC_ASSERT(file.Entries(section).size() == entries.size());
    for (const auto& [key, value] : entries) {
      String found = "missing";
      RC_ASSERT(file.GetValue(key.Upper(), found));
      RC_ASSERT(found == value);
      RC_ASSERT(file.GetValue(section, key, "missing") == value);
      IniFile::EntryView view;
      RC_ASSERT(file.FindEntry(section, key, view));
      RC_ASSERT(view.Key == key);
      RC_ASSERT(view.Value == value);
    }
  }
}

rc::Gen<std::string> FileTexts() {
  return TextsOf({"[",
                  "]",
                  "=",
                  "=",
                  "\n",
                  "\n",
                  "\n",
                  " ",
                  "\t",
                  "\r\n",
                  "a",
                  "A",
                  "b",
                  "B",
                  "c",
                  ";",
                  "#",
                  "\"",
                  "[a]\n",
                  "[B]\n",
                  "[ c ]\n",
                  "\na=",
                  "\nB =",
                  "\nc= x",
                  "\xEF\xBB\xBF",
                  "\xC3\xA9",
                  std::string(1, '\0'),
                  "\v"});
}

const std::vector<String> k_Names = {"a", "A", "b", "B", "c", "", "longer name", "Z"};
const std::vector<String> k_Values = {"", "1", "value", "a value that is much longer than others", "x=y"};

RC_GTEST_PROP(IniFileModel, RandomFilesAreParsedAsTheModelDoes, ()) {
  const std::string text = *FileTexts();
  FileMap model;
  ParseSlowly(text, model);
  IniFile file;
  file.Parse(text);
  Compare(file, model);
}

RC_GTEST_PROP(IniFileModel, RandomBytesAreParsedAsTheModelDoes, ()) {
  const std::string text = *Texts(0);
  FileMap model;
  ParseSlowly(text, model);
  IniFile file;
  file.Parse(text);
  Compare(file, model);
}

RC_GTEST_PROP(IniFileModel, RandomChangesOfRandomFilesGiveTheModelsWalks, ()) {
  FileMap model;
  IniFile file(*rc::gen::arbitrary<bool>());
  const bool keepsOrder = [&file] {
    file.Parse("[a]\nb=\na=\n");
    file.SetSection("a");
    String key;
    String value;
    file.GetNextValue(key, value);
    return key == "b";
  }();
  const std::string text = *FileTexts();
  file.Parse(text);
  ParseSlowly(text, model);
  const int steps = *rc::gen::inRange(0, 40);
  for (int step = 0; step < steps; ++step) {
    const String section = *rc::gen::elementOf(k_Names);
    const int action = *rc::gen::inRange(0, 12);
    if (action == 0) {
      const std::string added = *FileTexts();
      ParseSlowly(added, model);
      file.Parse(added, false);
    } else if (action == 1) {
      const IniFile copy(file, *rc::gen::arbitrary<bool>());
      file.SetValue("copied from", "k", "changed behind the copy");
      file = copy;
    } else {
      const String key = *rc::gen::elementOf(k_Names);
      const String value = *rc::gen::elementOf(k_Values);
      model[section][key] = value;
      file.SetValue(section, key, value);
    }
    const auto found = model.find(section);
    Walked walked = WalkPairs(file, section);
    if (keepsOrder) {
      std::sort(walked.begin(), walked.end(), [](const auto& left, const auto& right) {
        return String::CompareNoCase(left.first, right.first) < 0;
      });
    }
    RC_ASSERT(walked ==
              (found == model.end() ? Walked() : Walked(found->second.begin(), found->second.end())));
  }
  if (!keepsOrder) {
    Compare(file, model);
  }
}

// Few sections and few keys are searched in another way than many: names enough
// to pass from one to the other, of which many begin alike.
RC_GTEST_PROP(IniFileModel, FewAndManyNamesAreFoundAsTheModelFindsThem, ()) {
  const auto name = [](const char* kind) {
    const int number = *rc::gen::inRange(0, 24);
    const String start = number % 3 == 0 ? "the same start " : number % 3 == 1 ? "k" : "";
    const String text = start + kind + std::to_string(number);
    return *rc::gen::arbitrary<bool>() ? text.Upper() : text;
  };
  FileMap model;
  IniFile file;
  const int steps = *rc::gen::inRange(0, 60);
  for (int step = 0; step < steps; ++step) {
    const String section = name("s");
    if (*rc::gen::inRange(0, 4) == 0) {
      std::string added = "[" + section + "]\n";
      for (int keys = *rc::gen::inRange(0, 30); keys > 0; --keys) {
        added += name("e") + "=" + std::to_string(keys) + "\n";
      }
      ParseSlowly(added, model);
      file.Parse(added, false);
    } else {
      const String key = name("e");
      file.SetValue(section, key, std::to_string(step));
      model[section][key] = std::to_string(step);
    }
    String value;
    RC_ASSERT(file.SetSection(name("none")) == false);
    RC_ASSERT(file.SetSection(section) && !file.GetValue("none", value));
  }
  Compare(file, model);
  IniFile again;
  std::string whole;
  for (const auto& [section, entries] : model) {
    whole += "[" + section + "]\n";
    for (const auto& [key, value] : entries) {
      whole += key + "=" + value + "\n";
    }
  }
  again.Parse(whole);
  Compare(again, model);
}

RC_GTEST_PROP(IniFileModel, WhatIsSavedIsLoadedBack, ()) {
  const TemporaryDirectory directory;
  FileMap model;
  IniFile file;
  const std::string text = *FileTexts();
  file.Parse(text);
  ParseSlowly(text, model);
  for (int changes = *rc::gen::inRange(0, 8); changes > 0; --changes) {
    const String section = *rc::gen::elementOf(k_Names);
    const String key = "k" + *rc::gen::elementOf(k_Names);
    const String value = *rc::gen::elementOf(k_Values);
    model[section][key] = value;
    file.SetValue(section, key, value);
  }
  file.SetFilename(directory / "file");
  file.Save();
  IniFile loaded;
  loaded.SetFilename(directory / "file");
  RC_ASSERT(loaded.Load(true, true));
  Compare(loaded, model);
  RC_ASSERT(loaded.SectionNames() == file.SectionNames());
}

} // namespace
