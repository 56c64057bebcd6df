#include "trovik/page/PageHelper.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/page/PageFrames.h"
#include "trovik/page/PageMachine.h"
#include "trovik/page/PageReplies.h"
#include "trovik/page/ServedFile.h"
#include "trovik/queue/QueueError.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

/// A whole number of the query; nothing where there is none.
std::optional<std::int64_t> numberIn(const HttpRequest& request, const std::string& name) {
  const auto found = request.query.find(name);
  if (found == request.query.end()) {
    return std::nullopt;
  }
  const auto number = ReadWholeNumber<std::int64_t>(found->second);
  if (!number) {
    throw UsageError{name + ": " + inQuotes(found->second) + " is not a whole number", ""};
  }
  return number;
}

/// What standard output and errors get, kept until it is taken.
class PrintedWords {
public:
  PrintedWords() : kept_(memfd_create("printed", MFD_CLOEXEC)) {
    if (!kept_.IsOpen() || dup2(kept_.Number(), STDOUT_FILENO) < 0 ||
        dup2(kept_.Number(), STDERR_FILENO) < 0) {
      throw std::system_error(errno, std::system_category());
    }
  }
  std::string take() {
    std::string words(static_cast<std::size_t>(std::max<off_t>(0, lseek(kept_.Number(), 0, SEEK_CUR))), '\0');
    const ssize_t got = words.empty() ? 0 : pread(kept_.Number(), words.data(), words.size(), 0);
    words.resize(static_cast<std::size_t>(std::max<ssize_t>(0, got)));
    if (!words.empty() && ftruncate(kept_.Number(), 0) == 0) {
      lseek(kept_.Number(), 0, SEEK_SET);
    }
    return words;
  }

private:
  Descriptor kept_;
};

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(0, written)));
  }
  return true;
}

} // namespace

HttpResponse PageHelper::answer(const PageQuestion& question) {
  revisions_.add(question.revisions);
  const PageRoute route = routeOf(question.request.path);
  try {
    return question.request.method == "POST" ? steered(question.request, route)
                                             : read(question.request, route);
  } catch (const PageMissing& missing) {
    return problemResponse(404, missing.message, "");
  } catch (const UsageError& error) {
    return problemResponse(400, error.message, error.hint);
  } catch (const QueueError& error) {
    return problemResponse(503, error.message, error.hint);
  } catch (...) {
    return problemResponse(500, TakeCaughtText(), "");
  }
}

HttpResponse PageHelper::read(const HttpRequest& request, const PageRoute& route) {
  HttpResponse response;
  queue_.inSnapshot([&] {
    switch (route.kind) {
    case PageRoute::Kind::Jobs:
      response = jsonResponse(answers_.jobs());
      break;
    case PageRoute::Kind::Job:
      response = jsonResponse(answers_.job(route.number));
      break;
    case PageRoute::Kind::Cells:
      response = jsonTextResponse(answers_.cells(route.number));
      break;
    case PageRoute::Kind::Frame:
      response = jsonResponse(
          frameJson(queue_, answers_.view(route.number), route.frame, answers_.cellsNow(route.number)));
      break;
    case PageRoute::Kind::Log:
      response = jsonResponse(logPieceJson(queue_, route.number, numberIn(request, "from")));
      break;
    case PageRoute::Kind::Machine:
      response = jsonResponse(machineJson(queue_));
      break;
    case PageRoute::Kind::Picture:
    case PageRoute::Kind::Original:
      response = foundResponse(queue_, route.number);
      break;
    default:
      throw PageMissing{"there is nothing of that name"};
    }
  });
  return response;
}

HttpResponse PageHelper::steered(const HttpRequest& request, const PageRoute& route) {
  const bool missing = route.action == "missing";
  SteeringWish wish = steeringWish(steeringActionOf(route.action).value_or(SteeringWish::Action::Retry),
                                   route.number, request.body);
  const JobView& view = answers_.view(wish.job); // throws for an unknown one
  Json document = jsonOfKind("page.done");
  document["job"] = wish.job;
  document["dryRun"] = wish.dryRun;
  if (missing) {
    if (wish.frames || !view.job.hasFrames) {
      throw UsageError{"\"missing\" names its frames by itself, of a job with frames",
                       "\"retry\" takes frames, or does the work again"};
    }
    const RunSet frames = answers_.missingNow(wish.job);
    if (frames.empty()) {
      throw UsageError{"job " + std::to_string(wish.job) + ": nothing is missing", ""};
    }
    wish.frames = frames.text();
  }
  const SteeringDone done = steering_.steer(wish);
  document["text"] = done.text;
  document["command"] = done.command;
  return jsonResponse(document);
}

void answerQuestions(PageHelper& helper) {
  const Descriptor answers(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  PrintedWords printed;
  char* line = nullptr;
  std::size_t room = 0;
  ssize_t length = 0;
  while ((length = getline(&line, &room, stdin)) > 0) {
    const auto question = questionFrom({line, static_cast<std::size_t>(length)});
    const HttpResponse response =
        question ? helper.answer(*question) : problemResponse(500, "the helper was not understood", "");
    if (!writeAll(answers.Number(), replyText(response, printed.take()))) {
      break;
    }
  }
  std::free(line);
}

} // namespace trovik
