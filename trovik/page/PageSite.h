#pragma once

#include "host/foundation/Path.h"
#include "trovik/page/Http.h"

#include <map>
#include <optional>
#include <string>

namespace trovik {

/// The files that a browser shows: those that lie in the folder (and in folders
/// of it) when this is made. No name is made of what a client asks for: it is
/// one of them, or there is none.
class PageSite {
public:
  /// Throws a UsageError where there is no index.html.
  explicit PageSite(const Path& folder);

  /// "/" and "/assets/NAME"; nothing for any other path, and for a file that is
  /// gone.
  std::optional<HttpResponse> answer(const HttpRequest& request) const;

private:
  struct File {
    Path path;
    std::string type;
  };
  std::map<std::string, File> files_; ///< by the path that a client asks for
};

/// The type of a file's content by its name; empty for one that is not served.
std::string contentTypeOf(const std::string& name);

} // namespace trovik
