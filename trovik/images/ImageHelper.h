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
  /// Has a file checked, and a small picture of it written, at most `room`
  /// pixels wide and high. There is one where the file is an image without a
  /// problem.
  void draw(const Path& file, const Path& picture, int room, Answer answer);
  /// Those that were asked, and have no answer yet.
  std::size_t waiting() const { return questions_.size(); }
  /// Ends the program until it is needed again; not while an answer is awaited.
  void rest();
  int descriptor() const override;
  std::optional<Clock::time_point> deadline() const override;
  void advance(Clock::time_point now) override;

private:
  struct Question {
    CheckRequest request;
    Answer answer;
    int tries = 0;
  };

  void ask(CheckRequest request, Answer answer);
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
