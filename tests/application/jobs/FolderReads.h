#pragma once

#include "host/foundation/Descriptor.h"
#include "host/foundation/Path.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

/// How often a folder was opened for reading since the last question, as the
/// system tells it. Throws where it does not.
class FolderReads {
public:
  explicit FolderReads(const Path& folder) : m_Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    // With the ends: openings that follow each other would be joined to one.
    if (inotify_add_watch(m_Descriptor.Number(), folder.c_str(), IN_OPEN | IN_CLOSE | IN_ONLYDIR) < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot watch " + folder.Text());
    }
  }
  int Count() {
    int count = 0;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = read(m_Descriptor.Number(), buffer.data(), buffer.size())) > 0;) {
      for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
        inotify_event event{};
        std::memcpy(&event, buffer.data() + at, sizeof event);
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
          throw std::runtime_error("too many folders were opened");
        }
        count += (event.mask & IN_OPEN) != 0 && event.len == 0 ? 1 : 0;
        at += sizeof event + event.len;
      }
    }
    return count;
  }

private:
  Descriptor m_Descriptor;
};
