// The search for the newest program, as the file describes it.

#include "host/application/Constants.h"
#include "trovik/check/TypeCheck.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr const char* searchSection = "FindLatestExecutable";

/// The pieces of one list, with its empty ones reported.
std::vector<PlacedText> listOf(const TypeCheck& check, const char* key) {
  IniFile::EntryView entry;
  std::vector<PlacedText> pieces;
  if (!check.source.ini().FindEntry(searchSection, key, entry) || entry.Value.empty()) {
    return pieces;
  }
  for (PlacedText& piece : piecesOf(valueOf(entry), ',')) {
    String text(piece.text);
    const std::size_t blanks = std::min(piece.text.find_first_not_of(" \t"), piece.text.size());
    const std::size_t quote = piece.span.length > piece.text.size() ? 1 : 0;
    text.Trim();
    if (text.empty()) {
      check.out.warning("empty-search", piece.span, "there is an empty entry in this list",
                        "leave out a comma");
    } else {
      pieces.push_back({text, piece.span.part(blanks + (blanks > 0 ? 0 : quote), text.size())});
    }
  }
  return pieces;
}

} // namespace

void checkProgramSearch(const TypeCheck& check) {
  const bool searches = check.source.ini().SectionPlace(searchSection).Line != 0;
  const bool hasModule = check.source.ini().SectionPlace("Module").Line != 0;
  const String standard = check.effective(p_Executable);
  if (!searches) {
    if (hasModule && standard.empty() && check.effective("CommandString").empty()) {
      check.out.warning("no-program", check.sectionSpan("Module"),
                        "the type says nowhere which program it runs",
                        "write Executable=... in [OverrideDefaults]");
    }
    return;
  }
  // Without both the program is looked up along PATH, and without bases the
  // roots themselves are what is searched.
  const std::vector<PlacedText> roots = listOf(check, "LinuxRoots");
  const std::vector<PlacedText> bases = listOf(check, "LinuxBases");
  if (roots.empty() && !bases.empty()) {
    IniFile::EntryView list;
    const bool there = check.source.ini().FindEntry(searchSection, "LinuxRoots", list);
    check.out.error("empty-search", there ? keyOf(list).span : check.sectionSpan(searchSection),
                    "without LinuxRoots nothing is searched", "write LinuxRoots=/opt, /usr/local");
  }
  for (const PlacedText& root : roots) {
    if (root.text.front() != '/') {
      check.out.warning("relative-root", root.span,
                        quotedText(root.text) + " counts from wherever trovik was started",
                        "write a path that begins with \"/\"");
    }
  }
  for (const PlacedText& base : bases) {
    if (base.text.find('/') != std::string::npos) {
      check.out.error("base-with-path", base.span,
                      "a base is the name of a folder, so one with \"/\" is never found",
                      "write the folders above it in LinuxRoots, and those below in LinuxExe");
    }
  }
  IniFile::EntryView entry;
  const bool names = check.source.ini().FindEntry(searchSection, "LinuxExe", entry);
  if (names && entry.Value.empty()) {
    check.out.error("empty-search", keyOf(entry).span, "without LinuxExe nothing is found",
                    "write LinuxExe=... as the program is called within its folder");
  } else if (!names && standard.empty()) {
    check.out.error("empty-search", check.sectionSpan(searchSection), "without LinuxExe nothing is found",
                    "write LinuxExe=... as the program is called within its folder");
  } else if (names && entry.Value.front() == '/') {
    check.out.warning("relative-root", valueOf(entry).span,
                      "this is a whole path, so no folder is searched for it",
                      "write it from the folder on that is to be found, such as bin/program");
  }
}

} // namespace trovik
