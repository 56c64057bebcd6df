#pragma once

#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/Http.h"
#include "trovik/page/PictureCache.h"

#include <functional>
#include <map>
#include <memory>
#include <poll.h>
#include <string>
#include <vector>

namespace trovik {

/// Answers requests for small pictures of files: from the cache, else once
/// trovik-image has made them. A file of which none can be made is not tried
/// again until it has changed.
class PagePictures {
public:
  using Deliver = std::function<void(HttpExchange exchange, HttpResponse response)>;
  using Then = std::function<void(const FoundFile& found)>;
  /// Looks for a file of the queue, and says later what it found.
  using Find = std::function<void(std::int64_t file, const Then& then)>;
  /// `deliver` gets the answers that come later.
  PagePictures(const Path& cache, const Path& helper, Deliver deliver, Find find);

  HttpAnswer answer(const HttpRequest& request, std::int64_t file, HttpExchange exchange);

  /// Appends what is readable when there is something to do.
  void addTo(std::vector<pollfd>& descriptors) const;
  std::optional<Clock::time_point> deadline() const;
  void advance(Clock::time_point now);

private:
  struct Wanted {
    std::int64_t file = 0; ///< its number
    FileIdentity identity;
    int width = 0;
    std::vector<HttpExchange> exchanges;
  };
  struct Finished {
    std::string key;
    Path draft;
    Inspection inspection;
  };

  /// The picture of a file that is there; nothing where it comes later.
  std::optional<HttpResponse> pictureOf(const FoundFile& found, std::int64_t file, int width,
                                        const std::optional<std::string>& known, HttpExchange exchange);
  void finish(const Finished& finished);
  HttpResponse made(const Wanted& wanted, const Finished& finished, const FoundFile& found);
  HttpResponse pictureResponse(ServedFile picture, const std::string& tag) const;

  PictureCache cache_;
  std::vector<std::unique_ptr<ImageHelper>> helpers_;
  Deliver deliver_;
  Find find_;
  std::map<std::string, Wanted> wanted_;        ///< by identity and width
  std::map<std::string, std::string> problems_; ///< why there is no picture, by identity
  std::vector<Finished> finished_;
  std::optional<Clock::time_point> rest_; ///< when the helpers end, should nobody ask before
};

} // namespace trovik
