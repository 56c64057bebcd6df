#include "trovik/replay/ReplayText.h"

#include "trovik/reports/AttemptText.h"
#include "trovik/text/LogTail.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <deque>

namespace trovik {
namespace {

using Fate = LineAccount::Fate;

constexpr std::size_t numberWidth = 6;
constexpr std::size_t fateWidth = 13; // "ignored error"
constexpr std::size_t textColumn = numberWidth + 2 + fateWidth + 2;
constexpr std::size_t contextLines = 2; // around an error, and at the end of a bad log

Colour colourOf(Fate fate) {
  switch (fate) {
  case Fate::Image:
    return Colour::Bold;
  case Fate::Success:
    return Colour::Green;
  case Fate::Error:
    return Colour::Red;
  case Fate::Dropped:
  case Fate::IgnoredError:
    return Colour::Yellow;
  case Fate::Ordinary:
    break;
  }
  return Colour::Faint;
}

class TextPrinter final : public ReplayPrinter {
public:
  TextPrinter(Console& console, ReplayFacts facts, bool all)
      : console_(console), facts_(std::move(facts)), all_(all) {}

  void line(const ReplayedLine& line) override {
    const Fate fate = line.account.What;
    if (all_) {
      add(line.number, fate, line.text);
    } else if (fate == Fate::Ordinary) {
      ordinary(line);
      return;
    } else {
      telling(line);
    }
    if (fate != Fate::Ordinary) {
      addReason(line.account);
    }
  }

  void end(const ReplayResult& result) override {
    if (!all_ && !result.good && !result.decidingLine) {
      printKept(); // what the program said last
    }
    if (result.lines > last_ && !all_ && last_ > 0) {
      gap(result.lines + 1);
    }
    addResult(result);
    console_.print(text_);
    text_.clear();
  }

private:
  /// A line without any text of the type is shown only near an error.
  void ordinary(const ReplayedLine& line) {
    if (line.text.find_first_not_of(" \t") == std::string_view::npos) {
      last_ += line.number == last_ + 1 ? 1 : 0; // nobody misses it
      return;
    }
    std::string cut(line.text.substr(0, LogTail::lineLimit));
    cut += cut.size() < line.text.size() ? "…" : "";
    if (wanted_ > 0) {
      --wanted_;
      gap(line.number);
      add(line.number, Fate::Ordinary, cut);
      return;
    }
    kept_.emplace_back(line.number, std::move(cut));
    if (kept_.size() > contextLines) {
      kept_.pop_front();
    }
  }

  void telling(const ReplayedLine& line) {
    const Fate fate = line.account.What;
    const bool error = fate == Fate::Error || fate == Fate::IgnoredError;
    if (error) {
      printKept();
    }
    kept_.clear();
    wanted_ = error ? contextLines : 0;
    gap(line.number);
    std::string cut(line.text.substr(0, LogTail::lineLimit));
    cut += cut.size() < line.text.size() ? "…" : "";
    add(line.number, fate, cut);
  }

  void printKept() {
    for (const auto& [number, text] : kept_) {
      gap(number);
      add(number, Fate::Ordinary, text);
    }
    kept_.clear();
  }

  /// Marks that lines before this one are left out.
  void gap(std::size_t next) {
    if (next > last_ + 1) {
      text_ += console_.coloured(Colour::Faint, std::string(numberWidth - 3, ' ') + "...") + '\n';
      reason_.clear();
    }
  }

  void add(std::size_t number, Fate fate, std::string_view line) {
    last_ = number;
    std::string left = std::to_string(number);
    left.insert(0, numberWidth - std::min(numberWidth, left.size()), ' ');
    const bool ordinary = fate == Fate::Ordinary;
    const std::string what = padded(ordinary ? "" : nameOf(fate), fateWidth);
    const std::string shown = console_.shown(line);
    text_ += left + "  " + (ordinary ? what : console_.coloured(colourOf(fate), what)) + "  " +
             (ordinary ? console_.coloured(Colour::Faint, shown) : shown);
    while (!text_.empty() && text_.back() == ' ') {
      text_.pop_back();
    }
    text_ += '\n';
    flush();
  }

  /// By which text, unless the line before said the same.
  void addReason(const LineAccount& account) {
    const std::string reason = reasonText(account);
    if (reason != reason_ && !reason.empty()) {
      text_ += std::string(textColumn, ' ') + reason + '\n';
      reason_ = reason;
    }
  }

