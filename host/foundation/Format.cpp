#include "host/foundation/Format.h"

#include "host/foundation/Path.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>

FormatString::FormatString(const Path& path) : m_Text(path.Text()) {}
FormatArgument::FormatArgument(const Path& path) : Type(Kind::Text), Text(path.Text()) {}

namespace {

// One conversion of a format: "%-08.3d".
struct Conversion {
  bool Minus = false;
  bool Plus = false;
  bool Space = false;
  bool Hash = false;
  bool Zero = false;
  int Width = 0;
  int Precision = -1;
  char Letter = 0;
  bool Fits = true;    // its "*" met fitting arguments
  std::size_t End = 0; // index behind the letter
};

class Formatter {
public:
  Formatter(std::string_view format, const FormatArgument* arguments, std::size_t count)
      : m_Format(format), m_Arguments(arguments), m_Count(count) {}

  String Run() {
    std::size_t position = 0;
    while (position < m_Format.size()) {
      const std::size_t percent = m_Format.find('%', position);
      m_Result.append(m_Format.substr(position, percent - position));
      if (percent == std::string_view::npos) {
        break;
      }
      position = Convert(percent);
    }
    return std::move(m_Result);
  }

private:
  // Writes the conversion at `start` and returns where to go on.
  std::size_t Convert(std::size_t start) {
    Conversion conversion;
    const std::size_t firstArgument = m_Used;
    if (!Read(start, conversion)) {
      m_Used = firstArgument;
      m_Result.push_back('%');
      return start + 1;
    }
    const std::string_view asWritten = m_Format.substr(start, conversion.End - start);
    switch (conversion.Letter) {
    case '%':
      m_Result.push_back('%');
      break;
    case 'n': // would write to memory: does nothing
      break;
    default:
      if (!conversion.Fits || m_Used >= m_Count || !Write(conversion, m_Arguments[m_Used])) {
        m_Result.append(asWritten);
      }
      m_Used = std::min(m_Used + 1, m_Count);
      break;
    }
    return conversion.End;
  }

  // Reads a number and leaves `position` behind it; too large ones are cut.
  int Number(std::size_t& position) const {
    int number = 0;
    while (position < m_Format.size() && m_Format[position] >= '0' && m_Format[position] <= '9') {
      number = std::min(number * 10 + (m_Format[position] - '0'), k_FormatWidthLimit);
      ++position;
    }
    return number;
  }

  // "*": the width or precision is the next argument, which is used up also
  // where it does not fit. False without a fitting one.
  bool Star(int& number) {
    if (m_Used >= m_Count) {
      return false;
    }
    const FormatArgument& argument = m_Arguments[m_Used++];
    if (argument.Type == FormatArgument::Kind::Signed) {
      number = static_cast<int>(
          std::clamp<std::int64_t>(argument.Signed, -k_FormatWidthLimit, k_FormatWidthLimit));
    } else if (argument.Type == FormatArgument::Kind::Unsigned) {
      number = static_cast<int>(std::min<std::uint64_t>(argument.Unsigned, k_FormatWidthLimit));
    } else {
      return false;
    }
    return true;
  }

  bool Read(std::size_t start, Conversion& conversion) {
    std::size_t position = start + 1;
    const auto at = [this](std::size_t index) { return index < m_Format.size() ? m_Format[index] : '\0'; };
    for (;; ++position) {
      const char c = at(position);
      if (c == '-') {
        conversion.Minus = true;
      } else if (c == '+') {
        conversion.Plus = true;
      } else if (c == ' ') {
        conversion.Space = true;
      } else if (c == '#') {
        conversion.Hash = true;
      } else if (c == '0') {
        conversion.Zero = true;
      } else {
        break;
      }
    }
    if (at(position) == '*') {
      ++position;
      conversion.Fits = Star(conversion.Width);
      if (conversion.Width < 0) {
        conversion.Minus = true;
        conversion.Width = -conversion.Width;
      }
    } else {
      conversion.Width = Number(position);
    }
    if (at(position) == '.') {
      ++position;
      if (at(position) == '*') {
        ++position;
        conversion.Fits = Star(conversion.Precision) && conversion.Fits;
        conversion.Precision = std::max(conversion.Precision, -1);
      } else {
        conversion.Precision = Number(position);
      }
    }
    // Length modifiers say nothing here: arguments know their own type.
    while (position < m_Format.size() && std::strchr("hlLqjzt", m_Format[position]) != nullptr &&
           m_Format[position] != '\0') {
      ++position;
    }
    conversion.Letter = at(position);
    conversion.End = position + 1;
    return conversion.Letter != '\0' && std::strchr("diouxXcsfFeEgGaAn%", conversion.Letter) != nullptr;
  }

