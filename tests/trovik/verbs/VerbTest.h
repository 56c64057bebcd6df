#pragma once

#include "tests/trovik/queue/QueueTest.h"
#include "trovik/verbs/Verbs.h"

#include <functional>
#include <optional>
#include <string>
#include <type_traits>
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
  VerbTest();

  /// The options of any verb, for these jobs in this queue.
  struct Wanted {
    std::string state;
    std::vector<std::string> jobs;
    template <typename Options> operator Options() const {
      Options options;
      options.state = state;
      if constexpr (requires { options.jobs; }) {
        options.jobs = jobs;
      } else if constexpr (requires { options.job; }) {
        options.job = jobs.empty() ? std::nullopt : std::optional(jobs.front());
      }
      return options;
    }
  };
  Wanted optionsFor(const std::vector<std::string>& jobs = {}) const { return {directory.path(), jobs}; }
  /// Calls the verb with outputs that are pipes, or a terminal of 80 columns.
  template <typename Options>
  static Printed call(int (*verb)(Session&, const Options&), const std::type_identity_t<Options>& options,
                      bool terminal = false) {
    return printedBy(options, terminal, [&](Session& session) { return verb(session, options); });
  }
  /// The same; what differs from run to run is written as DIR, DATE and TIME.
  template <typename Options>
  Printed steady(int (*verb)(Session&, const Options&), const std::type_identity_t<Options>& options,
                 bool terminal = false) const {
    return steadied(call(verb, options, terminal));
  }

  /// Works all that is ready: what `failing` tells of a frame is its failure,
  /// empty for a good one. Each work takes two seconds for each of its frames
  /// and leaves "/out/FRAME.png".
  void workOff(const std::function<std::string(int frame)>& failing = {});
  /// A file of a frame as an outcome tells it.
  static FileRecord image(int frame, const std::string& path, const std::string& problem = "");

private:
  static Printed printedBy(const CommonOptions& options, bool terminal,
                           const std::function<int(Session& session)>& verb);
  Printed steadied(Printed printed) const;
};

} // namespace trovik
