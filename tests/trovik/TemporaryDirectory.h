#pragma once

#include "trovik/text/UsageError.h"

#include <string>

namespace trovik {

/// A directory of its own for a test, removed with all that is in it.
class TemporaryDirectory {
public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + '/' + name; }
  /// Writes a file, and the directories above it; returns its path.
  std::string write(const std::string& name, const std::string& content) const;
  std::string makeDirectory(const std::string& name) const;

private:
  std::string path_;
};

std::string readFile(const std::string& path);

/// The message and hint with which an action is refused; empty when it is not.
struct Refusal {
  std::string message;
  std::string hint;
};
template <typename Action> Refusal refusalOf(Action action) {
  try {
    action();
  } catch (const UsageError& error) {
    return {error.message, error.hint};
  }
  return {};
}
} // namespace trovik
