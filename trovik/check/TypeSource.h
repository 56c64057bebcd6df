#pragma once

#include "host/foundation/IniFile.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace trovik {

/// One type file as it is checked: its bytes, read once, and their parse.
class TypeSource {
public:
  /// `shown` is the name that messages have; `path` the absolute file, empty
  /// for a text that is no file.
  TypeSource(std::string shown, Path path, std::string text);

  /// Reads a file. Where it cannot be read the reason is in problem().
  static TypeSource read(std::string shown, const Path& path);

  const std::string& shown() const { return shown_; }
  const Path& path() const { return path_; }
  const std::string& text() const { return text_; }
  const std::optional<std::string>& problem() const { return problem_; }
  IniFile& ini() const { return *ini_; }

  /// A line without its end and without the mark at the file's beginning; from
  /// 1, empty beyond the last.
  std::string_view line(std::size_t number) const;

private:
  std::string shown_;
  Path path_;
  std::string text_;
  std::optional<std::string> problem_;
  std::unique_ptr<IniFile> ini_;
};

/// Calls `use` with a name by which this process can open a file that holds
/// the text; the file has no other name and goes with the call. Raises
/// Exception* where the system has no room for it.
void withTemporaryFile(std::string_view text, const std::function<void(const Path& file)>& use);

} // namespace trovik
