#pragma once

#include <locale>

/// Lower case as an old single-byte code page has it.
class CodePageCase : public std::ctype<char> {
protected:
  char do_tolower(char byte) const override {
    const auto value = static_cast<unsigned char>(byte);
    return value >= 0xC0 && value <= 0xDE ? static_cast<char>(value + 0x20)
                                          : std::ctype<char>::do_tolower(byte);
  }
};
