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

std::string lineLimit(std::string_view line, std::string_view width, std::string_view scene) {
  std::string text;
  for (std::size_t position = 0;;) {
    const std::size_t start = line.find("$(", position);
    text.append(line.substr(position, start - position));
    if (start == std::string_view::npos) {
      return text;
    }
    const std::size_t end = line.find(')', start);
    const std::string_view name = line.substr(start + 2, end - start - 2);
    if (name == "Width") {
      text.append(width);
    } else if (name == "Scene.Enquote") {
      text += '"';
      for (const char c : scene) {
        if (c == '"' || c == '\\' || c == '$' || c == '`') {
          text += '\\';
        }
        text += c;
      }
      text += '"';
    } else if (name == "Scene.Base") {
      const std::string_view leaf = scene.substr(scene.rfind('/') + 1);
      text.append(leaf.substr(0, leaf.rfind('.')));
    }
    position = end + 1;
  }
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
