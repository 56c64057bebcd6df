#include "trovik/page/PictureCache.h"

#include "host/foundation/WriteFile.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace trovik {
namespace {

constexpr const char* draftBegin = "new-";
/// A picture counts as asked for when it is older than this, so that showing a
/// sheet again and again writes nothing.
constexpr std::time_t freshTime = 600;
constexpr std::time_t draftTime = 3600;

struct Picture {
  std::string name;
  std::int64_t bytes = 0;
  std::int64_t asked = 0; ///< nanoseconds since 1970
};

} // namespace

PictureCache::PictureCache(Path folder, std::int64_t limit) : folder_(std::move(folder)), limit_(limit) {}

Path PictureCache::pathOf(const FileIdentity& file, int width) const {
  Path path = folder_;
  path /= String(file.text() + '-' + std::to_string(width) + ".jpg");
  return path;
}

std::optional<ServedFile> PictureCache::find(const FileIdentity& file, int width) {
  ServedFile picture(pathOf(file, width).Text());
  if (!picture.isThere() || picture.identity.size == 0) {
    return std::nullopt;
  }
  if (picture.identity.modified / 1'000'000'000 + freshTime < std::time(nullptr)) {
    futimens(picture.descriptor.Number(), nullptr); // now; where it cannot be it goes the sooner
  }
  return picture;
}

Path PictureCache::draft() {
  MakePrivateFolder(folder_);
  Path path = folder_;
  path /= String(draftBegin + std::to_string(getpid()) + '-' + std::to_string(++drafts_) + ".jpg");
  return path;
}

void PictureCache::keep(const Path& draft, const FileIdentity& file, int width) {
  struct stat facts {};
  if (stat(draft.c_str(), &facts) != 0 || rename(draft.c_str(), pathOf(file, width).c_str()) != 0) {
    unlink(draft.c_str());
    return;
  }
  added_ += facts.st_size;
  if (!tidied_ || added_ > limit_ / 10) {
    tidy();
  }
}

void PictureCache::tidy() {
  tidied_ = true;
  added_ = 0;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder_.c_str()), closedir);
  if (directory == nullptr) {
    return;
  }
  const int here = dirfd(directory.get());
  const std::time_t now = std::time(nullptr);
  std::vector<Picture> pictures;
  std::int64_t bytes = 0;
  while (const dirent* entry = readdir(directory.get())) { // NOLINT(concurrency-mt-unsafe): one thread
    struct stat facts {};
    const std::string name = entry->d_name;
    if (!name.ends_with(".jpg") || fstatat(here, entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
      continue; // nothing of ours
    }
    if (name.starts_with(draftBegin)) {
      if (facts.st_mtim.tv_sec + draftTime < now) {
        unlinkat(here, entry->d_name, 0);
      }
      continue;
    }
    pictures.push_back(
        {name, facts.st_size, std::int64_t{facts.st_mtim.tv_sec} * 1'000'000'000 + facts.st_mtim.tv_nsec});
    bytes += facts.st_size;
  }
  if (bytes <= limit_) {
    return;
  }
  std::sort(pictures.begin(), pictures.end(),
            [](const Picture& a, const Picture& b) { return a.asked < b.asked; });
  for (const Picture& picture : pictures) {
    if (bytes <= limit_ - limit_ / 10) { // so that the next ones have room for a while
      break;
    }
    unlinkat(here, picture.name.c_str(), 0);
    bytes -= picture.bytes;
  }
}

} // namespace trovik