  std::string reasonText(const LineAccount& account) const {
    if (account.List == nullptr) {
      return {};
    }
    const auto quoted = [this](const std::string& list, const String& text) {
      return list + " \"" + console_.shown(text) + '"';
    };
    std::string by = quoted(listName(account), account.Text);
    switch (account.What) {
    case Fate::Image:
      return by + (account.Other.empty() ? "" : ", " + quoted("ImageEndText", account.Other));
    case Fate::Dropped:
      return by + (listName(account) == "ImageStartText" ? ", but no name that an ImageEndText ends" : "");
    case Fate::IgnoredError:
      return by + ", though " + quoted("ErrorText", account.Other);
    default:
      return by;
    }
  }

  void flush() {
    if (text_.size() > flushSize) {
      console_.print(text_);
      text_.clear();
    }
  }

  void entry(const char* label, const std::string& text) { text_ += padded(label, 9) + text + '\n'; }

  void addResult(const ReplayResult& result) {
    if (result.lines > 0 && last_ > 0) {
      text_ += '\n';
    }
    entry("log", console_.shown(facts_.log) + "  " + countsText(result));
    if (!result.images.empty()) {
      entry("images", std::to_string(result.images.size()));
      for (const String& image : result.images) {
        text_ += "  " + console_.shown(image) + '\n';
        flush();
      }
    }
    addFiles(result);
    entry("ended", "with " + exitText(facts_.exit) + (facts_.exitTold ? "" : "; --exit tells another end"));
    entry("verdict",
          console_.coloured(result.good ? Colour::Green : Colour::Red, result.good ? "good" : "bad") +
              " for " + console_.shown(facts_.type) + framesText() + ", by " + judgeText(result) +
              (result.decidingLine ? " (line " + std::to_string(*result.decidingLine) + ")" : ""));
    if (!result.note.empty()) {
      entry("note", console_.shown(result.note));
    }
  }

  std::string framesText() const {
    const bool several = facts_.frames.find('-', 1) != std::string::npos;
    return facts_.frames.empty() ? "" : (several ? ", frames " : ", frame ") + facts_.frames;
  }

  static std::string judgeText(const ReplayResult& result) {
    if (result.rule != VerdictRule::Result) {
      return ruleText(result.rule);
    }
    if (result.decidingLine) {
      return "a success text";
    }
    return result.good || result.note.starts_with("Exit code") ? "its exit code"
                                                               : "the lack of a success text";
  }

  void addFiles(const ReplayResult& result) {
    if (!facts_.files) {
      if (result.expected > 0) {
        entry("files", "not checked; --files does");
      }
      return;
    }
    const auto bad = std::count_if(result.files.begin(), result.files.end(),
                                   [](const FileRecord& file) { return !file.problem.empty(); });
    entry("files", std::to_string(result.files.size()) + ", " + std::to_string(bad) + " not good");
    for (const FileRecord& file : result.files) {
      if (!file.problem.empty()) {
        text_ += "  " + console_.shown(file.path) + "  " +
                 console_.coloured(Colour::Red, console_.shown(file.problem)) + '\n';
        flush();
      }
    }
  }

  static std::string countsText(const ReplayResult& result) {
    std::string text = counted(result.lines, "line");
    std::string fates;
    for (const Fate fate : {Fate::Image, Fate::Dropped, Fate::Success, Fate::Error, Fate::IgnoredError}) {
      const std::size_t count = result.fates.at(static_cast<std::size_t>(fate));
      if (count > 0) {
        const bool plain = fate == Fate::Dropped || fate == Fate::Success;
        fates += (fates.empty() ? ": " : ", ") +
                 (plain ? std::to_string(count) + ' ' + nameOf(fate) : counted(count, nameOf(fate)));
      }
    }
    return text + fates;
  }

  Console& console_;
  ReplayFacts facts_;
  bool all_;
  std::string text_;
  std::size_t last_ = 0; // the line shown last
  std::size_t wanted_ = 0;
  std::deque<std::pair<std::size_t, std::string>> kept_;
  std::string reason_; // of the line shown last
};

} // namespace

std::unique_ptr<ReplayPrinter> replayText(Console& console, const ReplayFacts& facts, bool all) {
  return std::make_unique<TextPrinter>(console, facts, all);
}

} // namespace trovik
