#include "bench/limits/Limits.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstring>

namespace bench {
namespace {

// The frame that a name stands for, or -1.
long frameOf(std::string_view name, std::string_view head, std::string_view tail, std::size_t digits) {
  if (name.size() < head.size() + digits + tail.size() || !name.starts_with(head) || !name.ends_with(tail)) {
    return -1;
  }
  const char* end = name.data() + name.size() - tail.size();
  long frame = -1;
  const auto result = std::from_chars(name.data() + head.size(), end, frame);
  return result.ptr == end && frame >= 0 && frame < (1 << 26) ? frame : -1;
}

} // namespace

std::pair<int, int> sequenceLimit(const std::string& directory, std::string_view head, std::string_view tail,
                                  std::size_t digits, int frame) {
  alignas(dirent64) static char buffer[65536];
  static std::vector<std::uint64_t> bits;
  bits.clear();
  const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (long size = 0; (size = syscall(SYS_getdents64, descriptor, buffer, sizeof(buffer))) > 0;) {
    for (long place = 0; place < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + place);
      place += entry->d_reclen;
      const long found = frameOf(entry->d_name, head, tail, digits);
      if (found >= 0) {
        const auto word = static_cast<std::size_t>(found) / 64;
        if (word >= bits.size()) {
          bits.resize(2 * word + 64);
        }
        bits[word] |= std::uint64_t{1} << (found % 64);
      }
    }
  }
  close(descriptor);
  const auto exists = [](int number) {
    const auto word = static_cast<std::size_t>(number) / 64;
    return number >= 0 && word < bits.size() && (bits[word] >> (number % 64) & 1) != 0;
  };
  std::pair<int, int> range(frame, frame);
  while (exists(range.first - 1)) {
    --range.first;
  }
  while (exists(range.second + 1)) {
    ++range.second;
  }
  return range;
}

std::pair<int, int> probingLimit(const std::string& directory, std::string_view head, std::string_view tail,
                                 std::size_t digits, int frame) {
  const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::string name;
  const auto exists = [&](int number) {
    char text[16];
    const char* end = std::to_chars(text, text + sizeof(text), number).ptr;
    const auto length = static_cast<std::size_t>(end - text);
    name.assign(head).append(length < digits ? digits - length : 0, '0').append(text, length).append(tail);
    return faccessat(descriptor, name.c_str(), F_OK, 0) == 0;
  };
  std::pair<int, int> range(frame, frame);
  while (range.first > 0 && exists(range.first - 1)) {
    --range.first;
  }
  while (exists(range.second + 1)) {
    ++range.second;
  }
  close(descriptor);
  return range;
}

} // namespace bench
