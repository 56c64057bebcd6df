#pragma once

#include "host/foundation/String.h"

#include <memory>
#include <optional>
#include <vector>

/// The description of one parameter of a job type.
class ParameterInfo {
public:
  /// The kinds of parameters. The numbers are part of the contract with
  /// modules and never change.
  enum TYPE {
    k_Text = 1,
    k_Integer = 2,
    k_Decimal = 3,
    k_Choice = 4,        ///< one of Choices
    k_Range = 5,         ///< a frame range, see FrameRange.h
    k_Multiline = 6,     ///< text of several lines
    k_Duration = 7,      ///< seconds, or a number with s, m, h or d
    k_Boolean = 9,       ///< "Yes" or "No"
    k_BoolOverride = 10, ///< "", "Yes" or "No"
    k_File = 12,         ///< a file that is picked; its value is never expanded
    k_Folder = 13,       ///< a folder or output path; may hold references
    k_Heading = 15,      ///< no value: opens a group of a form
    k_List = 16,         ///< texts, packed into one
  };

  /// Bits of Flags. Those stored by modules as plain numbers have their
  /// meaning here; see docs/tvx.md for the names in files.
  enum FLAG : unsigned int {
    k_Required = 0x1,    ///< a job without a value is not valid
    k_OfJob = 0x2,       ///< a job carries a value of its own
    k_ReadOnly = 0x4,    ///< shown, but not set by users
    k_OfEngine = 0x8,    ///< an engine's type option may give the value
    k_SubmitOnly = 0x10, ///< only looked at while a job is set up
    k_Literal = 0x20,    ///< the value is never expanded for references
    k_Advanced = 0x200,  ///< of interest to who runs the farm
    k_Editable = 0x400,  ///< may be changed after the job was set up
    k_Visible = 0x800,   ///< shown in forms
    k_Deprecated = 0x1000,
    k_AffectsCommand = 0x10000, ///< a change alters the command line
    k_Internal = 0x80000000,    ///< of the host itself; files cannot set it
  };

  explicit ParameterInfo(TYPE type) : m_Type(type) {}
  virtual ~ParameterInfo() = default;
  ParameterInfo(const ParameterInfo&) = default;
  ParameterInfo& operator=(const ParameterInfo&) = default;

  String Name;
  String Label;
  String Help;
  String Default;
  unsigned int Flags = 0;

  // Limits, where the kind has them.
  std::optional<double> Minimum;
  std::optional<double> Maximum;
  /// The values of a choice; of a whole number, words that may stand for one.
  std::vector<String> Choices;

  TYPE Type() const { return m_Type; }

  /// Whether references in the value are left alone: picked files, and what
  /// has the flag k_Literal.
  bool IsLiteral() const { return m_Type == k_File || (Flags & k_Literal) != 0; }

  /// Whether a text is a value of this kind within its limits. An empty text
  /// always is. A text with parameter references is, unless literal. If not,
  /// `why` says what is wrong and what to write instead.
  bool Accepts(const String& value, String& why) const;

  /// A new description of the right class for a kind: ListParameterInfo for
  /// lists, FileParameterInfo for files and folders, BoolOverrideInfo for
  /// boolean overrides.
  static std::unique_ptr<ParameterInfo> Create(TYPE type);

private:
  TYPE m_Type;
};

/// The name of a kind in a .tvx file ("Integer"), and the kind of a name (any
/// case); nullopt for an unknown one.
String ParameterTypeName(ParameterInfo::TYPE type);
std::optional<ParameterInfo::TYPE> ParameterTypeFromName(const String& name);
std::vector<String> ParameterTypeNames();

/// Reads the whole of a text as a decimal number; false for any other text,
/// infinity and blanks among them.
bool ParseDecimal(std::string_view text, double& number);

/// Reads a duration such as "90", "90s", "1.5m", "2h" or "1d" as seconds; a
/// number alone counts seconds. False for any other text, a negative one too.
bool ParseDuration(const String& text, double& seconds);

class FileParameterInfo : public ParameterInfo {
public:
  explicit FileParameterInfo(TYPE type = k_File) : ParameterInfo(type) {}

  /// Patterns for a file dialogue, as in "POV-Ray scenes (*.pov)|*.pov".
  String Filter;

  static FileParameterInfo* CastFrom(ParameterInfo* info) { return dynamic_cast<FileParameterInfo*>(info); }
  static const FileParameterInfo* CastFrom(const ParameterInfo* info) {
    return dynamic_cast<const FileParameterInfo*>(info);
  }
};

class ListParameterInfo : public ParameterInfo {
public:
  ListParameterInfo() : ParameterInfo(k_List) {}

  static constexpr char k_Separator = ';';

  /// Joins texts into one value such that Unpack, and StringTokenizer with
  /// ';', '"' and '\', give the same texts back.
  String Pack(const std::vector<String>& texts) const;
  std::vector<String> Unpack(const String& value) const;

  static ListParameterInfo* CastFrom(ParameterInfo* info) { return dynamic_cast<ListParameterInfo*>(info); }
  static const ListParameterInfo* CastFrom(const ParameterInfo* info) {
    return dynamic_cast<const ListParameterInfo*>(info);
  }
};

/// A tri-state that can leave a decision to the engine's option or the type's
/// default.
enum BoolOverride : int { k_NoOverride = 0, k_OverrideYes = 1, k_OverrideNo = 2 };

class BoolOverrideInfo : public ParameterInfo {
public:
  BoolOverrideInfo() : ParameterInfo(k_BoolOverride) {}

  /// "" for no override (and for any value that is none of the three), "Yes",
  /// "No".
  String ToString(BoolOverride value) const;
  /// The empty text (blanks aside) is no override; else yes or no by
  /// String::Bool.
  BoolOverride FromString(String text) const;

  static BoolOverrideInfo* CastFrom(ParameterInfo* info) { return dynamic_cast<BoolOverrideInfo*>(info); }
  static const BoolOverrideInfo* CastFrom(const ParameterInfo* info) {
    return dynamic_cast<const BoolOverrideInfo*>(info);
  }
};
