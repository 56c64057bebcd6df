#pragma once

#include "tests/trovik/queue/QueueTest.h"
#include "trovik/verbs/Session.h"

#include <string>
#include <vector>

namespace trovik {

/// A verb's outputs, in memory.
struct Printed {
  int code = 0;
  std::string out;
  std::string error;
};

/// A queue of its own, and verbs called on it as the program does.
class VerbTest : public QueueTest {
protected:
  using Verb = int (*)(Session& session);

  VerbTest();

  Options optionsFor(const std::vector<std::string>& jobs = {}) const;
  /// Calls the verb with outputs that are pipes, or a terminal of 80 columns.
  static Printed call(Verb verb, const Options& options, bool terminal = false);
  /// The same; what differs from run to run is written as DIR, DATE and TIME.
  Printed steady(Verb verb, const Options& options, bool terminal = false) const;

  /// Works all that is ready: what `failing` tells of a frame is its failure,
  /// empty for a good one. Each work takes two seconds for each of its frames
  /// and leaves "/out/FRAME.png".
  void workOff(const std::function<std::string(int frame)>& failing = {});
  /// A file of a frame as an outcome tells it.
  static FileRecord image(int frame, const std::string& path, const std::string& problem = "");
};

} // namespace trovik
