#pragma once

#include "host/foundation/Path.h"
#include "trovik/page/ServedFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace trovik {

/// Small pictures in a folder of their own, for this user alone. Their names
/// tell which file they show, as it was then, so that none is ever out of date;
/// those that were not asked for the longest go when they are too much together.
/// Several processes may share the folder.
class PictureCache {
public:
  static constexpr std::int64_t usualLimit = std::int64_t{512} << 20U;
  PictureCache(Path folder, std::int64_t limit = usualLimit);

  /// The picture of a file; nothing where there is none.
  std::optional<ServedFile> find(const FileIdentity& file, int width);
  /// The name of a new file for a picture that is to be made. Makes the folder.
  Path draft();
  /// The picture is whole from now on.
  void keep(const Path& draft, const FileIdentity& file, int width);

private:
  Path pathOf(const FileIdentity& file, int width) const;
  /// Removes what is too much, and what was never finished.
  void tidy();

  Path folder_;
  std::int64_t limit_;
  std::int64_t added_ = 0; ///< bytes since it was tidied
  bool tidied_ = false;
  std::uint64_t drafts_ = 0;
};

} // namespace trovik
