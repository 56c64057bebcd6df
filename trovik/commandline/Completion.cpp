#include "trovik/commandline/Completion.h"

#include "host/foundation/String.h"

#include <algorithm>
#include <set>

// The words are walked as the parser would read them, but with patience: what
// is wrong in earlier words must not keep a user from finding the next one.

namespace trovik {
namespace {

/// The form of a value as the help shows it, without the marks of what is
/// optional or repeated: "[JOB]" and "JOB..." are "JOB".
std::string formOf(const Argument& option) {
  std::string form = option.form;
  std::erase_if(form, [](char c) { return c == '[' || c == ']' || c == '.'; });
  return form;
}

bool startsNoCase(const std::string& text, const std::string& start) {
  return text.size() >= start.size() && String::EqualNoCase(text.substr(0, start.size()), start);
}

class Line {
public:
  Line(const CommandForm& form, const std::vector<std::string>& words, const CompletionSources& sources)
      : form_(form), sources_(sources), last_(words.empty() ? std::string() : words.back()) {
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
      take(words[i]);
    }
  }

  Completions complete() {
    if (wanting_ != nullptr) {
      return valuesFor(*wanting_, "", last_);
    }
    if (!ended_ && last_.starts_with("-")) {
      const std::size_t equals = last_.find('=');
      if (equals == std::string::npos) {
        return options();
      }
      const Argument* option = find(last_.substr(0, equals));
      return option == nullptr || !option->takesValue()
                 ? Completions()
                 : valuesFor(*option, last_.substr(0, equals + 1), last_.substr(equals + 1));
    }
    if (verb_ == nullptr) {
      return verbs();
    }
    const Argument* option = positional();
    if (option != nullptr) {
      return valuesFor(*option, "", last_);
    }
    return last_.empty() && !ended_ ? options() : Completions();
  }

private:
  void take(const std::string& word) {
    if (wanting_ != nullptr) {
      note(*wanting_, word);
      wanting_ = nullptr;
    } else if (!ended_ && word == "--") {
      ended_ = true;
    } else if (!ended_ && word.size() > 1 && word.front() == '-') {
      const std::size_t equals = std::min(word.find('='), word.size());
      if (const Argument* option = find(word.substr(0, equals)); option != nullptr) {
        given_.insert(option);
        if (option->takesValue() && equals == word.size()) {
          wanting_ = option;
        } else if (equals < word.size()) {
          note(*option, word.substr(equals + 1));
        }
      }
    } else if (verb_ == nullptr) {
      verb_ = form_.find(word);
      lost_ = verb_ == nullptr;
    } else {
      if (const Argument* option = positional(); option != nullptr && formOf(*option) == "TYPE") {
        type_ = word;
      }
      ++places_;
    }
  }

  /// Keeps what the state of the installation depends on.
  void note(const Argument& option, const std::string& value) {
    for (const auto& [name, target] :
         {std::pair{"--module-path", &found_.modulePath}, std::pair{"--settings", &found_.settings},
          std::pair{"--options", &found_.options}, std::pair{"--state", &found_.state}}) {
      if (option.name == name) {
        *target = value;
      }
    }
  }

  const Argument* find(const std::string& name) const {
    const auto in = [&](const Verb& verb) -> const Argument* {
      for (const Argument& argument : verb.arguments) {
        if (argument.isOption() &&
            (argument.name == name || (argument.letter != 0 && name == std::string{'-', argument.letter}))) {
          return &argument;
        }
      }
      return nullptr;
    };
    const Argument* option = verb_ == nullptr ? nullptr : in(*verb_);
    return option == nullptr ? in(form_.program) : option;
  }

  /// The argument whose place the next word has.
  const Argument* positional() const {
    std::vector<const Argument*> all;
    for (const Argument& argument : verb_->arguments) {
      if (!argument.isOption()) {
        all.push_back(&argument);
      }
    }
    if (places_ < all.size()) {
      return all[places_];
    }
    return !all.empty() && all.back()->mayRepeat() ? all.back() : nullptr;
  }

