#pragma once

#include "trovik/machine/HelperProcess.h"
#include "trovik/machine/Machine.h"
#include "trovik/page/PageQuestion.h"

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace trovik {

/// How long, and how many.
struct PageHelperLimits {
  Duration slow = std::chrono::seconds(2);      ///< then another helper may start beside it
  Duration patience = std::chrono::seconds(30); ///< with a question
  Duration steering = std::chrono::minutes(2);  ///< with one that changes something
  Duration rest = std::chrono::minutes(1);      ///< without a question, then a helper ends
  std::size_t quick = 2;                        ///< helpers that are not slow
  std::size_t all = 8;
  std::size_t waiting = 512; ///< questions
};

/// Has questions answered by helpers, processes of our own program.
///
/// Problem: an answer reads folders of jobs, and a network folder whose server
/// is gone holds up who asks for it, for minutes or for ever: then nobody would
/// see any job. Besides, a job of a million frames takes a second to be told.
/// Model: the server never touches what a job names; a helper does. Questions
/// about one thing (a job, the list of jobs, the machine) go one after the
/// other, so that a folder which hangs holds up one helper, and most often
/// to the helper that answered the last one about it and still knows the job.
/// Who asked gets no answer but a reason when patience ends, and who asks about
/// the same thing while the helper still hangs gets it at once; every other
/// thing goes to another helper. When the folder is back the helper goes on.
class PageHelpers {
public:
  using Answer = std::function<void(HttpResponse response)>;
  using Now = std::function<Clock::time_point()>;
  /// Arguments of a helper's program, its path first.
  PageHelpers(std::vector<String> command, const PageHelperLimits& limits = {}, Now now = Clock::now);
  ~PageHelpers();

  /// `about` is what questions are about that go one after the other. The answer
  /// comes from `advance`. `revisions` are those of now.
  void ask(const std::string& about, HttpRequest request, const Revisions& revisions, Answer answer);

  /// Appends what is readable, or may be written to, when there is something to do.
  void addTo(std::vector<pollfd>& descriptors) const;
  std::optional<Clock::time_point> deadline() const;
  void advance(const Revisions& revisions);
  /// Whether something is being changed for somebody.
  bool steers() const;
  /// What helpers have said since the last call, for who started the page.
  std::string takeSaid();

private:
  struct Task {
    std::string about;
    HttpRequest request;
    Answer answer; ///< none any more where patience has ended
    Clock::time_point asked;
    int tries = 0;
  };
  struct Helper {
    std::unique_ptr<HelperProcess> process;
    std::optional<Task> task;
    std::optional<PageReplyHead> head; ///< of the reply that is coming
    std::int64_t told = 0;             ///< the last revision that it knows
    std::string lastAbout;
    Clock::time_point since; ///< of the task, or of its end
  };

  bool isSlow(const Helper& helper, Clock::time_point now) const;
  Duration patienceWith(const Task& task) const;
  void read(Helper& helper);
  void finish(Helper& helper, HttpResponse response);
  void lose(Helper& helper, const std::string& words);
  void endPatience(Clock::time_point now);
  void distribute(const Revisions& revisions, Clock::time_point now);
  Helper* helperFor(const Task& task, Clock::time_point now);
  void begin(Helper& helper, Task task, const Revisions& revisions, Clock::time_point now);

  std::vector<String> command_;
  PageHelperLimits limits_;
  Now now_;
  std::list<Helper> helpers_;
  std::list<Task> waiting_;
  std::vector<std::pair<Answer, HttpResponse>> answers_; ///< to be given
  std::string said_;
};

} // namespace trovik
