#include "bench/limits/Limits.h"

#include <dirent.h>

#include <charconv>
#include <unordered_set>

namespace bench {
namespace {

void appendName(std::string& text, std::string_view head, std::string_view tail, std::size_t digits,
                int frame) {
  char number[16];
  const char* end = std::to_chars(number, number + sizeof(number), frame).ptr;
  const auto length = static_cast<std::size_t>(end - number);
  text.append(head).append(length < digits ? digits - length : 0, '0').append(number, length).append(tail);
}

} // namespace

std::string namesLimit(std::string_view head, std::string_view tail, std::size_t digits, int first,
                       int last) {
  std::string names;
  for (int frame = first; frame <= last; ++frame) {
    if (!names.empty()) {
      names += ' ';
    }
    appendName(names, head, tail, digits, frame);
  }
  return names;
}

std::string lineLimit(std::string_view number, std::string_view quotedPath, std::string_view base,
                      int count) {
  std::string line;
  for (int i = 0; i < count; ++i) {
    line.append(" -w ")
        .append(number)
        .append(" -s ")
        .append(quotedPath)
        .append(" -o ")
        .append(base)
        .append(".png");
  }
  return line;
}

int missingLimit(const std::string& directory, std::string_view head, std::string_view tail,
                 std::size_t digits, int frames) {
  std::unordered_set<std::string> there;
  DIR* const folder = opendir(directory.c_str());
  while (const dirent* entry = readdir(folder)) {
    there.insert(entry->d_name);
  }
  closedir(folder);
  int missing = 0;
  std::string name;
  for (int frame = 1; frame <= frames; ++frame) {
    name.clear();
    appendName(name, head, tail, digits, frame);
    missing += there.contains(name) ? 0 : 1;
  }
  return missing;
}

} // namespace bench
