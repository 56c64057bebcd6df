#pragma once

#include "host/foundation/String.h"

#include <concepts>
#include <cstdint>
#include <string_view>

class Path;

/// A text that SFormat reads as printf-style format. It only points at the
/// text, so it must not outlive the expression that it is made in.
class FormatString {
public:
  FormatString(const char* text) : m_Text(text == nullptr ? "" : text) {}
  FormatString(const std::string& text) : m_Text(text) {}
  FormatString(const String& text) : m_Text(text) {}
  FormatString(const Path& path);

  std::string_view Text() const { return m_Text; }

private:
  std::string_view m_Text;
};

/// One argument of SFormat, with the type that it really has.
struct FormatArgument {
  enum class Kind { Signed, Unsigned, Decimal, Text };

  template <std::signed_integral T>
  FormatArgument(T value) : Type(Kind::Signed), Width(sizeof(T)), Signed(value) {}
  template <std::unsigned_integral T>
  FormatArgument(T value) : Type(Kind::Unsigned), Width(sizeof(T)), Unsigned(value) {}
  template <std::floating_point T>
  FormatArgument(T value) : Type(Kind::Decimal), Decimal(static_cast<double>(value)) {}
  FormatArgument(std::string_view text) : Type(Kind::Text), Text(text) {}
  FormatArgument(const std::string& text) : Type(Kind::Text), Text(text) {}
  FormatArgument(const char* text) : Type(Kind::Text), Text(text == nullptr ? "" : text) {}
  FormatArgument(const Path& path);

  Kind Type;
  std::size_t Width = 0; ///< bytes of an integer argument
  std::int64_t Signed = 0;
  std::uint64_t Unsigned = 0;
  double Decimal = 0;
  std::string_view Text;
};

/// The largest field width or precision that SFormat honours; larger ones are
/// cut to it. No file name or message needs more, and a hostile
/// "%999999999d" costs a kilobyte instead of the machine's memory.
constexpr int k_FormatWidthLimit = 1024;

/// Formats `count` arguments by a printf-style format that may come from a
/// stranger. It never reads an argument that it was not given. A conversion
/// that is unknown, does not fit its arguments (which it uses up) or has no
/// argument left is copied as it stands; "%n" does nothing, "%%" gives "%".
/// Length modifiers say nothing: an argument has the width of its own type.
String FormatArguments(FormatString format, const FormatArgument* arguments, std::size_t count);

/// The same with the arguments written out: SFormat("shot_%04d.pov", 12).
template <typename... Arguments> String SFormat(FormatString format, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return FormatArguments(format, nullptr, 0);
  } else {
    const FormatArgument packed[] = {FormatArgument(arguments)...};
    return FormatArguments(format, packed, sizeof...(Arguments));
  }
}
