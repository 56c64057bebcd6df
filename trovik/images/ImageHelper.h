#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/machine/HelperProcess.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace trovik {

/// Has files checked by trovik-image, which is started with the first one
/// and decodes one after the other. When it dies, it is started anew; a file
/// that it dies of twice has a problem, and so has one that it does not come
/// to an end with.
class ImageHelper final : public ImageInspector {
public:
  using Now = std::function<Clock::time_point()>;
  static constexpr std::chrono::seconds defaultPatience{120};

  /// `program` is the path of trovik-image; the patience is with one file.
  explicit ImageHelper(Path program, Now now = Clock::now, Duration patience = defaultPatience);
  ~ImageHelper() override;

  void ask(const Path& file, bool refuseFlat, Answer answer) override;
  int descriptor() const override;
  std::optional<Clock::time_point> deadline() const override;
  void advance(Clock::time_point now) override;

private:
  struct Question {
    Path file;
    bool refuseFlat = false;
    Answer answer;
    int tries = 0;
  };

  void askNext();
  void takeLine(const std::string& line);
  void takeEnd();
  void finish(const Inspection& inspection);
  void finish(const std::string& problem);

  Path program_;
  Now now_;
  Duration patience_;
  std::unique_ptr<HelperProcess> process_;
  bool hasAnswered_ = false; ///< the process that runs now, at least once
  std::deque<Question> questions_;
  bool asked_ = false; ///< the first of them
  Clock::time_point since_;
  Clock::time_point nextWake_; ///< in case that somebody has stopped the process
};

/// Checks files and waits for it; the inspections in their order.
std::vector<Inspection> inspectAll(ImageInspector& inspector, const std::vector<Path>& files,
                                   bool refuseFlat);

} // namespace trovik
