#pragma once

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

/// Calls `visit(name, type)` for every entry that may be a file: directories and
/// with them "." and ".." are left out. A byte 0 follows each name. False when the
/// directory cannot be read, or once `visit` gives it.
template <typename Visit> bool VisitEntries(int directory, Visit visit) {
  constexpr std::size_t k_ReadSize = 64 << 10;
  alignas(dirent64) char buffer[k_ReadSize];
  for (;;) {
    const long size = syscall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (size <= 0) {
      return size == 0;
    }
    for (long position = 0; position < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + position);
      position += entry->d_reclen;
      if (entry->d_type != DT_DIR && !visit(std::string_view(entry->d_name), entry->d_type)) {
        return false;
      }
    }
  }
}

/// Whether only the system knows what an entry of that type stands for.
inline bool NeedsAsking(unsigned char type) {
  return type == DT_LNK || type == DT_UNKNOWN;
}
