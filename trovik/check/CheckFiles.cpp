// Which files a work must leave, and how they are judged.

#include "host/application/Constants.h"
#include "trovik/check/References.h"

#include <algorithm>
#include <cstdlib>

namespace trovik {
namespace {

/// Templates without a frame in them are one file for all frames of a work.
void checkFrames(const TypeCheck& check, const PlacedText& list) {
  const std::string packet = check.severalFrames();
  const bool perFrame = !String::EqualNoCase(check.effective(p_FileCheck), "Work") &&
                        !String::EqualNoCase(check.effective(p_FileCheck), "None");
  const ParameterInfo* range = check.info->GetParam(p_Range);
  const bool hasFrames = range != nullptr && (range->Flags & ParameterInfo::k_ReadOnly) == 0;
  // Where a name is mistyped, it may be the one that is missed.
  if (!perFrame || (packet.empty() && (!hasFrames || check.out.errors() > 0))) {
    return;
  }
  for (const PlacedText& piece : piecesOf(list, ';')) {
    if (piece.text.empty() || namesFrame(check, String(piece.text))) {
      continue;
    }
    check.out.warning("no-frame", piece.span,
                      packet.empty() ? "all frames of a job have this one file"
                                     : "no frame of a work of " + packet + " has a file of its own by this",
                      packet.empty()
                          ? "write $(Frame.Pad(4)) into the name, or Range=OfJob, ReadOnly in "
                            "[OverrideFlags] for a program without frames"
                          : "write $(Frame.Pad(4)) into the name, or FileCheck=Work in [OverrideDefaults]");
  }
}

/// Files are looked for by name; quotes are for command lines.
void checkQuotes(const TypeCheck& check, const PlacedText& text, const char* what) {
  for (const Reference& reference : referencesIn(String(text.text))) {
    const Span span = text.span.part(reference.Begin, reference.End - reference.Begin);
    if (hasCommand(reference, "Enquote")) {
      check.out.warning("quotes-in-name", span,
                        std::string(what) + " is a name, and Enquote puts quotes into it",
                        "leave out Enquote");
    }
    const bool path = hasCommand(reference, "Branch") || hasCommand(reference, "Leaf") ||
                      hasCommand(reference, "Extension");
    if (String::EqualNoCase(reference.Name, "ActualScene") && path && !hasCommand(reference, "Dequote") &&
        check.effective("EnquoteActual").Bool()) {
      check.out.warning("quoted-scene", span,
                        "$(ActualScene) is quoted where a name needs it, and commands get the quotes too",
                        "write Dequote as the first command");
    }
  }
}

} // namespace

bool namesFrame(const TypeCheck& check, const String& text) {
  const std::set<std::string> names = allNamesIn(check, text);
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return name == "frame" || name == "subrange" || name == "actualsubrange" || name == "actualscene";
  });
}

void checkFiles(const TypeCheck& check) {
  const std::optional<PlacedText> expected = check.defaultOf(p_ExpectedFiles);
  if (expected && !expected->text.empty()) {
    checkFrames(check, *expected);
    checkQuotes(check, *expected, "an expected file");
  }
  for (const char* folder : {p_OutputFolder, p_StartDirectory}) {
    if (const std::optional<PlacedText> text = check.defaultOf(folder)) {
      checkQuotes(check, *text, folder);
    }
  }
  const bool looksAtFiles = !String::EqualNoCase(check.effective(p_FileCheck), "None");
  if (looksAtFiles && check.effective(p_ExpectedFiles).empty() && check.effective("ImageStartText").empty()) {
    const Span span = check.sectionSpan("Module");
    if (span.place.Line != 0) {
      check.out.warning("no-files", span, "the type says nothing of its files, so none is checked",
                        "write ImageStartText, or ExpectedFiles in [OverrideDefaults]; FileCheck=None there "
                        "if it leaves none");
    }
  }
}

} // namespace trovik
