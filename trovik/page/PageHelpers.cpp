#include "trovik/page/PageHelpers.h"

#include "trovik/page/PageReplies.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

constexpr int triesLimit = 2; // of a question that a helper died of
constexpr const char* hangs = "perhaps a folder of the job does not answer: its server may be away";

bool steers(const HttpRequest& request) {
  return request.method == "POST";
}

HttpResponse tryAgainLater(const std::string& message, const std::string& hint) {
  HttpResponse response = problemResponse(503, message, hint);
  response.headers.emplace_back("Retry-After", "10");
  return response;
}

HttpResponse noAnswer(const HttpRequest& request, Duration patience) {
  return tryAgainLater("no answer came within " + durationText(patience) +
                           (steers(request) ? "; what was asked for may still be done" : ""),
                       hangs);
}

} // namespace

PageHelpers::PageHelpers(std::vector<String> command, const PageHelperLimits& limits, Now now)
    : command_(std::move(command)), limits_(limits), now_(std::move(now)) {}
PageHelpers::~PageHelpers() = default;

void PageHelpers::ask(const std::string& about, HttpRequest request, const Revisions& revisions,
                      Answer answer) {
  const Clock::time_point now = now_();
  const bool hung = std::any_of(helpers_.begin(), helpers_.end(), [&](const Helper& helper) {
    return helper.task && helper.task->about == about && !helper.task->answer;
  });
  if (hung) {
    answers_.emplace_back(std::move(answer), tryAgainLater("there is still no answer", hangs));
  } else if (waiting_.size() >= limits_.waiting) {
    answers_.emplace_back(std::move(answer), tryAgainLater("too many questions wait", "ask again"));
  } else {
    request.headers.clear();
    waiting_.push_back({about, std::move(request), std::move(answer), now, 0});
    distribute(revisions, now);
  }
}

bool PageHelpers::isSlow(const Helper& helper, Clock::time_point now) const {
  return helper.task && now >= helper.since + limits_.slow;
}

Duration PageHelpers::patienceWith(const Task& task) const {
  return trovik::steers(task.request) ? limits_.steering : limits_.patience;
}

bool PageHelpers::steers() const {
  const auto changes = [](const Task& task) { return task.answer && trovik::steers(task.request); };
  return std::any_of(helpers_.begin(), helpers_.end(),
                     [&](const Helper& helper) { return helper.task && changes(*helper.task); }) ||
         std::any_of(waiting_.begin(), waiting_.end(), changes);
}

std::string PageHelpers::takeSaid() {
  return std::exchange(said_, {});
}

void PageHelpers::addTo(std::vector<pollfd>& descriptors) const {
  for (const Helper& helper : helpers_) {
    const bool sends = helper.process->sending();
    descriptors.push_back(
        {helper.process->descriptor(), static_cast<short>(sends ? POLLIN | POLLOUT : POLLIN), 0});
  }
}

std::optional<Clock::time_point> PageHelpers::deadline() const {
  if (!answers_.empty()) {
    return Clock::time_point();
  }
  std::optional<Clock::time_point> first;
  const auto at = [&](Clock::time_point time) { first = first ? std::min(*first, time) : time; };
  const Clock::time_point now = now_();
  for (const Helper& helper : helpers_) {
    if (!helper.task) {
      at(helper.since + limits_.rest);
    } else if (helper.task->answer) {
      at(helper.task->asked + patienceWith(*helper.task));
    }
    if (!waiting_.empty() && helper.task && !isSlow(helper, now)) {
      at(helper.since + limits_.slow);
    }
  }
  for (const Task& task : waiting_) {
    at(task.asked + patienceWith(task));
  }
  return first;
}

void PageHelpers::advance(const Revisions& revisions) {
  for (Helper& helper : helpers_) {
    read(helper);
  }
  const Clock::time_point now = now_();
  endPatience(now);
  std::erase_if(helpers_, [&](const Helper& helper) {
    return !helper.task && (helper.process->descriptor() < 0 || now >= helper.since + limits_.rest);
  });
  distribute(revisions, now);
  // Who gets an answer may ask again.
  const auto answers = std::exchange(answers_, {});
  for (const auto& [answer, response] : answers) {
    answer(response);
  }
}

