// The texts by which output is judged, in the order in which a job looks for
// them in a line: image texts, success texts, error texts, ignore texts. Case
// of letters does not matter to any of them.

#include "host/application/Constants.h"
#include "host/foundation/Path.h"
#include "trovik/check/TypeCheck.h"

#include <algorithm>

namespace trovik {
namespace {

struct JudgingText {
  std::string text;  ///< in lower case
  std::string shown; ///< in quotes
  Span span;
};
using Texts = std::vector<JudgingText>;

/// Texts of a list that are compared with each other; more take their square.
constexpr std::size_t compareLimit = 300;

JudgingText judging(const PlacedText& placed, bool dequote) {
  const std::string text = dequote ? Path(String(placed.text)).Dequote().Text() : String(placed.text);
  return {lowered(text), quotedText(text), placed.span};
}

void tellBlanks(const TypeCheck& check, const PlacedText& list, const PlacedText& piece) {
  const std::size_t begin = piece.span.place.Column - list.span.place.Column;
  const std::string raw = list.text.substr(begin, piece.span.length);
  if (raw.empty() || raw.find('"') != std::string::npos || raw.find_first_not_of(' ') == std::string::npos) {
    return;
  }
  if (raw.front() == ' ' || raw.back() == ' ') {
    check.out.warning("blanks-in-text", piece.span, "the blanks around this text are part of it",
                      "leave them out, or write " + quotedText("\"" + raw + "\"").substr(1, raw.size() + 2) +
                          " where they are meant");
  }
}

/// The texts of a list parameter that a type declares by a key of [Module], by
/// an override, or (with `section`) one an entry.
Texts textsOf(const TypeCheck& check, const char* parameter, const char* section, bool dequote) {
  Texts texts;
  const std::optional<PlacedText> list = check.defaultOf(parameter);
  if (list) {
    for (const PlacedText& piece : piecesOf(*list, ';')) {
      tellBlanks(check, *list, piece);
      texts.push_back(judging(piece, dequote));
    }
    return texts;
  }
  if (section != nullptr) {
    for (const IniFile::EntryView& entry : check.source.ini().Entries(section)) {
      const PlacedText value = entry.Value.empty() ? PlacedText{{}, keyOf(entry).span} : valueOf(entry);
      texts.push_back(judging(value, dequote));
    }
  }
  return texts;
}

bool holds(const std::string& text, const JudgingText& part) {
  return !part.text.empty() && text.find(part.text) != std::string::npos;
}

const JudgingText* firstHeld(const std::string& text, const Texts& parts) {
  const auto found = std::find_if(parts.begin(), parts.end(),
                                  [&text](const JudgingText& part) { return holds(text, part); });
  return found == parts.end() ? nullptr : &*found;
}

void checkBytes(const TypeCheck& check, const Texts& texts) {
  for (const JudgingText& text : texts) {
    const std::size_t odd = text.text.find_first_of("\x1b\r");
    if (odd != std::string::npos) {
      check.out.error("never-matches", text.span,
                      text.text[odd] == '\r'
                          ? "a line ends at a carriage return, so no line holds this text"
                          : "colours are removed before a line is judged, so no line holds "
                            "this text",
                      "leave the control characters out");
    }
  }
}

void checkDoubled(const TypeCheck& check, const Texts& texts) {
  std::map<std::string, std::uint32_t> seen;
  for (const JudgingText& text : texts) {
    const auto [first, isNew] = seen.try_emplace(text.text, text.span.place.Line);
    if (!isNew && !text.text.empty()) {
      check.out.warning("doubled-text", text.span,
                        text.shown + " stands in this list already, in line " + std::to_string(first->second),
                        "capital letters make no difference; leave one of them out");
    }
  }
}

void checkEmpty(const TypeCheck& check, const Texts& texts, Severity severity, const std::string& what) {
  for (const JudgingText& text : texts) {
    if (text.text.empty()) {
      check.out.add(severity, "empty-text", text.span, what, "leave it out");
    }
  }
}

class TextRules {
public:
  explicit TextRules(const TypeCheck& check)
      : check_(check), starts_(textsOf(check, "ImageStartText", nullptr, true)),
        ends_(textsOf(check, "ImageEndText", nullptr, true)),
        notEnds_(textsOf(check, "ImageNotEndText", nullptr, true)),
        successes_(textsOf(check, "SuccessTexts", "SuccessText", true)),
        errors_(textsOf(check, p_ErrorStarts, "ErrorText", false)),
        ignores_(textsOf(check, p_ErrorIgnores, "ErrorIgnore", false)),
        anywhere_(check.effective(p_ErrorDetectPosition).Bool()) {}

