#include "host/foundation/IniFile.h"

#include "host/foundation/Exception.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

namespace {

constexpr std::size_t k_WasteLimit = std::size_t{64} << 10;

int CutToInt(const String& value) {
  return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

// The first of some sorted indexes whose name is not before a wanted one; by
// eight bytes of the names alone, where these tell.
template <typename Index, typename NameOf>
Index FirstFrom(Index first, Index last, std::string_view wanted, NameOf nameOf) {
  const std::uint64_t prefix = String::NoCasePrefix(wanted);
  return std::partition_point(first, last, [&](std::uint32_t index) {
    const std::string_view name = nameOf(index);
    const std::uint64_t itsPrefix = String::NoCasePrefix(name);
    return itsPrefix != prefix ? itsPrefix < prefix
                               : name != wanted && String::CompareNoCase(name, wanted) < 0;
  });
}

} // namespace

IniFile::IniFile(bool keepOrder) {
  _ConstructIniFile(keepOrder);
}

void IniFile::_ConstructIniFile(bool keepOrder) { // NOLINT(bugprone-reserved-identifier)
  m_KeepOrder = keepOrder;
}

IniFile::IniFile(const IniFile& other, bool keepPosition) : File(other), m_Tables(other.m_Tables) {
  _ConstructIniFile(other.m_KeepOrder);
  if (keepPosition) {
    m_Current = other.m_Current;
    m_Walk = other.m_Walk;
    m_Position = other.m_Position;
  }
}

IniFile& IniFile::operator=(const IniFile& other) {
  if (this != &other) {
    File::operator=(other);
    m_KeepOrder = other.m_KeepOrder;
    CopyData(other);
    m_Current = other.m_Current;
    m_Walk = other.m_Walk;
    m_Position = other.m_Position;
  }
  return *this;
}

// Copies share the tables until one of them changes.
void IniFile::CopyData(const IniFile& other) {
  m_Tables = other.m_Tables;
}

// Before a change: tables that others share become this object's own. Another
// thread can only give its share up meanwhile, as it has no way to this object;
// the fence makes all that it read happen before what follows.
void IniFile::Detach() {
  if (m_Tables.use_count() > 1) {
    m_Tables = std::make_shared<Tables>(*m_Tables);
  }
  std::atomic_thread_fence(std::memory_order_acquire);
}

void IniFile::Clear() {
  const bool isEmpty = m_Tables->Text.empty() && m_Tables->Sections.empty() && m_Tables->Oddities.empty();
  if (isEmpty) {
    Detach(); // what others share is not to be filled
  } else {
    m_Tables = std::make_shared<Tables>();
  }
  LeaveSection();
}

// Forgets replaced entries and all text that is no longer a name or a value.
void IniFile::Compact() {
  std::string text;
  const auto move = [this, &text](Slice& slice) {
    const std::size_t offset = text.size();
    text.append(View(slice));
    slice.Offset = static_cast<std::uint32_t>(offset);
  };
  for (Section& section : m_Tables->Sections) {
    move(section.Name);
  }
  std::vector<std::uint32_t> kept = m_Tables->Order;
  std::sort(kept.begin(), kept.end());
  std::vector<std::uint32_t> newIndex(m_Tables->Entries.size(), k_None);
  std::vector<Entry> entries;
  entries.reserve(kept.size());
  for (const std::uint32_t index : kept) {
    newIndex[index] = static_cast<std::uint32_t>(entries.size());
    entries.push_back(m_Tables->Entries[index]);
    move(entries.back().Key);
    move(entries.back().Value);
  }
  for (std::uint32_t& index : m_Tables->Order) {
    index = newIndex[index];
  }
  m_Tables->Entries = std::move(entries);
  m_Tables->Text = std::move(text);
  m_Tables->Wasted = 0;
}

// Of a few sections each is looked at: the lengths of their names tell nearly
// all apart.
std::uint32_t IniFile::FindSection(std::string_view name) const {
  const std::vector<std::uint32_t>& sorted = m_Tables->ByName;
  const std::vector<Section>& sections = m_Tables->Sections;
  const auto isNamed = [&](const Section& section) {
    return section.Name.Length == name.size() && String::EqualNoCase(View(section.Name), name);
  };
  if (sorted.empty()) {
    const auto found = std::find_if(sections.begin(), sections.end(), isNamed);
    return found != sections.end() ? static_cast<std::uint32_t>(found - sections.begin()) : k_None;
  }
  const auto found = FirstFrom(sorted.begin(), sorted.end(), name,
                               [this](std::uint32_t index) { return View(m_Tables->Sections[index].Name); });
  return found != sorted.end() && isNamed(sections[*found]) ? *found : k_None;
}

std::uint32_t IniFile::FindEntry(std::uint32_t section, std::string_view key) const {
  if (section == k_None) {
    return k_None;
  }
  constexpr std::uint32_t k_FewKeys = 16; // as with sections
  const auto isNamed = [&](std::uint32_t index) {
    const Slice& name = m_Tables->Entries[index].Key;
    return name.Length == key.size() && String::EqualNoCase(View(name), key);
  };
  const Section& keys = m_Tables->Sections[section];
  const auto first = m_Tables->Order.begin() + keys.First;
  const auto last = first + keys.Count;
  if (keys.Count <= k_FewKeys) {
    const auto found = std::find_if(first, last, isNamed);
    return found != last ? *found : k_None;
  }
  const auto found =
      FirstFrom(first, last, key, [this](std::uint32_t index) { return View(m_Tables->Entries[index].Key); });
  return found != last && isNamed(*found) ? *found : k_None;
}

bool IniFile::SetSection(const String& section) {
  m_Current = FindSection(section);
  m_Position = 0;
  m_Walk.clear();
  if (m_KeepOrder && m_Current != k_None) {
    const auto first = m_Tables->Order.begin() + m_Tables->Sections[m_Current].First;
    m_Walk.assign(first, first + m_Tables->Sections[m_Current].Count);
    std::sort(m_Walk.begin(), m_Walk.end());
  }
  return m_Current != k_None;
}

void IniFile::LeaveSection() {
  m_Current = k_None;
  m_Position = 0;
  m_Walk.clear();
}

bool IniFile::GetValue(const String& key, String& value) const {
  return FindValue(key, value);
}

bool IniFile::FindValue(const String& key, String& value) const {
  const std::uint32_t entry = FindEntry(m_Current, key);
  if (entry == k_None) {
    return false;
  }
  value.assign(View(m_Tables->Entries[entry].Value));
  return true;
}

bool IniFile::GetValue(const String& key, int& value) const {
  String text;
  if (!FindValue(key, text)) {
    return false;
  }
  value = CutToInt(text);
  return true;
}

bool IniFile::GetValue(const String& key, bool& value) const {
  String text;
  if (!FindValue(key, text)) {
    return false;
  }
  value = text.Bool();
  return true;
}

bool IniFile::FindValue(const String& section, const String& key, String& value) const {
  const std::uint32_t entry = FindEntry(FindSection(section), key);
  if (entry == k_None) {
    return false;
  }
  value = String(View(m_Tables->Entries[entry].Value));
  return true;
}

String IniFile::GetValue(const String& section, const String& key, const String& defaultValue) const {
  String value;
  return FindValue(section, key, value) ? value : defaultValue;
}

String IniFile::GetValue(const String& section, const String& key, const char* defaultValue) const {
  return GetValue(section, key, String(defaultValue));
}

bool IniFile::GetValue(const String& section, const String& key, bool defaultValue) const {
  String value;
  return FindValue(section, key, value) ? value.Bool() : defaultValue;
}

int IniFile::GetValue(const String& section, const String& key, int defaultValue) const {
  String value;
  return FindValue(section, key, value) ? CutToInt(value) : defaultValue;
}

// Null behind the last of the current section.
inline const IniFile::Entry* IniFile::NextEntry() {
  const Tables& tables = *m_Tables;
  if (m_Current == k_None || m_Position >= tables.Sections[m_Current].Count) {
    return nullptr;
  }
  const std::uint32_t position = m_Position++;
  return &tables.Entries[m_KeepOrder ? m_Walk[position]
                                     : tables.Order[tables.Sections[m_Current].First + position]];
}

bool IniFile::GetNextValue(String& key, String& value) {
  const Entry* const entry = NextEntry();
  if (entry != nullptr) {
    key.assign(View(entry->Key));
    value.assign(View(entry->Value));
  }
  return entry != nullptr;
}

bool IniFile::GetNextValue(std::string_view& key, std::string_view& value) {
  const Entry* const entry = NextEntry();
  if (entry != nullptr) {
    key = View(entry->Key);
    value = View(entry->Value);
  }
  return entry != nullptr;
}

bool IniFile::GetNextEntry(EntryView& view) {
  const Entry* const entry = NextEntry();
  if (entry != nullptr) {
    view = MakeView(*entry);
  }
  return entry != nullptr;
}

std::size_t IniFile::EntryCount() const {
  return m_Current == k_None ? 0 : m_Tables->Sections[m_Current].Count;
}

IniFile::Slice IniFile::Append(std::string_view text) {
  if (m_Tables->Text.size() + text.size() >= k_None) {
    RaiseException("IniFile::SetValue", k_ErrorLimit, "more than 4 GiB of settings in " + Filename().Text());
  }
  const Slice slice{static_cast<std::uint32_t>(m_Tables->Text.size()),
                    static_cast<std::uint32_t>(text.size())};
  m_Tables->Text.append(text);
  return slice;
}

void IniFile::SetValue(const String& section, const String& key, const String& value) {
  Detach();
  std::uint32_t sectionIndex = FindSection(section);
  if (sectionIndex == k_None) {
    sectionIndex = static_cast<std::uint32_t>(m_Tables->Sections.size());
    const Slice name = Append(section);
    std::vector<std::uint32_t>& sorted = m_Tables->ByName;
    if (!sorted.empty()) {
      sorted.insert(FirstFrom(sorted.begin(), sorted.end(), section,
                              [this](std::uint32_t index) { return View(m_Tables->Sections[index].Name); }),
                    sectionIndex);
    }
    m_Tables->Sections.push_back({name, {}, static_cast<std::uint32_t>(m_Tables->Order.size()), 0});
    if (sorted.empty() && m_Tables->Sections.size() > k_FewSections) {
      IndexSections();
    }
  }
  const std::uint32_t existing = FindEntry(sectionIndex, key);
  if (existing != k_None) {
    Entry& entry = m_Tables->Entries[existing];
    m_Tables->Wasted += entry.Value.Length;
    if (value.size() <= entry.Value.Length) {
      m_Tables->Text.replace(entry.Value.Offset, value.size(), value);
      entry.Value.Length = static_cast<std::uint32_t>(value.size());
      m_Tables->Wasted -= value.size();
    } else {
      entry.Value = Append(value);
    }
    entry.ValuePlace = {};
    // A value that changes for ever must not fill the memory.
    if (m_Tables->Wasted > std::max(k_WasteLimit, m_Tables->Text.size() / 2)) {
      Compact();
    }
  } else {
    const Entry entry{sectionIndex, Append(key), Append(value), {}, {}};
    const auto first = m_Tables->Order.begin() + m_Tables->Sections[sectionIndex].First;
    const auto place = FirstFrom(first, first + m_Tables->Sections[sectionIndex].Count, key,
                                 [this](std::uint32_t index) { return View(m_Tables->Entries[index].Key); });
    m_Tables->Order.insert(place, static_cast<std::uint32_t>(m_Tables->Entries.size()));
    m_Tables->Entries.push_back(entry);
    ++m_Tables->Sections[sectionIndex].Count;
    // Sections lie in m_Tables->Order in their own order, so only later ones move.
    for (std::uint32_t other = sectionIndex + 1; other < m_Tables->Sections.size(); ++other) {
      ++m_Tables->Sections[other].First;
    }
  }
  if (m_Current != k_None) {
    SetSection(String(View(m_Tables->Sections[m_Current].Name)));
  }
}

TextPlace IniFile::SectionPlace(const String& section) const {
  const std::uint32_t index = FindSection(section);
  return index == k_None ? TextPlace{} : m_Tables->Sections[index].Place;
}

IniFile::EntryView IniFile::MakeView(const Entry& entry) const {
  return {View(entry.Key), View(entry.Value), entry.KeyPlace, entry.ValuePlace};
}

bool IniFile::FindEntry(const String& section, const String& key, EntryView& entry) const {
  const std::uint32_t index = FindEntry(FindSection(section), key);
  if (index == k_None) {
    return false;
  }
  entry = MakeView(m_Tables->Entries[index]);
  return true;
}

std::vector<String> IniFile::SectionNames() const {
  std::vector<String> names;
  names.reserve(m_Tables->Sections.size());
  for (const Section& section : m_Tables->Sections) {
    names.emplace_back(View(section.Name));
  }
  return names;
}

std::vector<IniFile::EntryView> IniFile::Entries(const String& section) const {
  std::vector<EntryView> entries;
  const std::uint32_t index = FindSection(section);
  if (index != k_None) {
    const auto first = m_Tables->Order.begin() + m_Tables->Sections[index].First;
    std::vector<std::uint32_t> inFile(first, first + m_Tables->Sections[index].Count);
    std::sort(inFile.begin(), inFile.end());
    for (const std::uint32_t entry : inFile) {
      entries.push_back(MakeView(m_Tables->Entries[entry]));
    }
  }
  return entries;
}
