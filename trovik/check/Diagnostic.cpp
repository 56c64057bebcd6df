#include "trovik/check/Diagnostic.h"

#include <algorithm>
#include <tuple>

namespace trovik {

void Findings::add(Severity severity, const char* rule, const Span& span, const std::string& message,
                   const std::string& hint) {
  if (full() && (severity == Severity::Warning || errors_ > 0)) {
    return; // the verdict stands
  }
  errors_ += severity == Severity::Error ? 1 : 0;
  const auto length = static_cast<std::uint32_t>(span.length);
  found_.push_back(
      {severity, rule, span.place.Line, span.place.Column, span.place.Column + length, message, hint});
}

bool Findings::hasRule(std::string_view rule) const {
  return std::any_of(found_.begin(), found_.end(),
                     [rule](const Diagnostic& diagnostic) { return diagnostic.rule == rule; });
}

std::vector<Diagnostic> Findings::take() {
  std::stable_sort(found_.begin(), found_.end(), [](const Diagnostic& left, const Diagnostic& right) {
    return std::tie(left.line, left.column) < std::tie(right.line, right.column);
  });
  const auto same = [](const Diagnostic& left, const Diagnostic& right) {
    return std::tie(left.line, left.column, left.rule, left.message) ==
           std::tie(right.line, right.column, right.rule, right.message);
  };
  found_.erase(std::unique(found_.begin(), found_.end(), same), found_.end());
  return std::move(found_);
}

} // namespace trovik