  Completions verbs() const {
    std::vector<Candidate> candidates;
    if (!lost_) {
      for (const Verb& verb : form_.verbs) {
        if (verb.isListed()) {
          candidates.push_back({verb.name, verb.description});
        }
      }
    }
    return matching(std::move(candidates), "", last_);
  }

  Completions options() const {
    std::vector<Candidate> candidates;
    for (const Argument& option : (verb_ == nullptr ? form_.program : *verb_).arguments) {
      if (option.isOption() && (!given_.contains(&option) || option.mayRepeat())) {
        candidates.push_back({option.name, option.description});
      }
    }
    return matching(std::move(candidates), "", last_);
  }

  Completions valuesFor(const Argument& option, const std::string& before, const std::string& start) const {
    const std::string form = formOf(option);
    if (form == "VERB") {
      return verbs();
    }
    if (form == "TYPE") {
      if (start.find('/') != std::string::npos) {
        return {{}, Wanted::Files, before}; // of verbs that take a type's file as well
      }
      return matching(sources_.types(found_), before, start);
    }
    if (form == "JOB") {
      return matching(sources_.jobs(found_), before, start);
    }
    if (form == "WHEN") {
      return matching({{"auto", "Colours on terminals"}, {"always", ""}, {"never", ""}}, before, start);
    }
    if (form == "ENGINE") {
      return matching({{"local", "This machine"}, {"slurm", "A cluster"}}, before, start);
    }
    if (form == "NAME=VALUE") {
      return setting(before, start);
    }
    if (form == "DIRS") {
      const std::size_t colon = start.rfind(':');
      return {{}, Wanted::Folders, before + (colon == std::string::npos ? "" : start.substr(0, colon + 1))};
    }
    if (form == "DIR") {
      return {{}, Wanted::Folders, before};
    }
    if (form == "FILE" || form == "SCENE" || form == "LOG" || form == "PROGRAM") {
      return {{}, Wanted::Files, before};
    }
    return {};
  }

  Completions setting(const std::string& before, const std::string& start) const {
    if (!type_) {
      return {};
    }
    const std::size_t equals = start.find('=');
    if (equals == std::string::npos) {
      return matching(sources_.parameters(found_, *type_), before, start);
    }
    Completions values = sources_.values(found_, *type_, start.substr(0, equals));
    values.before = before + start.substr(0, equals + 1);
    if (values.wanted == Wanted::Nothing) {
      return matching(std::move(values.candidates), values.before, start.substr(equals + 1));
    }
    return values;
  }

  static Completions matching(std::vector<Candidate> candidates, const std::string& before,
                              const std::string& start) {
    const auto matches = [&](bool anyCase) {
      return [&start, anyCase](const Candidate& candidate) {
        return anyCase ? startsNoCase(candidate.word, start) : candidate.word.starts_with(start);
      };
    };
    const bool anyCase = std::none_of(candidates.begin(), candidates.end(), matches(false));
    std::erase_if(candidates, std::not_fn(matches(anyCase)));
    for (Candidate& candidate : candidates) {
      candidate.word.insert(0, before);
    }
    return {std::move(candidates), Wanted::Nothing, {}};
  }

  const CommandForm& form_;
  const CompletionSources& sources_;
  std::string last_;
  CommonOptions found_;
  std::optional<std::string> type_;
  const Verb* verb_ = nullptr;
  bool lost_ = false;                 ///< there is a word in the verb's place that is none
  const Argument* wanting_ = nullptr; ///< whose value comes next
  std::set<const Argument*> given_;
  std::size_t places_ = 0; ///< arguments by their place so far
  bool ended_ = false;     ///< "--" was seen
};

} // namespace

Completions completionsOf(const CommandForm& form, const std::vector<std::string>& words,
                          const CompletionSources& sources) {
  return Line(form, words, sources).complete();
}

} // namespace trovik
