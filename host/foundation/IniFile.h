#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

/// A file of the host: the name that it is loaded from and saved to.
class File {
public:
  explicit File(Path filename = Path()) : m_Filename(std::move(filename)) {}
  virtual ~File() = default;

  const Path& Filename() const { return m_Filename; }
  void SetFilename(const Path& filename) { m_Filename = filename; }

protected:
  File(const File&) = default;
  File& operator=(const File&) = default;

private:
  Path m_Filename;
};

/// A place in a text file; line and column count bytes from 1. Line 0 means
/// that the value did not come from a file.
struct TextPlace {
  std::uint32_t Line = 0;
  std::uint32_t Column = 0;
};

/// A parsed file of `[section]` and `key=value` lines.
///
/// Blanks around section names, keys and values are dropped, quotes are kept.
/// A line whose first non-blank is ";" or "#" is a comment; there are no
/// trailing comments. CRLF, a leading UTF-8 mark and a missing last newline
/// are accepted. Sections and keys match without regard to case; a repeated
/// section continues the first, a repeated key replaces the value. Lines that
/// are none of these are skipped, and kept as oddities for a checker.
///
/// Selecting a section moves the current section and starts its walk anew; so
/// one object must not be read from two threads at once. A copy is independent
/// and costs next to nothing: copies share what was parsed until one of them is
/// changed.
class IniFile : public File {
public:
  /// What the parse noticed beyond sections and entries.
  struct Oddity {
    enum class Kind {
      NoEquals,         ///< a line that is no section, entry or comment
      NoSection,        ///< an entry before the first section
      UnclosedSection,  ///< a "[" without "]"
      TextAfterSection, ///< something behind the "]"
      EmptyKey,         ///< a line that begins with "="
      RepeatedKey,      ///< the key stands in the section already
      RepeatedSection,  ///< the section was opened before
      NulByte,          ///< a byte 0 in the line
    };
    Kind What;
    TextPlace Place;
    String Text; ///< the offending text
  };

  /// One entry as the file holds it, for checkers and presenters. Its texts
  /// point into the object and hold until that is changed or destroyed.
  struct EntryView {
    std::string_view Key;
    std::string_view Value;
    TextPlace KeyPlace;
    TextPlace ValuePlace;
  };

  /// The oddities that are kept. More tell nobody more, and a file of nothing
  /// else would cost many times its size.
  static constexpr std::size_t k_OddityLimit = 10000;

  /// The largest file that Load reads and Save writes, in bytes.
  static constexpr std::size_t k_SizeLimit = std::size_t{64} << 20;

  /// An empty file without a name. `keepOrder` false is the host's form: walks
  /// yield keys without regard to case; true walks in the order of the file.
  explicit IniFile(bool keepOrder = false);
  /// An independent copy, file name included. `keepPosition` false starts it
  /// without a current section.
  IniFile(const IniFile& other, bool keepPosition);
  IniFile(const IniFile& other) : IniFile(other, true) {}
  IniFile& operator=(const IniFile& other);
  ~IniFile() override = default;

  /// Reads and parses the named file. With `mustExist` true a file that cannot
  /// be read raises Exception*, with false it leaves this object empty and
  /// gives false. `replace` true forgets what was held before, false adds to
  /// it. A file that is no regular file counts as unreadable; one larger than
  /// the limit raises Exception* always.
  bool Load(bool mustExist, bool replace);

  /// Parses a text as Load would; places count within it.
  void Parse(std::string_view text, bool replace = true);

  /// Writes the entries to the named file: a temporary beside it, synced, then
  /// renamed over it, with the permissions of the file that it replaces.
  /// Comments are not kept. Raises Exception* on failure, and for anything that
  /// Load would not read back as it is; the file is then as it was.
  void Save() const;

  /// Makes a section current and starts its walk. False, and no current
  /// section, when there is none of that name.
  bool SetSection(const String& section);

  /// Leaves no section current, as in the beginning.
  void LeaveSection();

  /// The value of a key in the current section; untouched when it is missing.
  /// An integer is read like strtol in base 10 and cut to 32 bits (empty gives
  /// 0); a boolean by String::Bool. Returns whether the key is there.
  bool GetValue(const String& key, String& value) const;
  bool GetValue(const String& key, int& value) const;
  bool GetValue(const String& key, bool& value) const;

