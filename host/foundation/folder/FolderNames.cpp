#include "host/foundation/folder/FolderNames.h"

#include "host/foundation/folder/FolderEntries.h"

#include <sys/random.h>

#include <bit>
#include <charconv>
#include <cstring>

namespace {

std::uint64_t Load(const char* bytes, std::size_t size) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, size);
  return word;
}

std::uint64_t Mix(std::uint64_t left, std::uint64_t right) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(left) * right;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t HashSeed() {
  static const std::uint64_t seed = [] {
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof(random), GRND_NONBLOCK) != sizeof(random)) {
      random = reinterpret_cast<std::uintptr_t>(&random);
    }
    return random | 1;
  }();
  return seed;
}

std::size_t Hash(std::string_view name, std::uint64_t seed) {
  constexpr std::uint64_t k_Odd = 0x9e3779b97f4a7c15;
  std::uint64_t hash = seed ^ name.size();
  while (name.size() > 8) {
    hash = Mix(hash ^ Load(name.data(), 8), seed ^ k_Odd);
    name.remove_prefix(8);
  }
  return Mix(hash ^ Load(name.data(), name.size()), seed ^ ~k_Odd);
}

} // namespace

NumberedName::NumberedName(std::string_view name) {
  constexpr std::string_view k_Digits = "0123456789";
  const std::size_t last = name.find_last_of(k_Digits);
  if (last != std::string_view::npos) {
    const std::size_t start = name.find_last_not_of(k_Digits, last) + 1; // npos + 1 is 0
    Head = name.substr(0, start);
    Digits = name.substr(start, last + 1 - start);
    Tail = name.substr(last + 1);
  }
}

String NumberedName::Beside(std::int64_t distance) const {
  constexpr std::size_t k_MostDigits = 9;
  std::int64_t number = 0;
  if (Digits.empty() || Digits.size() > k_MostDigits) {
    return {};
  }
  std::from_chars(Digits.data(), Digits.data() + Digits.size(), number);
  number += distance;
  const std::string text = std::to_string(number);
  if (number < 0 || text.size() > k_MostDigits) {
    return {};
  }
  String name(Head);
  name.append(text.size() < Digits.size() ? Digits.size() - text.size() : 0, '0').append(text).append(Tail);
  return name;
}

NameTable::NameTable() : m_Seed(HashSeed()) {}

bool NameTable::Read(int directory, std::string_view model) {
  m_Sequence = SequenceBits(model);
  const bool whole = VisitEntries(directory, [this](std::string_view name, unsigned char type) {
    if (!NeedsAsking(type) && m_Sequence.Add(name)) {
      return true;
    }
    const auto head = static_cast<std::uint16_t>(name.size() | (NeedsAsking(type) ? k_AskBit : 0U));
    m_Names.append(reinterpret_cast<const char*>(&head), sizeof(head)).append(name);
    ++m_Count;
    return m_Names.size() <= k_NamesLimit;
  });
  if (whole) {
    FillSlots();
  } else {
    *this = NameTable();
  }
  return whole;
}

NameTable::Answer NameTable::Find(std::string_view name) const {
  if (m_Sequence.Contains(name)) {
    return Answer::Yes;
  }
  for (std::size_t slot = Hash(name, m_Seed) & m_Mask; m_Slots[slot] != k_Free; slot = (slot + 1) & m_Mask) {
    const unsigned int head = Head(m_Slots[slot]);
    if (Name(m_Slots[slot], head) == name) {
      return (head & k_AskBit) != 0 ? Answer::Ask : Answer::Yes;
    }
  }
  return Answer::No;
}

unsigned int NameTable::Head(std::uint32_t place) const {
  return static_cast<unsigned int>(Load(m_Names.data() + place, sizeof(std::uint16_t)));
}

void NameTable::FillSlots() {
  m_Slots.assign(std::bit_ceil(2 * m_Count + 1), k_Free);
  m_Mask = m_Slots.size() - 1;
  for (std::uint32_t place = 0; place < m_Names.size();) {
    const std::string_view name = Name(place, Head(place));
    std::size_t slot = Hash(name, m_Seed) & m_Mask;
    while (m_Slots[slot] != k_Free) {
      slot = (slot + 1) & m_Mask;
    }
    m_Slots[slot] = place;
    place += static_cast<std::uint32_t>(sizeof(std::uint16_t) + name.size());
  }
}
