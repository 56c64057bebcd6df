#include "trovik/check/TypeSource.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileText.h"
#include "trovik/text/UsageError.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace trovik {

TypeSource::TypeSource(std::string shown, Path path, std::string text)
    : shown_(std::move(shown)), path_(std::move(path)), text_(std::move(text)),
      ini_(std::make_unique<IniFile>(false)) {
  ini_->SetFilename(path_);
  ini_->Parse(text_);
}

TypeSource TypeSource::read(std::string shown, const Path& path) {
  std::optional<std::string> text;
  std::string problem;
  try {
    int reason = 0;
    text = ReadFileText(path, reason);
    problem = "cannot be read: " +
              (reason == EINVAL ? "it is no regular file" : std::system_category().message(reason));
  } catch (Exception* exception) {
    takeText(exception);
    problem = "is larger than " + std::to_string(IniFile::k_SizeLimit >> 20U) +
              " MiB, more than any type file needs";
  }
  TypeSource source(std::move(shown), path, text.value_or(std::string()));
  if (!text) {
    source.problem_ = problem;
  }
  return source;
}

std::string_view TypeSource::line(std::size_t number) const {
  const std::string_view all = text_;
  std::size_t begin = all.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  for (; number > 1 && begin < all.size(); --number) {
    begin = std::min(all.find('\n', begin), all.size() - 1) + 1;
  }
  std::string_view line = all.substr(begin, std::min(all.find('\n', begin), all.size()) - begin);
  if (line.ends_with('\r')) {
    line.remove_suffix(1);
  }
  return line;
}

void withTemporaryFile(std::string_view text, const std::function<void(const Path& file)>& use) {
  const Descriptor file(memfd_create("type", MFD_CLOEXEC));
  while (file.IsOpen() && !text.empty()) {
    const ssize_t count = write(file.Number(), text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      break;
    }
  }
  if (!file.IsOpen() || !text.empty()) {
    RaiseException("withTemporaryFile", k_ErrorSystem, "no room for a copy of the type file", errno);
  }
  use(Path("/proc/self/fd/" + std::to_string(file.Number())));
}

} // namespace trovik