  bool Write(const Conversion& conversion, const FormatArgument& argument) {
    switch (conversion.Letter) {
    case 's':
      return argument.Type == FormatArgument::Kind::Text && WriteText(conversion, argument.Text);
    case 'c':
      return WriteCharacter(conversion, argument);
    case 'd':
    case 'i':
      return WriteInteger(conversion, argument, true);
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      return WriteInteger(conversion, argument, false);
    default:
      return WriteDecimal(conversion, argument);
    }
  }

  bool WriteText(const Conversion& conversion, std::string_view text) {
    if (conversion.Precision >= 0) {
      text = text.substr(0, static_cast<std::size_t>(conversion.Precision));
    }
    const auto width = static_cast<std::size_t>(conversion.Width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    if (!conversion.Minus) {
      m_Result.append(padding, ' ');
    }
    m_Result.append(text);
    if (conversion.Minus) {
      m_Result.append(padding, ' ');
    }
    return true;
  }

  bool WriteCharacter(const Conversion& conversion, const FormatArgument& argument) {
    char character = 0;
    if (argument.Type == FormatArgument::Kind::Signed) {
      character = static_cast<char>(argument.Signed);
    } else if (argument.Type == FormatArgument::Kind::Unsigned) {
      character = static_cast<char>(argument.Unsigned);
    } else {
      return false;
    }
    Conversion plain = conversion;
    plain.Precision = -1;
    return WriteText(plain, std::string_view(&character, 1));
  }

  // The library's own printf with a format that we wrote: no byte of it comes
  // from outside, and width and precision are bounded.
  template <typename Value> bool Print(const Conversion& conversion, const char* length, Value value) {
    std::string format = "%";
    format += conversion.Minus ? "-" : "";
    format += conversion.Plus ? "+" : "";
    format += conversion.Space ? " " : "";
    format += conversion.Hash ? "#" : "";
    format += conversion.Zero ? "0" : "";
    format += conversion.Precision >= 0 ? "*.*" : "*";
    format += length;
    format += conversion.Letter;
    std::array<char, 2 * k_FormatWidthLimit + 512> buffer; // 2^1023 has 309 digits
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int written =
        conversion.Precision >= 0
            ? std::snprintf(buffer.data(), buffer.size(), format.c_str(), conversion.Width,
                            conversion.Precision, value)
            : std::snprintf(buffer.data(), buffer.size(), format.c_str(), conversion.Width, value);
#pragma GCC diagnostic pop
    if (written < 0) {
      return false;
    }
    m_Result.append(buffer.data(), std::min(static_cast<std::size_t>(written), buffer.size() - 1));
    return true;
  }

  bool WriteInteger(const Conversion& conversion, const FormatArgument& argument, bool asSigned) {
    if (argument.Type != FormatArgument::Kind::Signed && argument.Type != FormatArgument::Kind::Unsigned) {
      return false;
    }
    if (asSigned && argument.Type == FormatArgument::Kind::Signed) {
      return Print(conversion, "ll", static_cast<long long>(argument.Signed));
    }
    std::uint64_t value = argument.Unsigned;
    if (argument.Type == FormatArgument::Kind::Signed) {
      value = static_cast<std::uint64_t>(argument.Signed);
      if (argument.Width < sizeof(value)) {
        value &= (std::uint64_t{1} << (8 * argument.Width)) - 1; // as the argument's own type holds it
      }
    }
    Conversion unsignedForm = conversion;
    if (asSigned) {
      unsignedForm.Letter = 'u';
    }
    return Print(unsignedForm, "ll", static_cast<unsigned long long>(value));
  }

  bool WriteDecimal(const Conversion& conversion, const FormatArgument& argument) {
    return argument.Type == FormatArgument::Kind::Decimal && Print(conversion, "", argument.Decimal);
  }

  std::string_view m_Format;
  const FormatArgument* m_Arguments;
  std::size_t m_Count;
  std::size_t m_Used = 0;
  String m_Result;
};

} // namespace

String FormatArguments(FormatString format, const FormatArgument* arguments, std::size_t count) {
  return Formatter(format.Text(), arguments, count).Run();
}
