// Mistakes as people make them, each planted into a right type. Every one must be
// told at its line, with a word that shows what is meant.

#include "tests/trovik/check/CheckTest.h"

#include <algorithm>

namespace trovik {
namespace {

struct Mistake {
  const char* entry;   ///< "SECTION KEY" of the entry that is planted
  const char* value;   ///< its value
  const char* rule;    ///< the short name of what is told
  const char* message; ///< a piece of the message
};

// clang-format off
const Mistake mistakes[] = {
    // What switches the search for errors off.
    {"ErrorText 1", "Error:   ; fatal ones", "comment-in-value", "no comment"},
    {"ErrorText 1", "Error: # fatal ones", "comment-in-value", "no comment"},
    {"ErrorText 1", "Error:;Fatal:", "semicolon-in-text", "one text an entry"},
    {"ErrorText 1", "Error:;", "semicolon-in-text", "one text an entry"},
    {"ErrorText 1", "^Error:.*", "pattern-in-text", "letter by letter"},
    {"ErrorText 1", "Error.*failed", "pattern-in-text", "\".*\""},
    {"ErrorText 1", "error|fatal", "pattern-in-text", "\"|\""},
    {"ErrorText 1", "*error", "pattern-in-text", "\"*\""},
    {"ErrorText 1", "error*", "pattern-in-text", "\"*\""},
    {"ErrorText 1", "line \\d failed", "pattern-in-text", "\\d"},
    {"ErrorText 1", "frame %d failed", "pattern-in-text", "%d"},
    {"ErrorText 1", "\"oops\"", "quoted-value", "quotes"},
    {"ErrorText ErrorDetectPosition", "Yes", "misplaced-key", "one more text"},
    {"ErrorText Executable", "sketch", "misplaced-key", "one more text"},
    {"ErrorText 1", "", "empty-text", "passed over"},
    {"SuccessText 1", "\"done\"", "quoted-value", "without its quotes"},
    {"SuccessText 1", "wrote $(OutputFolder)/", "plain-reference", "nothing is put in"},
    {"SuccessText 1", "done ; at last", "comment-in-value", "no comment"},
    {"SuccessText ImageEndText", "'", "misplaced-key", "sets nothing"},
    {"ErrorText 1", "cannot write $(OutputFolder)", "plain-reference", "nothing is put in"},
    {"Module ErrorDetectPosition", "anywhere", "bad-boolean", "read as no"},
    {"OverrideDefaults ErrorDetectPosition", "anywhere", "bad-boolean", "read as no"},
    {"OverrideDefaults NoRetryTexts", "no licence, disk full", "wrong-separator", "semicolons"},
    {"OverrideDefaults NoRetryTexts", "no $(Scene)", "plain-reference", "nothing is put in"},
    {"OverrideDefaults RequiredTexts", "done, closed", "wrong-separator", "semicolons"},
    {"OverrideDefaults RequiredTexts", "frame $(SubRange.Ende)", "unknown-command", "Ende"},
    {"OverrideDefaults RequiredTexts", "frame $(Fram)", "unknown-reference", "$(Fram)"},
    {"OverrideDefaults RequiredTexts", "frame .*", "pattern-in-text", "letter by letter"},
    // Images.
    {"Module ImageStartText", "wrote \"", "unclosed-quote", "never closed"},
    {"Module ImageStartText", "saved:;;wrote", "empty-text", "every line"},
    {"Module ImageStartText", "saved $(OutputFolder)/", "plain-reference", "nothing is put in"},
    {"Module ImageStartText", "saved: ; the name", "blanks-in-text", "blanks"},
    {"Module ImageEndTxt", "'", "unknown-key", "unknown key"},
    // Command lines.
    {"Module Command", "--size 10 -o $(OutputFolder.Enquote)/a_$(Frame).png", "no-scene", "never told the scene"},
    {"Module Command", "$(Scene.Enquote)", "no-frame", "never told the frames"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) > log", "shell-syntax", "redirects nothing"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) 2>&1", "shell-syntax", "redirects nothing"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) >>$(Name.Enquote).log", "shell-syntax", "redirects nothing"},
    {"Module Command", "$(SubRange) < $(Scene.Enquote)", "shell-syntax", "redirects nothing"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) && rm a", "shell-syntax", "no second program"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) | tee log", "shell-syntax", "no second program"},
    {"Module Command", "$(Scene.Enquote) $(SubRange); rm a", "shell-syntax", "end of an argument"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) --lib ~/lib", "shell-syntax", "no home folder"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) --lib=~/lib", "shell-syntax", "no home folder"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) *.ps", "shell-syntax", "finds no files"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) -t `nproc`", "shell-syntax", "backquotes"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) --lib $HOME/lib", "shell-syntax", "environment"},
    {"Module Command", "$(Scene.Enquote) $(SubRange) --lib ${TMPDIR}/lib", "shell-syntax", "environment"},
    {"Module Command", "$(Scene.Enquote) -s %(SubRange.Start)", "no-reference", "%(SubRange.Start)"},
    {"Module Command", "$(Scene.Enquote) -s {SubRange.Start}", "no-reference", "{SubRange.Start}"},
    {"Module Command", "$(Scene.Enquote) -f <Frame> $(SubRange)", "no-reference", "<Frame>"},
    {"Module Command", "$(Scene.Enquote) -f %Frame% $(SubRange)", "no-reference", "%Frame%"},
    {"Module Command", "$(Scene.Enquote) -f ${Frame} $(SubRange)", "no-reference", "${Frame}"},
    {"Module Command", "$(Scene.Enquote) -f $Frame $(SubRange)", "no-reference", "$Frame"},
    {"Module Command", "$(Scene.Enquote) -s\xC2\xA0$(SubRange.Start)", "odd-character", "no-break space"},
    {"Module Command", "$(Scene.Enquote) \xE2\x80\x93s $(SubRange.Start)", "odd-character", "en dash"},
    {"Module Command", "$(Scene.Enquote) -t \xE2\x80\x9Cx\xE2\x80\x9D $(SubRange)", "odd-character", "curly quote"},
    {"Module Command", "-i $(Scene) $(SubRange)", "unquoted", "several arguments"},
    {"Module Command", "-i \"$(Scene)\" $(SubRange)", "quoted-by-hand", "breaks these quotes"},
    {"Module Command", "-i \"$(Scene.Enquote)\" $(SubRange)", "quoted-twice", "within quotes already"},
    {"Module Command", "-i 'a $(Scene.Enquote) $(SubRange)", "unclosed-quote", "never closed"},
    {"Module Command", "-i $(Scene.Enqote) $(SubRange)", "unknown-command", "Enqote"},
    {"Module Command", "-i $(Scen.Enquote) $(SubRange)", "unknown-reference", "$(Scen)"},
    // Scripts.
    {"Module Command", "-b '(gimp-file-load 1 \"'$(Scene.Enquote)'\" \"x\")' $(SubRange)", "script-string",
     "read as a script"},
    {"Module Command", "-c \"load('\"$(Scene.Enquote)\"')\" $(SubRange)", "script-string", "read as a script"},
    {"Module Command", "-c 'load('$(Scene.Enquote)')' $(SubRange)", "script-string", "part of a script"},
    {"Module Command", "-c 'load(\"'$(Scene.PythonString.Enquote)'\")' $(SubRange)", "script-string",
     "quotes of one already"},
    {"Module Command", "-c 'load('$(Scene.PythonString)')' $(SubRange)", "unquoted", "several arguments"},
    // Files.
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).exr", "other-file",
     "another extension"},
    {"OverrideDefaults ExpectedFiles", "$(Scene.Branch)/$(Scene.Base)_$(Frame.Pad(4)).png", "other-file",
     "another folder"},
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder)/*_$(Frame).png", "pattern-in-name", "finds no files"},
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder)/a_%04d.png", "pattern-in-name", "%04d"},
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder)/a_####.png", "pattern-in-name", "####"},
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder)/a.png", "no-frame", "no frame of a work"},
    {"OverrideDefaults ExpectedFiles", "a_$(Frame).png, b_$(Frame).png", "wrong-separator", "semicolons"},
    {"OverrideDefaults ExpectedFiles", "\"$(OutputFolder)/a_$(Frame).png", "unclosed-quote", "never closed"},
    {"OverrideDefaults ExpectedFiles", "~/a_$(Frame).png", "shell-syntax", "no home folder"},
    {"OverrideDefaults ExpectedFiles", "$(OutputFolder.Enquote)/a_$(Frame).png", "quotes-in-name", "Enquote"},
    {"OverrideDefaults OutputFolder", "~/images", "shell-syntax", "no home folder"},
    {"OverrideDefaults OutputFolder", "$HOME/images", "shell-syntax", "environment"},
    {"OverrideDefaults OutputFolder", "\"$(Scene.Branch)/images\"", "quoted-value", "quotes"},
    {"OverrideDefaults OutputFolder", "$(Scene.Branch)/images ; here", "comment-in-value", "no comment"},
    {"OverrideDefaults OutputFolder", "$(OutputFolder)/a", "circle", "circle"},
    // Other values.
    {"OverrideDefaults Executable", "~/bin/sketch", "shell-syntax", "no home folder"},
    {"OverrideDefaults Executable", "\"/opt/my sketch\"", "quoted-value", "quotes"},
    {"OverrideDefaults Environment", "A=1,B=2", "wrong-separator", "semicolons"},
    {"OverrideDefaults Environment", "PATH=~/bin", "shell-syntax", "no home folder"},
    {"OverrideDefaults CheckForMultipleFiles", "Yes", "no-effect", "does not ask"},
    {"OverrideDefaults SceneNumberLength", "4", "no-effect", "does not ask"},
    {"OverrideDefaults PaketSize", "2", "unknown-parameter", "PaketSize"},
    {"OverrideDefaults Command", "$(Scene)", "unknown-parameter", "Command"},
    {"OverrideDefaults PacketSize", "5 ; five", "bad-default", "refused"},
    {"Module PacketSize", "5", "misplaced-key", "sets nothing"},
    {"Module LinuxExe", "sketch", "misplaced-key", "sets nothing"},
    {"Module Shortcut", "sk; sketch", "wrong-separator", "commas"},
    {"Module CheckForMultipleFiles", "Yes ; please", "bad-boolean", "read as no"},
    {"Look Choices", "fine; rough", "wrong-separator", "commas"},
    {"Look Type", "Chioce", "unknown-type", "Chioce"},
    {"Look Flags", "OfJob; Visible", "unknown-flag", "OfJob"},
    {"FindLatestExecutable LinuxExe", "\"bin/sketch\"", "quoted-value", "quotes"},
    {"FindLatestExecutable LinuxRoots", "/opt; /usr/local", "wrong-separator", "commas"},
    {"FindLatestExecutable LinuxRoots", "/opt/*", "pattern-in-name", "finds no files"},
    {"FindLatestExecutable LinuxRoots", "~/apps", "shell-syntax", "no home folder"},
    {"FindLatestExecutable LinuxBases", "sketch; sk", "wrong-separator", "commas"},
    {"FindLatestExecutable LinuxBases", "sketch/bin", "base-with-path", "folder"},
    {"AutoDetect scene", "Look=fine", "wrong-case", "never applied"},
    {"AutoDetect Scene", "Luk=fine", "unknown-parameter", "Luk"},
    {"ErorText 1", "oops", "unknown-section", "ErorText"},
};
// clang-format on

struct Entry {
  std::string section;
  std::string key;
  std::string value;
};

/// A type without a fault.
std::vector<Entry> rightType() {
  return {{"Module", "ID", "11111111-2222-3333-4444-555555555555"},
          {"Module", "Name", "Sketch"},
          {"Module", "Command",
           "$(Scene.Enquote) --look $(Look) -s $(SubRange.Start) -e $(SubRange.End) -o "
           "$(OutputFolder.Enquote)/$(Scene.Base.Enquote)_%04d.png"},
          {"ErrorText", "1", "error"},
          {"PrimaryParameters", "1", "Look"},
          {"Look", "Type", "Choice"},
          {"Look", "Choices", "fine, rough"},
          {"Look", "Default", "fine"},
          {"Look", "Flags", "OfJob, Visible"},
          {"FindLatestExecutable", "LinuxRoots", "/opt, /usr/local"},
          {"FindLatestExecutable", "LinuxBases", "sketch"},
          {"FindLatestExecutable", "LinuxExe", "bin/sketch"},
          {"OverrideDefaults", "Executable", "sketch"},
          {"OverrideDefaults", "PacketSize", "5"},
          {"OverrideDefaults", "OutputFolder", "$(Scene.Branch)/images"},
          {"OverrideDefaults", "ExpectedFiles", "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png"}};
}

/// The type with an entry set; `line` is then where it stands.
std::string typeWith(const Entry& planted, std::uint32_t& line) {
  std::vector<Entry> entries = rightType();
  auto place = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
    return entry.section == planted.section && entry.key == planted.key;
  });
  if (place == entries.end()) {
    // At the end of its section, or in one of its own at the end of the file.
    const auto last = std::find_if(entries.rbegin(), entries.rend(),
                                   [&](const Entry& entry) { return entry.section == planted.section; });
    place = entries.insert(last == entries.rend() ? entries.end() : last.base(), planted);
  }
  place->value = planted.value;
  std::string text;
  std::string section;
  for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
    if (entry->section != section) {
      section = entry->section;
      text += '[' + section + "]\n";
    }
    text += entry->key + '=' + entry->value + '\n';
    if (entry == place) {
      line = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n'));
    }
  }
  return text;
}

using PlantedMistakesTest = CheckTest;

TEST_F(PlantedMistakesTest, TheTypeThatTheyArePlantedInIsRight) {
  std::uint32_t line = 0;
  EXPECT_EQ(printed(typeWith(rightType().front(), line)), "");
}

TEST_F(PlantedMistakesTest, EachIsToldAtItsLine) {
  EXPECT_GE(std::size(mistakes), 60U);
  for (const Mistake& mistake : mistakes) {
    const std::string place = mistake.entry;
    const std::size_t blank = place.find(' ');
    std::uint32_t line = 0;
    const std::string text = typeWith({place.substr(0, blank), place.substr(blank + 1), mistake.value}, line);
    const std::string section = '[' + place.substr(0, blank) + ']';
    const auto sectionLine = static_cast<std::uint32_t>(
        1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(text.find(section)), '\n'));
    std::string told;
    const bool found = [&] {
      for (const Diagnostic& problem : problems(text)) {
        told += "  " + std::to_string(problem.line) + ' ' + problem.rule + ": " + problem.message + '\n';
        const bool unknown = problem.rule == "unknown-section" && problem.line == sectionLine;
        if ((problem.line == line || unknown) && problem.rule == mistake.rule &&
            problem.message.find(mistake.message) != std::string::npos) {
          return true;
        }
      }
      return false;
    }();
    EXPECT_TRUE(found) << place << '=' << mistake.value << " in line " << line << " gives only\n" << told;
  }
}

TEST_F(PlantedMistakesTest, WhatLooksLikeOneAndIsRightGivesNoWord) {
  const std::pair<const char*, const char*> right[] = {
      {"ErrorText 1", ": cannot open file; output not changed"},
      {"ErrorText 1", "**** Error:"},
      {"ErrorText 1", "frame=    0 fps=0.0 q=-0.0 Lsize="},
      {"ErrorText 1", "Error reading file \""},
      {"ErrorText 1", "Output file #0 (/"},
      {"ErrorText 1", "C# error 100%"},
      {"ErrorText 1", "Error in stream #"},
      {"ErrorText 1", "Gr\xC3\xB6\xC3\x9F"
                      "e"},
      {"SuccessText 1", "\" done\""},
      {"OverrideDefaults NoRetryTexts", "\"no licence, giving up\";disk full"},
      {"OverrideDefaults RequiredTexts", "frame $(SubRange.End);closed"},
      {"OverrideDefaults ErrorDetectPosition", "1"},
      {"OverrideDefaults Environment", "A=1,2;PATH"},
      {"Module ImageStartText", "wrote \\\""},
      {"Module ImageStartText", "\"saved; \""},
      {"Module Help", "A dash \xE2\x80\x93 and a no-break\xC2\xA0space; $HOME, *.ps, <Scene>"},
      {"Module Command", "$(Scene.Enquote) $(SubRange) '*.ps' '>' \"a;b\" a~b 'it costs $5'"},
      {"Module Command", "$(Scene.Enquote) $(SubRange) -b '(load 1 '$(Scene.LispString.Enquote)' \"x\")'"},
      {"Module Command", "$(Scene.Enquote) $(SubRange) -c \"load(\"$(Scene.PythonString.Enquote)\")\""},
      {"Module Command",
       "$(Scene.Enquote) $(SubRange) -c \"f('\"$(Scene.Replace(','').Enquote)\"', $(CPUs))\""},
      {"Module Command", "$(Scene.Enquote) --range {$(SubRange)} --name=<x> --at 50%d@e"},
  };
  for (const auto& [entry, value] : right) {
    const std::string place = entry;
    const std::size_t blank = place.find(' ');
    std::uint32_t line = 0;
    const std::string text = typeWith({place.substr(0, blank), place.substr(blank + 1), value}, line);
    for (const Diagnostic& problem : problems(text)) {
      // Some leave out what other lines of the type need.
      EXPECT_TRUE(problem.line != line || problem.rule == "unused-parameter")
          << entry << '=' << value << "\n  " << problem.rule << ": " << problem.message;
    }
  }
}

} // namespace
} // namespace trovik
