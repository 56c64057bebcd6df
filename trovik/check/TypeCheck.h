#pragma once

#include "host/application/Job.h"
#include "trovik/check/Diagnostic.h"
#include "trovik/check/TypeSource.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace trovik {

/// A text of the file, and where it stands.
struct PlacedText {
  String text;
  Span span;
};

PlacedText valueOf(const IniFile::EntryView& entry);
PlacedText keyOf(const IniFile::EntryView& entry);

/// What the checks of one file share.
struct TypeCheck {
  const TypeSource& source;
  Findings& out;
  /// The parameters that every type has: the host's and the module's own.
  const std::vector<String>& standard;

  // As the module describes it; null where the module cannot read the file at
  // all. An ID that is refused does not matter here.
  const UID* type = nullptr;
  const JobTypeInfo* info = nullptr;
  Job* job = nullptr;

  bool isStandard(const String& name) const;
  /// Whether a reference to this name is answered.
  bool isAnswered(const String& name) const;

  /// The entry that decides a parameter's default: that of
  /// [OverrideDefaults], else one of [Module] or of its definition.
  std::optional<PlacedText> defaultOf(const String& name) const;
  /// The default that the type has in the end; empty without one.
  String effective(const String& name) const;

  /// How many frames a work has by default, where they are several: "4", or
  /// "several frames" where it is chosen when it begins; else empty.
  std::string severalFrames() const;

  Span sectionSpan(const String& section) const;
};

/// Sections and lists of one file whose names are fixed.
const std::vector<String>& fixedSections();

/// The section that reads a key: Module, FindLatestExecutable, or (of the standard
/// parameters) OverrideDefaults; empty for another key.
std::string homeOfKey(const TypeCheck& check, const String& key);
const std::vector<String>& moduleKeys();
const std::vector<String>& searchKeys();

/// A text of the file in quotes, made harmless and short.
std::string quotedText(std::string_view text);
/// Splits what the host says as "fact; what to do" in two.
std::pair<std::string, std::string> factAndHint(const std::string& text);
std::string lowered(std::string_view text);

/// The pieces of a list within one value, with their places.
std::vector<PlacedText> piecesOf(const PlacedText& list, char separator);

// The subjects, each in a source of its own.

void checkLines(const TypeCheck& check);
void checkModule(const TypeCheck& check);
void checkSections(const TypeCheck& check);
void checkParameters(const TypeCheck& check);
void checkOverrides(const TypeCheck& check);
void checkAutoDetect(const TypeCheck& check);
void checkTexts(const TypeCheck& check);
void checkReferences(const TypeCheck& check);
void checkCommandLines(const TypeCheck& check);
void checkScripts(const TypeCheck& check);
void checkValues(const TypeCheck& check);
void checkTextForms(const TypeCheck& check);
void checkFiles(const TypeCheck& check);
void checkProgramSearch(const TypeCheck& check);

} // namespace trovik
