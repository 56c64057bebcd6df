#pragma once

#include "host/foundation/Path.h"
#include "trovik/images/ImageProtocol.h"
#include "trovik/machine/Machine.h"

#include <functional>
#include <optional>

namespace trovik {

/// Checks files: decodes images whole. Answers come later, through the
/// engine's poll loop; the check never blocks it. For one thread.
class ImageInspector {
public:
  using Answer = std::function<void(const Inspection& inspection)>;
  virtual ~ImageInspector() = default;

  /// The answer is called once: from here at the earliest, else from `advance`.
  /// Answers come in any order.
  /// A file that cannot be checked at all (the helper cannot be started)
  /// has a problem that says so.
  virtual void ask(const Path& file, bool refuseFlat, Answer answer) = 0;
  /// Readable (poll) when an answer waits; -1 when none is awaited.
  virtual int descriptor() const = 0;
  /// When `advance` is wanted though nothing is readable: the patience with a
  /// file that takes for ever.
  virtual std::optional<Clock::time_point> deadline() const = 0;
  /// Takes the answers that wait.
  virtual void advance(Clock::time_point now) = 0;
};

} // namespace trovik