void PageHelpers::read(Helper& helper) {
  for (;;) {
    const bool runs = helper.process->advance();
    if (!helper.head) {
      const std::optional<std::string> line = helper.process->line();
      helper.head = line ? replyHeadFrom(*line) : std::nullopt;
      if (!helper.head) {
        if (!runs || line) {
          lose(helper, line.value_or(std::string()));
        }
        return;
      }
      said_ += helper.head->said;
    }
    std::string& body = helper.head->response.body;
    const std::size_t before = body.size();
    body += helper.process->bytes(helper.head->size - before);
    if (body.size() == helper.head->size) {
      HttpResponse response = std::move(helper.head->response);
      helper.head.reset();
      finish(helper, std::move(response));
      return;
    }
    if (helper.process->descriptor() < 0) {
      lose(helper, {});
      return;
    }
    if (body.size() == before) {
      return;
    }
  }
}

void PageHelpers::finish(Helper& helper, HttpResponse response) {
  if (helper.task && helper.task->answer) {
    answers_.emplace_back(std::move(helper.task->answer), std::move(response));
  }
  helper.task.reset();
  helper.since = now_();
}

/// A helper that has died, or gone astray. What is no reply may be what the
/// system says of a program that it cannot load.
void PageHelpers::lose(Helper& helper, const std::string& words) {
  helper.head.reset();
  const HelperProcess::End end = helper.process->end();
  if (!helper.task) {
    return;
  }
  Task task = std::move(*helper.task);
  helper.task.reset();
  if (task.answer && !trovik::steers(task.request) && task.tries < triesLimit) {
    waiting_.push_front(std::move(task)); // perhaps somebody else was meant
  } else if (task.answer) {
    answers_.emplace_back(
        std::move(task.answer),
        tryAgainLater("the program that answers " +
                          (words.empty() ? end.text : "said " + inQuotes(cutToWidth(words, 300))),
                      "ask again"));
  }
}

void PageHelpers::endPatience(Clock::time_point now) {
  const auto end = [&](Task& task) {
    if (task.answer && now >= task.asked + patienceWith(task)) {
      answers_.emplace_back(std::move(task.answer), noAnswer(task.request, patienceWith(task)));
      task.answer = nullptr;
    }
  };
  for (Helper& helper : helpers_) {
    if (helper.task) {
      end(*helper.task);
    }
  }
  for (Task& task : waiting_) {
    end(task);
  }
  std::erase_if(waiting_, [](const Task& task) { return !task.answer; });
}

PageHelpers::Helper* PageHelpers::helperFor(const Task& task, Clock::time_point now) {
  Helper* idle = nullptr;
  std::size_t quick = 0;
  for (Helper& helper : helpers_) {
    if (helper.task) {
      if (helper.task->about == task.about) {
        return nullptr;
      }
      quick += isSlow(helper, now) ? 0U : 1U;
    } else if (helper.process->descriptor() >= 0) {
      idle = idle == nullptr || helper.lastAbout == task.about ? &helper : idle;
    }
  }
  if (idle != nullptr || quick >= limits_.quick || helpers_.size() >= limits_.all) {
    return idle;
  }
  helpers_.emplace_back();
  return &helpers_.back();
}

void PageHelpers::begin(Helper& helper, Task task, const Revisions& revisions, Clock::time_point now) {
  if (helper.process == nullptr) {
    try {
      helper.process = std::make_unique<HelperProcess>(command_);
    } catch (const std::system_error& error) {
      answers_.emplace_back(
          std::move(task.answer),
          tryAgainLater("cannot start " + inQuotes(command_.front()) + ": " + error.code().message(),
                        "ask again"));
      helpers_.remove_if([&](const Helper& other) { return &other == &helper; });
      return;
    }
  }
  ++task.tries;
  helper.process->send(questionLine({task.request, revisions.since(helper.told)}));
  helper.told = revisions.last;
  helper.lastAbout = task.about;
  helper.since = now;
  helper.task = std::move(task);
}

void PageHelpers::distribute(const Revisions& revisions, Clock::time_point now) {
  std::set<std::string> earlier; // what questions before this one are about
  for (auto task = waiting_.begin(); task != waiting_.end();) {
    Helper* const helper = earlier.insert(task->about).second ? helperFor(*task, now) : nullptr;
    if (helper == nullptr) {
      ++task;
      continue;
    }
    begin(*helper, std::move(*task), revisions, now);
    task = waiting_.erase(task);
  }
}

} // namespace trovik
