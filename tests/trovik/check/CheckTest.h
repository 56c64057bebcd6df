#pragma once

#include "trovik/check/TypeChecker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace trovik {

/// Checks texts with the built module, as the verb does; nothing is looked for
/// on this machine.
class CheckTest : public testing::Test {
protected:
  /// The first three lines of a type file.
  static constexpr const char* head = "[Module]\nID=11111111-2222-3333-4444-555555555555\nName=Sketch\n";
  /// Five lines that are a type by themselves.
  inline static const std::string plain =
      std::string(head) + "Command=$(ActualScene)\nImageStartText=saved:\n";
  /// Eight lines, the last of which begins the definition of the parameter Depth.
  inline static const std::string depth =
      std::string(head) +
      "Command=$(ActualScene) $(Depth)\nImageStartText=saved:\n[PrimaryParameters]\n1=Depth\n[Depth]\n";

  static ModuleLoader& modules();

  static std::vector<Diagnostic> problems(const std::string& text);

  /// All that is printed about a file "sketch.tvx" in 80 columns; IDs that are
  /// offered are written FRESH.
  static std::string printed(const std::string& text);
};

} // namespace trovik
