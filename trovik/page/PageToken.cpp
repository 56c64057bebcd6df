#include "trovik/page/PageToken.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/WriteFile.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>

namespace trovik {
namespace {

constexpr std::size_t secretBytes = 32;

/// The token of before; empty where there is none that only this user knows.
std::string keptToken(const Path& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat facts {};
  std::array<char, 2 * secretBytes> text{};
  if (fstat(descriptor.Number(), &facts) != 0 || !S_ISREG(facts.st_mode) || facts.st_uid != geteuid() ||
      (facts.st_mode & 077U) != 0 || facts.st_size != text.size() + 1 ||
      read(descriptor.Number(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      !std::all_of(text.begin(), text.end(),
                   [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); })) {
    return {};
  }
  return {text.data(), text.size()};
}

} // namespace

std::string pageToken(const Path& directory) {
  Path file = directory;
  file /= "page-token";
  if (std::string kept = keptToken(file); !kept.empty()) {
    return kept;
  }
  std::string bytes(secretBytes, '\0');
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw UsageError{"the system has no random numbers for the page's address", ""};
  }
  std::string token = HexOf(bytes);
  unlink(file.c_str()); // a link is not followed, and what others may read stays with them
  FileDraft draft(file, Existing::Keep, 0600);
  draft.Write(token + '\n');
  if (const int error = draft.Publish(); error != 0) {
    if (std::string kept = keptToken(file); error == EEXIST && !kept.empty()) {
      return kept; // another page was faster
    }
    throw UsageError{"cannot write " + inQuotes(file.Text()) + ": " +
                         std::error_code(error, std::generic_category()).message(),
                     "the page's address is kept there"};
  }
  return token;
}

} // namespace trovik
