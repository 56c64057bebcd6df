#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
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
  /// apart: it holds their first eight bytes. For sorting.
  static std::uint64_t NoCasePrefix(std::string_view text);

  /// The order of the host's maps whose keys match in any case.
  struct ciless {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const {
      return CompareNoCase(left, right) < 0;
    }
  };
};

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
  String result;
  const auto append = [&result](const auto& part) {
    if constexpr (std::same_as<std::remove_cvref_t<decltype(part)>, char>) {
      result.push_back(part);
    } else {
      result.append(std::string_view(part));
    }
  };
  append(left);
  append(right);
  return result;
}

// clang-format on
