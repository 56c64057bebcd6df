#include "host/application/TrovikObject.h"

#include "host/foundation/Characters.h"
#include <algorithm>
#include <string_view>
#include <typeinfo>

// Whole objects are copied, sent and saved through the state table of their
// class. The stream is the exact form; the readable form (name to text) is
// what files and objects of another class can take.

namespace {

constexpr const char* k_VersionKey = "Version";

// What a file of keys and values would lose or read otherwise: control
// characters anywhere, blanks at the ends; in a key also the "=" and what
// makes a comment or a section of its line. An empty key is "\e".
String EscapeForFile(const String& text, bool isKey) {
  if (isKey && text.empty()) {
    return "\\e";
  }
  String escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool atEnd = i == 0 || i + 1 == text.size();
    const bool special = isKey && (c == '=' || (i == 0 && (c == '[' || c == ';' || c == '#')));
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || (c == ' ' && atEnd) || special) {
      escaped += "\\x";
      AppendHex(escaped, c);
    } else {
      escaped.push_back(c);
    }
  }
  return escaped;
}

// Undoes it. A backslash that begins none of the escapes is a plain one, so
// that a path typed into such a file by hand survives.
String UnescapeFromFile(const String& text) {
  String plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
    if (next == '\\' || next == 'n') {
      plain.push_back(next == 'n' ? '\n' : '\\');
      ++i;
    } else if (next == 'e' && text.size() == 2) {
      return {};
    } else if (next == 'x' && i + 3 < text.size() && HexDigit(text[i + 2]) >= 0 &&
               HexDigit(text[i + 3]) >= 0) {
      plain.push_back(static_cast<char>(HexDigit(text[i + 2]) * 16 + HexDigit(text[i + 3])));
      i += 3;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

} // namespace

TrovikObject::TrovikObject() : TrovikObject(StateTable()) {}

TrovikObject::TrovikObject(const StateTable& table) : m_Table(table) {}

TrovikObject::~TrovikObject() = default;

void TrovikObject::ForEachValue(const StateTable::Visit& visit) const {
  if (m_Table.ForEach != nullptr) {
    m_Table.ForEach(*this, visit);
    return;
  }
  for (const auto& [name, value] : m_Values) {
    visit(k_ValueSection, name, value);
  }
}

void TrovikObject::AssignValue(const String& section, const String& name, const String& value) {
  if (m_Table.Assign != nullptr) {
    m_Table.Assign(*this, section, name, value);
  } else if (section == k_ValueSection) {
    Set(name, value);
  }
}

void TrovikObject::PackState(OutStream& out) const {
  if (m_Table.Pack != nullptr) {
    m_Table.Pack(*this, out);
  } else {
    PackValues(out);
  }
}

void TrovikObject::UnpackState(InStream& in, unsigned int version) {
  if (m_Table.Unpack != nullptr) {
    m_Table.Unpack(*this, in, version);
  } else {
    m_Values = UnpackValues(in);
  }
}

void TrovikObject::PackValues(OutStream& out) const {
  out.Put(static_cast<unsigned int>(m_Values.size()));
  for (const auto& [name, value] : m_Values) {
    out.Put(name);
    out.Put(value);
  }
}

TrovikObject::ValueMap TrovikObject::UnpackValues(InStream& in) {
  unsigned int count = 0;
  in.Get(count);
  ValueMap values;
  for (unsigned int i = 0; i < count; ++i) {
    String name;
    String value;
    in.Get(name);
    in.Get(value);
    values.insert_or_assign(std::move(name), std::move(value));
  }
  return values;
}

void TrovikObject::Clone(const TrovikObject& other) {
  if (&other == this) {
    return;
  }
  if (typeid(*this) != typeid(other)) {
    RaiseException("TrovikObject::Clone", k_ErrorStream,
                   "an object can only be made a copy of one of its own class");
  }
  OutStream out;
  other.PackState(out);
  InStream in(out.Bytes());
  UnpackState(in, k_StateVersion);
  // What a stream carries is meant for another machine, so reading it may
  // translate paths. A copy on this machine has the same texts.
  std::map<std::pair<String, String>, String> mine;
  ForEachValue([&mine](const String& section, const String& name, const String& value) {
    mine.insert_or_assign({section, name}, value);
  });
  other.ForEachValue([&](const String& section, const String& name, const String& value) {
    const auto found = mine.find({section, name});
    if (found == mine.end() || found->second != value) {
      AssignValue(section, name, value);
    }
  });
}

void TrovikObject::Merge(const TrovikObject& other) {
  other.ForEachValue([this](const String& section, const String& name, const String& value) {
    if (section == k_ValueSection && !value.empty()) {
      AssignValue(section, name, value);
    }
  });
}

String TrovikObject::Get(const String& name, bool quiet) const {
  const auto found = m_Values.find(name);
  if (found != m_Values.end()) {
    return found->second;
  }
  if (!quiet) {
    RaiseException("TrovikObject::Get", k_ErrorReference, "the object has no value \"" + name + "\"");
  }
  return String::Null;
}

void TrovikObject::Set(const String& name, const String& value) {
  m_Values.insert_or_assign(name, value);
}

void TrovikObject::Send(OutStream& out) const {
  out.Put(k_StateVersion);
  PackState(out);
}

void TrovikObject::Read(InStream& in) {
  unsigned int version = 0;
  in.Get(version);
  if (version != k_StateVersion) {
    RaiseException("TrovikObject::Read", k_ErrorStream,
                   "the stream has version " + std::to_string(version) + "; this host reads version " +
                       std::to_string(k_StateVersion));
  }
  UnpackState(in, version);
}

void TrovikObject::Save(IniFile& file) const {
  file.SetValue(k_ObjectSection, k_VersionKey, std::to_string(k_StateVersion));
  ForEachValue([&file](const String& section, const String& name, const String& value) {
    file.SetValue(section, EscapeForFile(name, true), EscapeForFile(value, false));
  });
}

void TrovikObject::Load(IniFile& file) {
  if (!file.SetSection(k_ObjectSection)) {
    RaiseException("TrovikObject::Load", k_ErrorSyntax,
                   file.Filename().Text() + ": no saved object: the section [Object] is missing");
  }
  const String version = file.GetValue(String(k_ObjectSection), k_VersionKey, String::Null);
  if (version != std::to_string(k_StateVersion)) {
    RaiseException("TrovikObject::Load", k_ErrorSyntax,
                   file.Filename().Text() + ": the object has version \"" + version.substr(0, 20) +
                       "\"; this host reads version " + std::to_string(k_StateVersion));
  }
  m_Values.clear();
  for (const char* section : {k_ObjectSection, k_ValueSection}) {
    for (const IniFile::EntryView& entry : file.Entries(section)) {
      AssignValue(section, UnescapeFromFile(String(entry.Key)), UnescapeFromFile(String(entry.Value)));
    }
  }
}
