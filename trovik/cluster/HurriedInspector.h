#pragma once

#include "trovik/images/ImageInspector.h"

#include <memory>
#include <utility>
#include <vector>

namespace trovik {

/// Looks into files until there is no time left: from then on every file that
/// has no answer yet has a problem, so that a work is judged at once and none
/// of its frames counts as good without a look. For one thread; the other
/// inspector must outlive it.
class HurriedInspector final : public ImageInspector {
public:
  explicit HurriedInspector(ImageInspector& inspector) : inspector_(inspector) {}

  void ask(const Path& file, bool refuseFlat, Answer answer) override {
    if (hurried_) {
      answer(unseen());
      return;
    }
    auto open = std::make_shared<Answer>(std::move(answer));
    open_.push_back(open);
    inspector_.ask(file, refuseFlat, [open](const Inspection& inspection) {
      if (const Answer once = std::exchange(*open, nullptr)) {
        once(inspection);
      }
    });
  }
  int descriptor() const override { return inspector_.descriptor(); }
  std::optional<Clock::time_point> deadline() const override { return inspector_.deadline(); }
  void advance(Clock::time_point now) override {
    inspector_.advance(now);
    std::erase_if(open_, [](const auto& open) { return *open == nullptr; });
  }

  /// There is time again.
  void relax() { hurried_ = false; }
  /// There is no time left.
  void hurry() {
    hurried_ = true;
    for (const auto& open : std::exchange(open_, {})) {
      if (const Answer once = std::exchange(*open, nullptr)) {
        once(unseen());
      }
    }
  }

private:
  static Inspection unseen() { return {"Not looked into: the task had to end", false, 0, 0}; }

  ImageInspector& inspector_;
  std::vector<std::shared_ptr<Answer>> open_;
  bool hurried_ = false;
};

} // namespace trovik