  void run() {
    empty();
    for (Texts* texts : {&starts_, &ends_, &notEnds_, &successes_, &errors_, &ignores_}) {
      checkBytes(check_, *texts);
      checkDoubled(check_, *texts);
      texts->resize(std::min(texts->size(), compareLimit));
    }
    images();
    for (const JudgingText& text : successes_) {
      success(text);
    }
    for (const JudgingText& text : errors_) {
      error(text);
    }
    if (errors_.empty() && !ignores_.empty()) {
      check_.out.warning("no-error-text", ignores_.front().span,
                         "there are texts to ignore, but no error texts that they could undo",
                         "write error texts in [ErrorText], or take these out");
    }
  }

private:
  void empty() {
    checkEmpty(check_, starts_, Severity::Error, "an empty image text makes every line an image line");
    // As the last one it says on purpose: else up to the end of the line.
    const bool onPurpose = ends_.size() > 1 && ends_.back().text.empty() && ends_.back().span.length == 2;
    checkEmpty(check_, {ends_.begin(), ends_.end() - (onPurpose ? 1 : 0)}, Severity::Warning,
               "an empty end text is held by every line, at its end");
    checkEmpty(check_, notEnds_, Severity::Error, "an empty not-end text drops every image line");
    checkEmpty(check_, successes_, Severity::Error, "an empty success text makes every run good");
    checkEmpty(check_, errors_, Severity::Warning, "an empty error text is passed over");
    checkEmpty(check_, ignores_, Severity::Warning, "an empty text to ignore is passed over");
  }

  void images() {
    for (const Texts* texts : {&ends_, &notEnds_}) {
      if (starts_.empty() && !texts->empty()) {
        check_.out.warning("no-start-text", texts->front().span,
                           "without ImageStartText no line names an image, and this text does nothing",
                           "write ImageStartText, or take this out");
      }
    }
    for (std::size_t i = 0; i < starts_.size(); ++i) {
      for (std::size_t earlier = 0; earlier < i; ++earlier) {
        if (starts_[i].text != starts_[earlier].text && holds(starts_[i].text, starts_[earlier])) {
          check_.out.warning("shadowed-text", starts_[i].span,
                             "a line that holds " + starts_[i].shown + " holds " + starts_[earlier].shown +
                                 " too, which is looked for first",
                             "write the longer text first");
          break;
        }
      }
    }
  }

  void success(const JudgingText& text) {
    if (const JudgingText* image = firstHeld(text.text, starts_)) {
      check_.out.error("never-reached", text.span,
                       "a line that begins with " + text.shown + " holds the image text " + image->shown +
                           ", so it is never a success line",
                       "choose texts that do not hold each other");
      return;
    }
    for (const JudgingText& shorter : successes_) {
      if (&shorter != &text && !shorter.text.empty() && text.text != shorter.text &&
          text.text.starts_with(shorter.text)) {
        check_.out.warning("shadowed-text", text.span,
                           "a line that begins with " + text.shown + " begins with " + shorter.shown +
                               " too, so this text changes nothing",
                           "leave out one of them");
        return;
      }
    }
    if (firstHeld(text.text, ignores_) != nullptr) {
      return;
    }
    for (const JudgingText& error : errors_) {
      if (!error.text.empty() && (anywhere_ ? holds(text.text, error) : text.text.starts_with(error.text))) {
        check_.out.warning("success-is-error", text.span,
                           "a second line that begins with " + text.shown + " is an error line: it " +
                               (anywhere_ ? "holds " : "begins with ") + error.shown,
                           "make the error text more exact");
        return;
      }
    }
  }

  void error(const JudgingText& text) {
    if (const JudgingText* image = firstHeld(text.text, starts_)) {
      check_.out.error("never-reached", text.span,
                       "a line with " + text.shown + " holds the image text " + image->shown +
                           ", so it is never an error line",
                       "choose texts that do not hold each other");
    } else if (const JudgingText* ignore = firstHeld(text.text, ignores_)) {
      check_.out.error("always-ignored", text.span,
                       "a line with " + text.shown + " holds " + ignore->shown +
                           " of [ErrorIgnore] too, so it is never an error line",
                       "make the text to ignore more exact");
    } else if (!anywhere_) {
      for (const JudgingText& success : successes_) {
        if (!success.text.empty() && text.text.starts_with(success.text)) {
          check_.out.error("never-reached", text.span,
                           "a line that begins with " + text.shown + " begins with the success text " +
                               success.shown + ", which comes first",
                           "make the success text more exact");
          return;
        }
      }
    }
  }

  const TypeCheck& check_;
  Texts starts_;
  Texts ends_;
  Texts notEnds_;
  Texts successes_;
  Texts errors_;
  Texts ignores_;
  bool anywhere_;
};

} // namespace

void checkTexts(const TypeCheck& check) {
  TextRules(check).run();
}

} // namespace trovik
