#include "host/application/HashName.h"

#include "host/foundation/Format.h"

#include <cstdint>

String HashName(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  }
  return SFormat("%016llx", static_cast<unsigned long long>(hash));
}
