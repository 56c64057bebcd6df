#pragma once

#include "trovik/images/ImageProtocol.h"

#include <cstdio>
#include <string>

namespace trovik::image {

/// What libTrovikImages gives, under the name of imageLibraryName.
struct ImageLibraryCalls {
  void (*limit)(); ///< throws std::system_error while the system has no threads
  Inspection (*check)(const CheckRequest& request);
  bool (*drawSheet)(std::FILE* plan, std::FILE* reports, const std::string& file);
};
constexpr const char* imageLibraryName = "trovikImageLibrary";

/// All that links the libraries for images. It lies in a shared library of its
/// own, which is loaded with the first call: the 260 libraries behind it take
/// 0.3 s of processor time, and most files are judged without. It stays until
/// the process ends.
class ImageLibrary {
public:
  Inspection check(const CheckRequest& request) { return calls().check(request); }
  bool drawSheet(std::FILE* plan, std::FILE* reports, const std::string& file) {
    return calls().drawSheet(plan, reports, file);
  }

private:
  /// Throws a std::runtime_error where it cannot be loaded or started.
  const ImageLibraryCalls& calls();

  const ImageLibraryCalls* calls_ = nullptr;
};

} // namespace trovik::image
