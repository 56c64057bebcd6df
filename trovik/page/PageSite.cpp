#include "trovik/page/PageSite.h"

#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

constexpr std::array<std::pair<std::string_view, const char*>, 9> types = {
    {{".html", "text/html; charset=utf-8"},
     {".css", "text/css; charset=utf-8"},
     {".js", "text/javascript; charset=utf-8"},
     {".json", "application/json"},
     {".svg", "image/svg+xml"},
     {".png", "image/png"},
     {".jpg", "image/jpeg"},
     {".ico", "image/x-icon"},
     {".woff2", "font/woff2"}}};

} // namespace

std::string contentTypeOf(const std::string& name) {
  for (const auto& [ending, type] : types) {
    if (name.ends_with(ending)) {
      return type;
    }
  }
  return {};
}

PageSite::PageSite(const Path& folder) {
  const std::filesystem::path root(folder.c_str());
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(root, error);
  for (; !error && entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
    std::error_code unknown;
    const std::string name = entry->path().lexically_relative(root).string();
    const std::string type = contentTypeOf(name);
    if (!type.empty() && entry->is_regular_file(unknown)) {
      files_[name == "index.html" ? "/" : "/assets/" + name] = {Path(entry->path().string()), type};
    }
  }
  if (!files_.contains("/")) {
    throw UsageError{"the files of the page are not there: no index.html in " + inQuotes(folder.Text()),
                     "they are installed with trovik; TROVIK_PAGE names another folder"};
  }
}

std::optional<HttpResponse> PageSite::answer(const HttpRequest& request) const {
  const auto found = files_.find(request.path);
  if (found == files_.end()) {
    return std::nullopt;
  }
  HttpResponse response;
  response.file =
      std::make_shared<Descriptor>(open(found->second.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat facts {};
  if (fstat(response.file->Number(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    return std::nullopt;
  }
  const std::string tag = '"' + std::to_string(facts.st_size) + '-' + std::to_string(facts.st_mtim.tv_sec) +
                          '-' + std::to_string(facts.st_mtim.tv_nsec) + '"';
  response.type = found->second.type;
  response.headers = {{"Cache-Control", "private, no-cache"}, {"ETag", tag}};
  if (request.header("if-none-match") == tag) {
    response.status = 304;
    response.file.reset();
  } else {
    response.fileSize = static_cast<std::uint64_t>(facts.st_size);
  }
  return response;
}

} // namespace trovik
