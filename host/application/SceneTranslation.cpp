#include "host/application/SceneTranslation.h"

#include "host/application/Application.h"
#include "host/application/HashName.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WriteFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>

namespace {

constexpr std::size_t k_BinaryProbe = 8192;
constexpr std::size_t k_SizeLimit = std::size_t{256} << 20;

// The bytes of a regular file within the limit. O_NONBLOCK: a named pipe in
// the place of a scene must not hang the work.
std::optional<std::string> ReadRegular(const Path& file) {
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (descriptor.Number() < 0 || fstat(descriptor.Number(), &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<std::size_t>(status.st_size) > k_SizeLimit) {
    return std::nullopt;
  }
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t used = 0;
  while (used < bytes.size()) {
    const ssize_t count = read(descriptor.Number(), bytes.data() + used, bytes.size() - used);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return std::nullopt;
    }
    if (count == 0) {
      break; // cut short while we read
    }
    used += static_cast<std::size_t>(count);
  }
  bytes.resize(used);
  return bytes;
}

bool IsPathByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         static_cast<unsigned char>(c) >= 0x80 ||
         std::string_view("_-./~+@%#").find(c) != std::string_view::npos;
}

// The next place from `position` where the prefix stands as whole components.
std::size_t FindPrefix(std::string_view text, std::string_view prefix, std::size_t position) {
  for (;; ++position) {
    position = text.find(prefix, position);
    if (position == std::string_view::npos) {
      return position;
    }
    const std::size_t end = position + prefix.size();
    if ((position == 0 || !IsPathByte(text[position - 1])) &&
        (end == text.size() || text[end] == '/' || !IsPathByte(text[end]))) {
      return position;
    }
  }
}

// The text with all prefixes replaced, or nothing where there is none.
std::optional<std::string> Translate(std::string_view text) {
  struct Candidate {
    const std::pair<String, String>* Pair;
    std::size_t Next;
  };
  std::vector<Candidate> candidates;
  for (const auto& pair : Path::Translations()) {
    candidates.push_back({&pair, FindPrefix(text, pair.first, 0)});
  }
  std::optional<std::string> result;
  std::size_t copied = 0;
  for (;;) {
    // The first occurrence; of those at one place the longest.
    const auto best = std::min_element(
        candidates.begin(), candidates.end(), [](const Candidate& left, const Candidate& right) {
          return left.Next != right.Next ? left.Next < right.Next
                                         : left.Pair->first.size() > right.Pair->first.size();
        });
    if (best == candidates.end() || best->Next == std::string_view::npos) {
      break;
    }
    if (!result) {
      result.emplace();
    }
    result->append(text, copied, best->Next - copied).append(best->Pair->second);
    copied = best->Next + best->Pair->first.size();
    for (Candidate& candidate : candidates) {
      if (candidate.Next < copied) {
        candidate.Next = FindPrefix(text, candidate.Pair->first, copied);
      }
    }
  }
  if (result) {
    result->append(text, copied);
  }
  return result;
}

[[noreturn]] void FailToWrite(const Path& file, int reason) {
  RaiseException("TranslateSceneContents", k_ErrorSystem, "cannot write the translated scene " + file.Text(),
                 reason);
}

void WriteCopy(const Path& directory, const Path& file, std::string_view bytes) {
  std::error_code error;
  std::filesystem::create_directories(directory.Text().c_str(), error);
  if (error) {
    FailToWrite(file, error.value());
  }
  FileDraft draft(file, Existing::Replace, S_IRUSR | S_IWUSR);
  draft.Write(bytes);
  if (const int reason = draft.Publish(); reason != 0) {
    FailToWrite(file, reason);
  }
}

} // namespace

Path TranslateSceneContents(const Path& scene) {
  if (Path::Translations().empty()) {
    return scene;
  }
  const std::optional<std::string> text = ReadRegular(scene);
  if (!text || text->substr(0, k_BinaryProbe).find('\0') != std::string::npos) {
    return scene;
  }
  const std::optional<std::string> translated = Translate(*text);
  if (!translated) {
    return scene;
  }
  Path directory = Application::SceneCache();
  directory /= HashName(scene.Text());
  Path copy = directory;
  copy /= scene.Leaf(true);
  if (ReadRegular(copy) != translated) {
    WriteCopy(directory, copy, *translated);
  }
  return copy;
}
