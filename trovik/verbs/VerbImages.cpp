#include "trovik/images/ImageHelper.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"
#include "trovik/works/FilesNow.h"

namespace trovik {
namespace {

int printMissing(Console& console, const JobView& view, const RunSet& missing, bool json) {
  if (!view.job.hasFrames) {
    throw UsageError{"job " + std::to_string(view.job.id) + " has no frames",
                     "\"trovik images " + std::to_string(view.job.id) + "\" lists its files"};
  }
  if (json) {
    Json document = jsonOfKind("images.missing");
    document["job"] = view.job.id;
    document["frames"] = missing.text();
    document["count"] = missing.count();
    console.print(jsonDocument(document));
  } else if (!missing.empty()) {
    console.print(missing.text() + '\n');
  }
  return missing.empty() ? exitGood : exitFailed;
}

} // namespace

int listImages(Session& session, const ImagesOptions& options) {
  Console& console = session.console();
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  JobRecord job = findJob(queue.get(), *options.job);
  const JobView view = viewOf(*queue, std::move(job));
  const bool checks = options.missing || options.verify;
  ImageHelper images(checks ? imageHelper(session) : session.locations().imageHelper());
  const Decode decode = options.verify ? Decode::All : options.missing ? Decode::Doubtful : Decode::Changed;
  const FilesNow now = filesNow(*queue, view, decode, images);
  if (options.missing) {
    return printMissing(console, view, now.missing, options.json);
  }
  if (options.json) {
    Json document = jsonOfKind("images");
    document["job"] = view.job.id;
    document["files"] = Json::array();
    for (const JobFile& file : now.files) {
      document["files"].push_back({{"frame", file.frame ? Json(*file.frame) : Json(nullptr)},
                                   {"file", file.path},
                                   {"checked", file.checked},
                                   {"size", file.checked ? Json(file.size) : Json(nullptr)},
                                   {"problem", textOrNull(file.problem)}});
    }
    console.print(jsonDocument(document));
    return exitGood;
  }
  std::string text;
  for (const JobFile& file : now.files) {
    if (isGood(file)) {
      text += console.shown(file.path) + '\n';
    }
  }
  if (!text.empty()) {
    console.print(text);
  } else if (console.traits().terminal) {
    console.print("no images yet\n");
  }
  return exitGood;
}

} // namespace trovik
