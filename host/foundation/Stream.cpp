#include "host/foundation/Stream.h"

#include "host/foundation/Exception.h"

#include <cstring>
#include <limits>

namespace {

template <typename Value> void PutLittleEndian(std::string& bytes, Value value) {
  for (std::size_t i = 0; i < sizeof(Value); ++i) {
    bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFFU));
  }
}

template <typename Value> Value FromLittleEndian(std::string_view bytes) {
  Value value = 0;
  for (std::size_t i = 0; i < sizeof(Value); ++i) {
    value |= static_cast<Value>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  }
  return value;
}

} // namespace

void OutStream::Put(unsigned char value) {
  m_Bytes.push_back(static_cast<char>(value));
}
void OutStream::Put(signed char value) {
  m_Bytes.push_back(static_cast<char>(value));
}
void OutStream::Put(unsigned int value) {
  PutLittleEndian(m_Bytes, value);
}
void OutStream::Put(int value) {
  PutLittleEndian(m_Bytes, static_cast<unsigned int>(value));
}
void OutStream::Put(std::uint64_t value) {
  PutLittleEndian(m_Bytes, value);
}

void OutStream::Put(const String& text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    RaiseException("OutStream::Put", k_ErrorStream, "a text of 4 GiB or more does not fit a stream");
  }
  Put(static_cast<unsigned int>(text.size()));
  m_Bytes.append(text);
}

void OutStream::Put(const Path& path) {
  Put(path.Text());
}

void OutStream::PutBytes(const void* bytes, std::size_t count) {
  m_Bytes.append(static_cast<const char*>(bytes), count);
}

std::string_view InStream::Take(std::size_t count) {
  if (count > Left()) {
    RaiseException("InStream::Get", k_ErrorStream,
                   "the stream ends early: " + std::to_string(count) + " bytes wanted at " +
                       std::to_string(m_Position) + ", " + std::to_string(Left()) + " left");
  }
  const std::string_view taken = m_Bytes.substr(m_Position, count);
  m_Position += count;
  return taken;
}

void InStream::Get(unsigned char& value) {
  value = static_cast<unsigned char>(Take(1)[0]);
}
void InStream::Get(signed char& value) {
  value = static_cast<signed char>(Take(1)[0]);
}
void InStream::Get(unsigned int& value) {
  value = FromLittleEndian<unsigned int>(Take(sizeof(value)));
}

void InStream::Get(int& value) {
  unsigned int bits = 0;
  Get(bits);
  value = static_cast<int>(bits);
}

void InStream::Get(std::uint64_t& value) {
  value = FromLittleEndian<std::uint64_t>(Take(sizeof(value)));
}

void InStream::Get(String& text) {
  const std::size_t start = m_Position;
  unsigned int length = 0;
  Get(length);
  if (length > Left()) {
    m_Position = start;
    RaiseException("InStream::Get", k_ErrorStream,
                   "the stream ends early: a text of " + std::to_string(length) + " bytes at " +
                       std::to_string(start) + ", " + std::to_string(Left() - sizeof(length)) + " left");
  }
  text = String(Take(length));
}

void InStream::Get(Path& path) {
  String text;
  Get(text);
  path = Path(text);
}

void InStream::GetBytes(void* bytes, std::size_t count) {
  const std::string_view taken = Take(count);
  if (count > 0) {
    std::memcpy(bytes, taken.data(), count);
  }
}
