#include "tests/trovik/check/CheckTest.h"

#include "trovik/check/DiagnosticText.h"

#include <regex>

extern const char* const MODULE_DIRECTORY;

namespace trovik {

ModuleLoader& CheckTest::modules() {
  static ModuleLoader loader;
  static const int loaded = loader.LoadWithoutTypeFiles({Path(MODULE_DIRECTORY)});
  EXPECT_GT(loaded, 0) << "there is no module in " << MODULE_DIRECTORY;
  return loader;
}

std::vector<Diagnostic> CheckTest::problems(const std::string& text) {
  TypeChecker checker(modules(), false);
  return checker.check(TypeSource("sketch.tvx", Path(), text), KnownTypes());
}

std::string CheckTest::printed(const std::string& text) {
  const Console console([](std::string_view) {}, [](std::string_view) {}, ConsoleTraits(),
                        [] { return 80U; });
  const TypeSource source("sketch.tvx", Path(), text);
  std::string out;
  for (const Diagnostic& problem : problems(text)) {
    out += diagnosticText(console, source, problem, 80);
  }
  static const std::regex id("such as ID=[0-9a-f-]{36}");
  return std::regex_replace(out, id, "such as ID=FRESH");
}

} // namespace trovik
