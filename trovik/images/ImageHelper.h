#pragma once

#include "host/foundation/Descriptor.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/HelperProcess.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace trovik {

/// Has files checked by trovik-image, which is started with the first one. When
/// it dies, it is started anew; a file that it dies of twice has a problem, and
/// so has one that it does not come to an end with.
///
/// Where many files wait and cores are idle, more of these programs are started
/// beside the first, each with one file at a time, so that a hostile file takes
/// no other one along. Cores belong to the renderers: the others get a file only
/// while a core is idle, and the kernel runs them only where nobody else wants
/// to run. Since that may be nowhere, one that takes long, or fails in any way,
/// is ended and its file left to the first: that one alone judges such files.
class ImageHelper final : public ImageInspector {
public:
  using Now = std::function<Clock::time_point()>;
  /// How many files may be looked into at a time, while so many programs of ours
  /// may be running.
  using Room = std::function<std::size_t(std::size_t own)>;
  static constexpr std::chrono::seconds defaultPatience{120};
  static std::size_t oneAtATime(std::size_t /*own*/) { return 1; }
  static std::size_t onIdleCores(std::size_t own);

  /// `program` is the path of trovik-image; the patience is with one file.
  explicit ImageHelper(Path program, Now now = Clock::now, Duration patience = defaultPatience,
                       Room room = onIdleCores);
  ~ImageHelper() override;

  void ask(const Path& file, bool refuseFlat, Answer answer) override;
  /// Has a file checked, and a small picture of it written, at most `room`
  /// pixels wide and high. There is one where the file is an image without a
  /// problem.
  void draw(const Path& file, const Path& picture, int room, Answer answer);
  /// Those that were asked, and have no answer yet.
  std::size_t waiting() const { return questions_.size() + underWay(); }
  /// Ends the programs until they are needed again; not while an answer is awaited.
  void rest();
  int descriptor() const override;
  std::optional<Clock::time_point> deadline() const override;
  void advance(Clock::time_point now) override;

private:
  struct Question {
    CheckRequest request;
    Answer answer;
    int tries = 0;         ///< that it did not come to an end with
    bool forFirst = false; ///< what the others do with it says nothing
  };
  using Questions = std::deque<Question>;
  /// A place for one program.
  struct Lane {
    bool first = false;
    std::unique_ptr<HelperProcess> process{};
    bool hasAnswered = false; ///< the process that runs now, at least once
    std::optional<Question> asked{};
    Clock::time_point since{};    ///< of the question, else of the last answer
    Clock::time_point nextWake{}; ///< in case that somebody has stopped the process
  };

  std::size_t underWay() const;
  void ask(CheckRequest request, Answer answer);
  void askFirst();
  void askOthers(std::size_t atWork);
  void start(Lane& lane);
  void give(Lane& lane);
  Questions::iterator firstForAll();
  Question takeNext(const Lane& lane);
  Question take(Lane& lane);
  void advance(Lane& lane, Clock::time_point now);
  void takeLine(Lane& lane, const std::string& line);
  void takeEnd(Lane& lane);
  void leaveToFirst(Lane& lane);
  void finish(Lane& lane, const Inspection& inspection);
  void finish(Lane& lane, const std::string& problem);

  Path program_;
  Now now_;
  Duration patience_;
  Room room_;
  Questions questions_;    ///< that no program was given yet
  std::deque<Lane> lanes_; ///< the first is always there
  Descriptor answers_;     ///< readable (epoll) when any of the asked has something to say
};

/// Checks files and waits for it; the inspections in their order.
std::vector<Inspection> inspectAll(ImageInspector& inspector, const std::vector<Path>& files,
                                   bool refuseFlat);

} // namespace trovik
