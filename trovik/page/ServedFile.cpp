#include "trovik/page/ServedFile.h"

#include "host/application/FileName.h"
#include "host/foundation/Path.h"
#include "trovik/page/PageReplies.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace trovik {

std::string FileIdentity::text() const {
  char buffer[100];
  std::snprintf(buffer, sizeof buffer, "%lx-%lx-%lx-%lx", static_cast<unsigned long>(device),
                static_cast<unsigned long>(number), static_cast<unsigned long>(size),
                static_cast<unsigned long>(modified));
  return buffer;
}

FileIdentity identityOf(const struct stat& facts) {
  return {facts.st_dev, facts.st_ino, facts.st_size,
          std::int64_t{facts.st_mtim.tv_sec} * 1'000'000'000 + facts.st_mtim.tv_nsec};
}

ServedFile::ServedFile(const std::string& path) {
  if (CanBeAName(Path(path))) {
    descriptor.Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  }
  if (!descriptor.IsOpen()) {
    problem = errno == ELOOP    ? "a link lies in its place"
              : errno == ENOENT ? "it is not there any more"
                                : "it cannot be read";
    return;
  }
  struct stat facts {};
  if (fstat(descriptor.Number(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    descriptor.Reset();
    problem = "it is no regular file";
    return;
  }
  identity = identityOf(facts);
}

std::size_t ServedFile::read(std::int64_t position, std::string& buffer) const {
  while (true) {
    const ssize_t count = pread(descriptor.Number(), buffer.data(), buffer.size(), position);
    if (count >= 0 || errno != EINTR) {
      return count < 0 ? 0 : static_cast<std::size_t>(count);
    }
  }
}

HttpResponse foundResponse(Queue& queue, std::int64_t number) {
  const std::optional<FileRecord> record = queue.file(number);
  if (!record) {
    return problemResponse(404, "there is no file " + std::to_string(number), "");
  }
  const ServedFile file(record->path);
  if (!file.isThere()) {
    return problemResponse(404, "the file is not served: " + file.problem, "");
  }
  return jsonResponse({{"path", record->path},
                       {"device", file.identity.device},
                       {"number", file.identity.number},
                       {"size", file.identity.size},
                       {"modified", file.identity.modified}});
}

FoundFile foundFrom(HttpResponse response) {
  FoundFile found;
  const Json json = response.status == 200 ? Json::parse(response.body, nullptr, false) : Json();
  const std::optional<std::string> path =
      json.is_object() && json.contains("path") ? textFrom(json["path"]) : std::nullopt;
  if (!path) {
    found.refusal = std::move(response);
    return found;
  }
  found.path = *path;
  found.identity = {json.value("device", std::uint64_t{0}), json.value("number", std::uint64_t{0}),
                    json.value("size", std::int64_t{0}), json.value("modified", std::int64_t{0})};
  return found;
}

} // namespace trovik
