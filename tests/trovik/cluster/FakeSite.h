#pragma once

#include "trovik/cluster/ClusterClient.h"
#include "trovik/cluster/JobFolder.h"

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace trovik {

/// A cluster without processes: it starts tasks as slots get free, and ends
/// them when the test says so. What tasks leave in the folder is written by
/// the test, in the name of the task.
class FakeSite final : public ClusterClient {
public:
  enum class Mood {
    Answers,
    Silent,      ///< questions and submissions are not answered, and do nothing
    LosesAnswer, ///< submissions arrive, but their answer does not
    Refuses,
  };
  struct Array {
    ClusterSubmission submission;
    std::vector<ClusterTask> tasks;
  };

  Mood mood = Mood::Answers;
  ClusterSite site;
  std::size_t slots = 1000;
  std::map<std::int64_t, Array> arrays;
  std::vector<std::string> canceled; ///< names, as asked
  std::size_t questions = 0;

  void submit(const ClusterSubmission& submission, Answer answer) override {
    later(
        [this, submission](ClusterAnswer& result) {
          if (mood == Mood::Silent) {
            silence(result);
            return;
          }
          if (mood == Mood::Refuses) {
            result.refused = true;
            result.problem = "invalid partition specified: \"" + submission.partition + '"';
            return;
          }
          const std::int64_t number = next_++;
          Array& array = arrays[number];
          array.submission = submission;
          for (int index = 0; index < submission.tasks; ++index) {
            ClusterTask task;
            task.array = number;
            task.index = index;
            array.tasks.push_back(task);
            setWaiting(array.tasks.back());
          }
          if (mood == Mood::LosesAnswer) {
            silence(result);
            return;
          }
          result.answered = true;
          result.array = number;
        },
        std::move(answer));
  }

  void query(const std::vector<std::string>& names, Answer answer) override {
    ++questions;
    later(
        [this, names](ClusterAnswer& result) {
          if (mood == Mood::Silent) {
            silence(result);
            return;
          }
          result.answered = true;
          for (const auto& [number, array] : arrays) {
            if (std::find(names.begin(), names.end(), array.submission.name) != names.end()) {
              result.tasks.insert(result.tasks.end(), array.tasks.begin(), array.tasks.end());
            }
          }
        },
        std::move(answer));
  }

  void cancel(const std::vector<std::string>& names, Answer answer) override {
    later(
        [this, names](ClusterAnswer& result) {
          if (mood == Mood::Silent) {
            silence(result);
            return;
          }
          result.answered = true;
          canceled.insert(canceled.end(), names.begin(), names.end());
          for (auto& [number, array] : arrays) {
            if (std::find(names.begin(), names.end(), array.submission.name) != names.end()) {
              for (ClusterTask& task : array.tasks) {
                if (task.phase == TaskPhase::Waiting) {
                  end(task, "CANCELLED");
                }
              }
            }
          }
        },
        std::move(answer));
  }

  void askSite(const std::string& /*partition*/, Answer answer) override {
    later(
        [this](ClusterAnswer& result) {
          if (mood == Mood::Silent) {
            silence(result);
            return;
          }
          result.answered = true;
          result.site = site;
        },
        std::move(answer));
  }

  bool isBusy() const override { return !answers_.empty(); }
  void addDescriptors(std::vector<pollfd>& /*descriptors*/) const override {}
  std::optional<Clock::time_point> deadline() const override { return std::nullopt; }
  void advance(Clock::time_point /*now*/) override {
    std::deque<std::function<void()>> answers;
    answers.swap(answers_);
    for (const auto& answer : answers) {
      answer();
    }
  }

  /// Starts what waits, as far as there are slots.
  void start() {
    std::size_t active = 0;
    for (const auto& [number, array] : arrays) {
      for (const ClusterTask& task : array.tasks) {
        active += task.phase == TaskPhase::Active ? 1 : 0;
      }
    }
    for (auto& [number, array] : arrays) {
      for (ClusterTask& task : array.tasks) {
        if (task.phase == TaskPhase::Waiting && active < slots && task.reason != "JobHeldUser") {
          task.phase = TaskPhase::Active;
          task.state = "RUNNING";
          task.reason = "None";
          task.node = "n1";
          ++active;
        }
      }
    }
  }
  static void setWaiting(ClusterTask& task) {
    task.phase = TaskPhase::Waiting;
    task.state = "PENDING";
    task.reason = "Priority";
    task.node.clear();
  }
  static void end(ClusterTask& task, const char* state) {
    const std::string text = state;
    task.phase = text == "NODE_FAIL" || text == "PREEMPTED" ? TaskPhase::Retry : TaskPhase::Over;
    task.state = text;
  }
  /// Who asked is gone; what was asked happens all the same.
  void hangUp() {
    listens_ = false;
    advance({});
    listens_ = true;
  }
  /// The cluster remembers an array no longer.
  void forget(std::int64_t number) { arrays.erase(number); }

private:
  template <typename Action> void later(Action action, Answer answer) {
    answers_.push_back([this, action = std::move(action), answer = std::move(answer)] {
      ClusterAnswer result;
      action(result);
      if (listens_) {
        answer(result);
      }
    });
  }
  static void silence(ClusterAnswer& result) { result.problem = "squeue did not answer within 15 s"; }

  std::int64_t next_ = 101;
  bool listens_ = true;
  std::deque<std::function<void()>> answers_;
};

} // namespace trovik