  /// The value of a key in a named section, or the default. The current
  /// section stays as it is.
  String GetValue(const String& section, const String& key, const String& defaultValue) const;
  String GetValue(const String& section, const String& key, const char* defaultValue) const;
  bool GetValue(const String& section, const String& key, bool defaultValue) const;
  int GetValue(const String& section, const String& key, int defaultValue) const;

  /// The next entry of the current section, in key order without regard to
  /// case (see the constructor); false after the last, or without a section.
  bool GetNextValue(String& key, String& value);

  /// The same without copies: the texts are as in an EntryView.
  bool GetNextValue(std::string_view& key, std::string_view& value);
  bool GetNextEntry(EntryView& entry);

  /// How many entries the current section has.
  std::size_t EntryCount() const;

  /// Sets one value, creating section and key as needed. The walk of the
  /// current section starts anew.
  void SetValue(const String& section, const String& key, const String& value);

  /// The places of a section's first header, and of an entry's key and value;
  /// line 0 where there is none.
  TextPlace SectionPlace(const String& section) const;
  bool FindEntry(const String& section, const String& key, EntryView& entry) const;

  std::vector<String> SectionNames() const;                    ///< in the order of the file
  std::vector<EntryView> Entries(const String& section) const; ///< in the order of the file
  /// In the order of the file; those of a text that was added come behind.
  const std::vector<Oddity>& Oddities() const { return m_Tables->Oddities; }

protected:
  void _ConstructIniFile(bool keepOrder); // NOLINT(bugprone-reserved-identifier)
  void CopyData(const IniFile& other);

private:
  // Names and values are slices of one text and all entries stand in one
  // vector, so that a file costs a handful of allocations; see IniFileText.cpp.
  struct Slice {
    std::uint32_t Offset = 0;
    std::uint32_t Length = 0;
  };
  struct Entry {
    std::uint32_t Section = 0; // index into m_Sections
    Slice Key;
    Slice Value;
    TextPlace KeyPlace;
    TextPlace ValuePlace;
  };
  struct Section {
    Slice Name;
    TextPlace Place;
    std::uint32_t First = 0; // its entries' range in m_Order
    std::uint32_t Count = 0;
  };
  static constexpr std::uint32_t k_None = 0xFFFFFFFF;
  static constexpr std::size_t k_FewSections = 16;
  class LineReader;

  std::string_view View(Slice slice) const { return {m_Tables->Text.data() + slice.Offset, slice.Length}; }
  Slice Append(std::string_view text);
  std::uint32_t FindSection(std::string_view name) const;
  std::uint32_t FindEntry(std::uint32_t section, std::string_view key) const;
  bool FindValue(const String& key, String& value) const;
  bool FindValue(const String& section, const String& key, String& value) const;
  const Entry* NextEntry();
  EntryView MakeView(const Entry& entry) const;
  std::string WriteText() const;
  void Clear();
  void Detach();
  void Compact();
  void ParseText(std::string text, bool replace);
  bool IndexSections();
  bool AreDifferent(std::span<const Section> sections) const;
  bool MergeSections();
  void GroupEntries();
  void OrderEntries();
  template <typename NameOf> static bool SortByName(std::uint32_t* first, std::uint32_t* last, NameOf nameOf);
  void Note(Oddity::Kind what, std::uint32_t line, std::size_t column, std::string_view text);

  struct Tables {
    std::string Text;
    std::vector<Section> Sections;     // in the order of the file
    std::vector<std::uint32_t> ByName; // indexes into Sections, by name; none where these are few
    std::vector<Entry> Entries;        // in the order of the file
    std::vector<std::uint32_t> Order;  // indexes into Entries, by section and key
    std::vector<Oddity> Oddities;      // in the order of the file
    std::size_t Wasted = 0;            // bytes of values that SetValue replaced
  };
  std::shared_ptr<Tables> m_Tables = std::make_shared<Tables>();
  bool m_KeepOrder = false;
  std::uint32_t m_Current = k_None;
  std::vector<std::uint32_t> m_Walk; // the current section's entries, where the file's order counts
  std::uint32_t m_Position = 0;
};
