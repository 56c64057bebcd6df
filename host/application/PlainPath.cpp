#include "host/application/PlainPath.h"

#include "host/application/Excerpt.h"
#include "host/application/HashName.h"
#include "host/foundation/Exception.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void Fail(const String& message, int reason = 0) {
  RaiseException("PlainPath", k_ErrorSystem, message, reason);
}

// Where the last component with such a letter ends; 0 for none.
std::size_t EndOfRefused(std::string_view path, const NameLetters& refused) {
  std::size_t last = 0;
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (refused.FindIn(path.substr(begin, end - begin)) != std::string_view::npos) {
      last = end;
    }
    begin = end + 1;
  }
  return last;
}

// Others may write into the folder of temporary files: what they made there in
// our name is not used.
void MakeOwnFolder(const Path& folder) {
  struct stat status {};
  if ((mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) || lstat(folder.c_str(), &status) != 0) {
    Fail("cannot make the folder " + folder.Text() + " for links", errno);
  }
  if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    Fail("the folder " + folder.Text() +
         " for links is not of this user alone; remove it, or set TMPDIR to another place");
  }
}

bool LeadsTo(const Path& link, const String& target) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = readlink(link.c_str(), buffer.data(), buffer.size());
  return length >= 0 && std::string_view(buffer.data(), static_cast<std::size_t>(length)) == target;
}

void MakeLink(const Path& link, const String& target) {
  static std::atomic<unsigned> s_Counter{0};
  if (LeadsTo(link, target)) {
    return;
  }
  // Beside it and renamed, so that nobody finds it missing.
  const Path made(link.Text() + ".new-" + std::to_string(getpid()) + "-" + std::to_string(s_Counter++));
  if (symlink(target.c_str(), made.c_str()) != 0 || rename(made.c_str(), link.c_str()) != 0) {
    const int reason = errno;
    unlink(made.c_str());
    Fail("cannot make the link " + link.Text() + " to " + Shown(target), reason);
  }
}

} // namespace

Path PlainPath(const Path& path, const NameLetters& refused) {
  const String& text = path.Text();
  const std::size_t end = EndOfRefused(text, refused);
  if (end == 0) {
    return path;
  }
  if (!path.IsAbsolute()) {
    Fail("PlainPath needs a full path, not \"" + Shown(text) + "\"");
  }
  const String target = text.substr(0, end);
  String name = HashName(target);
  if (const String extension = Path(target).Extension();
      end == text.size() && !extension.empty() && refused.FindIn(extension) == String::npos) {
    name += "." + extension;
  }
  const char* configured = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): nobody sets it
  for (const char* temporary : {configured, "/tmp"}) {
    if (temporary == nullptr || *temporary != '/') {
      continue;
    }
    Path folder(temporary);
    folder /= "trovik-" + std::to_string(geteuid());
    Path link = folder;
    link /= name;
    if (EndOfRefused(link.Text(), refused) == 0) {
      MakeOwnFolder(folder);
      MakeLink(link, target);
      return link.Text() + text.substr(end);
    }
  }
  Fail("no name of a link in /tmp would do without the letters of PlainPath");
}
