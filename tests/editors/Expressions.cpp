#include "tests/editors/Expressions.h"

#include <oniguruma.h>

#include <memory>
#include <stdexcept>

// Apart from the tests: the library and <regex.h> declare the same names.

namespace {

struct Free {
  void operator()(OnigRegion* region) const { onig_region_free(region, 1); }
  void operator()(regex_t* regex) const { onig_free(regex); }
};

const OnigUChar* bytes(const char* text) {
  return reinterpret_cast<const OnigUChar*>(text);
}

} // namespace

Match searchExpression(const std::string& expression, const std::string& text, std::size_t begin,
                       std::size_t end) {
  OnigEncoding encodings[] = {ONIG_ENCODING_UTF8};
  onig_initialize(encodings, 1);
  regex_t* made = nullptr;
  OnigErrorInfo info{};
  const int code = onig_new(&made, bytes(expression.data()), bytes(expression.data() + expression.size()),
                            ONIG_OPTION_CAPTURE_GROUP, ONIG_ENCODING_UTF8, ONIG_SYNTAX_DEFAULT, &info);
  if (code != ONIG_NORMAL) {
    throw std::runtime_error("does not compile: " + expression);
  }
  const std::unique_ptr<regex_t, Free> regex(made);
  const std::unique_ptr<OnigRegion, Free> region(onig_region_new());
  const char* start = text.data();
  const auto found = onig_search(regex.get(), bytes(start), bytes(start + end), bytes(start + begin),
                                 bytes(start + end), region.get(), ONIG_OPTION_NONE);
  Match match;
  for (int i = 0; found >= 0 && i < region->num_regs; ++i) {
    match.emplace_back(region->beg[i], region->end[i]);
  }
  return match;
}
