// A file server that is gone, for programs that load this first (LD_PRELOAD):
// while the file HANGING_WHILE exists, calls that ask about paths below
// HANGING_FOLDER do not return.

#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

void waitForServer(const char* path) {
  const char* const folder = std::getenv("HANGING_FOLDER");
  const char* const flag = std::getenv("HANGING_WHILE");
  if (folder == nullptr || flag == nullptr || path == nullptr ||
      !std::string_view(path).starts_with(folder)) {
    return;
  }
  while (syscall(SYS_faccessat, AT_FDCWD, flag, F_OK) == 0) {
    const timespec moment{0, 20'000'000};
    nanosleep(&moment, nullptr);
  }
}

template <typename Function> Function* realOne(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

#define ASKING(name, facts)                                                                                  \
  int name(const char* path, facts to) {                                                                     \
    static const auto real = realOne<int(const char*, facts)>(#name);                                        \
    waitForServer(path);                                                                                     \
    return real(path, to);                                                                                   \
  }
#define ASKING_AT(name, facts)                                                                               \
  int name(int folder, const char* path, facts to, int flags) {                                              \
    static const auto real = realOne<int(int, const char*, facts, int)>(#name);                              \
    waitForServer(path);                                                                                     \
    return real(folder, path, to, flags);                                                                    \
  }
#define OPENING(name)                                                                                        \
  int name(const char* path, int flags, ...) {                                                               \
    static const auto real = realOne<int(const char*, int, ...)>(#name);                                     \
    va_list rest;                                                                                            \
    va_start(rest, flags);                                                                                   \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;                     \
    va_end(rest);                                                                                            \
    waitForServer(path);                                                                                     \
    return real(path, flags, mode);                                                                          \
  }

ASKING(stat, struct stat*)
ASKING(stat64, struct stat64*)
ASKING(lstat, struct stat*)
ASKING(lstat64, struct stat64*)
ASKING(statvfs, struct statvfs*)
ASKING(statvfs64, struct statvfs64*)
ASKING_AT(fstatat, struct stat*)
ASKING_AT(fstatat64, struct stat64*)
OPENING(open)
OPENING(open64)

int access(const char* path, int mode) {
  static const auto real = realOne<int(const char*, int)>("access");
  waitForServer(path);
  return real(path, mode);
}
}
#pragma GCC visibility pop
