#include "bench/limits/Limits.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

namespace bench {
namespace {

std::string_view trimmed(const char* begin, const char* end) {
  while (begin < end && (*begin == ' ' || *begin == '\t')) {
    ++begin;
  }
  while (begin < end && (end[-1] == ' ' || end[-1] == '\t' || end[-1] == '\r')) {
    --end;
  }
  return {begin, static_cast<std::size_t>(end - begin)};
}

const char* findIn(const char* begin, const char* end, char byte) {
  return static_cast<const char*>(std::memchr(begin, byte, static_cast<std::size_t>(end - begin)));
}

} // namespace

LoadingLimit::LoadingLimit(const std::string& directory) {
  DIR* list = opendir(directory.c_str());
  while (const dirent* entry = readdir(list)) {
    if (std::string_view(entry->d_name).ends_with(".tvx")) {
      files_.push_back(read(dirfd(list), entry->d_name));
    }
  }
  closedir(list);
}

LoadingLimit::File LoadingLimit::read(int directory, const char* name) {
  static char buffer[65536]; // larger than any file here
  const int descriptor = openat(directory, name, O_RDONLY | O_CLOEXEC);
  const ssize_t got = ::read(descriptor, buffer, sizeof(buffer));
  close(descriptor);
  const std::size_t size = got > 0 ? static_cast<std::size_t>(got) : 0;
  File file;
  file.bytes.reset(new char[size + 1]);
  std::memcpy(file.bytes.get(), buffer, size);
  file.bytes[size] = '\n';
  file.sections.reserve(8);
  file.entries.reserve(48);
  const char* const end = file.bytes.get() + size;
  for (const char* line = file.bytes.get(); line < end;) {
    const char* lineEnd = findIn(line, end + 1, '\n');
    const std::string_view text = trimmed(line, lineEnd);
    line = lineEnd + 1;
    if (text.empty() || text.front() == ';' || text.front() == '#') {
      continue;
    }
    const char* textEnd = text.data() + text.size();
    if (text.front() == '[') {
      if (const char* close = findIn(text.data(), textEnd, ']')) {
        file.sections.emplace_back(trimmed(text.data() + 1, close), file.entries.size());
      }
    } else if (const char* equals = findIn(text.data(), textEnd, '=')) {
      file.entries.emplace_back(trimmed(text.data(), equals), trimmed(equals + 1, textEnd));
    }
  }
  return file;
}

std::size_t LoadingLimit::sections() const {
  std::size_t count = 0;
  for (const File& file : files_) {
    count += file.sections.size();
  }
  return count;
}

std::size_t LoadingLimit::entries() const {
  std::size_t count = 0;
  for (const File& file : files_) {
    count += file.entries.size();
  }
  return count;
}

} // namespace bench
