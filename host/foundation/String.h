#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// The host's text: bytes, UTF-8 by convention, never validated or altered.
///
/// It is a std::string with the few operations that every part of the host
/// shares. It derives publicly, so all of the standard library's text
/// functions take it; it adds no data, so slicing to std::string loses nothing.
class String : public std::string {
public:
  /// The empty text.
  static const String Null;

  String() = default;
  String(const char* text) : std::string(text == nullptr ? "" : text) {}
  String(const char* text, std::size_t length) : std::string(text, length) {}
  String(std::size_t count, char fill) : std::string(count, fill) {}
  String(std::string text) : std::string(std::move(text)) {}
  explicit String(std::string_view text) : std::string(text) {}

  /// Removes white space (by the global locale's classification) from both
  /// ends, in place, and returns this text.
  String& Trim();

  /// The truth of a text: yes, true, on, y, t and 1 are true in any case and
  /// with blanks around them; everything else is false.
  bool Bool() const;

  /// A copy in which A to Z became a to z (or the reverse). Bytes beyond ASCII
  /// are left alone, so the result never depends on a locale.
  String Lower() const;
  String Upper() const;

  /// Order and equality without regard to the case of ASCII letters.
  static int CompareNoCase(std::string_view left, std::string_view right);
  static bool EqualNoCase(std::string_view left, std::string_view right);

  /// A number that orders texts as CompareNoCase does, as far as it tells them
  /// apart: it holds their first eight bytes. For sorting and searching.
  static std::uint64_t NoCasePrefix(std::string_view text);

  /// The order of the host's maps whose keys match in any case.
  struct ciless {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const {
      return CompareNoCase(left, right) < 0;
    }
  };
};

// Eight bytes in lower case at once, the first one on top; behind the end are
// bytes 0. Here, since names are sorted and searched by it.
__attribute__((always_inline)) inline std::uint64_t String::NoCasePrefix(std::string_view text) {
  static_assert(std::endian::native == std::endian::little);
  constexpr std::uint64_t k_Each = 0x0101010101010101;
  const std::size_t size = text.size();
  const auto byteAt = [text](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(text[i])}; };
  std::uint64_t bytes = 0;
  if (size >= sizeof(bytes)) {
    std::memcpy(&bytes, text.data(), sizeof(bytes));
  } else if (size >= sizeof(std::uint32_t)) {
    // The first four and the last four: what both hold is the same.
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::memcpy(&first, text.data(), sizeof(first));
    std::memcpy(&last, text.data() + size - sizeof(last), sizeof(last));
    bytes = first | std::uint64_t{last} << 8 * (size - sizeof(last));
  } else if (size > 0) {
    bytes = byteAt(0) | byteAt(size / 2) << 8 * (size / 2) | byteAt(size - 1) << 8 * (size - 1);
  }
  // The top bit of a byte tells whether it is from A on, and beyond Z; both
  // sums stay within their bytes, as bytes beyond ASCII are left out.
  const std::uint64_t ascii = bytes & 0x7F * k_Each;
  const std::uint64_t fromA = ascii + (0x80 - 'A') * k_Each;
  const std::uint64_t beyondZ = ascii + (0x80 - 'Z' - 1) * k_Each;
  const std::uint64_t upper = fromA & ~beyondZ & ~bytes & 0x80 * k_Each;
  return __builtin_bswap64(bytes | upper >> 2);
}

String operator+(const String& left, const String& right);

// clang-format off
// Release 14 of the formatter does not know concepts.

/// What can be joined to a String: another kind of text, or one byte.
template <typename T>
concept TextOrByte =
    std::same_as<std::remove_cvref_t<T>, char> || std::convertible_to<T, std::string_view>;

/// Whether exactly one of two types is String.
template <typename Left, typename Right>
concept OneIsString =
    std::same_as<std::remove_cvref_t<Left>, String> != std::same_as<std::remove_cvref_t<Right>, String>;

/// Joins a String and something else to a String. Without it the standard
/// library's operators would compete with the one above for every mixture.
template <TextOrByte Left, TextOrByte Right>
  requires OneIsString<Left, Right>
String operator+(Left&& left, Right&& right) {
  const auto viewOf = [](const auto& part) {
    if constexpr (std::same_as<std::remove_cvref_t<decltype(part)>, char>) {
      return std::string_view(&part, 1);
    } else {
      return std::string_view(part);
    }
  };
  const std::string_view first = viewOf(left);
  const std::string_view second = viewOf(right);
  String result;
  result.reserve(first.size() + second.size());
  result.append(first).append(second);
  return result;
}

// clang-format on
