#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// Appends values to a stream of bytes: little-endian integers of fixed width;
/// texts and paths as a 32-bit length and their bytes.
class OutStream {
public:
  void Put(unsigned char value);
  void Put(signed char value);
  void Put(unsigned int value);
  void Put(int value);
  void Put(std::uint64_t value);
  /// A text of 4 GiB or more raises Exception*.
  void Put(const String& text);
  void Put(const Path& path);
  void PutBytes(const void* bytes, std::size_t count);

  const std::string& Bytes() const { return m_Bytes; }

private:
  std::string m_Bytes;
};

/// Reads the values back in their order. Every Get checks what is left and
/// raises Exception* at an early end, leaving its argument as it was; a length
/// larger than the rest of the stream allocates nothing. The bytes must
/// outlive the stream.
class InStream {
public:
  explicit InStream(std::string_view bytes) : m_Bytes(bytes) {}

  void Get(unsigned char& value);
  void Get(signed char& value);
  void Get(unsigned int& value);
  void Get(int& value);
  void Get(std::uint64_t& value);
  void Get(String& text);
  void Get(Path& path);
  void GetBytes(void* bytes, std::size_t count);

  std::size_t Left() const { return m_Bytes.size() - m_Position; }
  bool AtEnd() const { return Left() == 0; }

private:
  std::string_view Take(std::size_t count);

  std::string_view m_Bytes;
  std::size_t m_Position = 0;
};
