#include "trovik/Completion.h"

#include "host/foundation/String.h"
#include "trovik/VerbOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <set>

// The words are walked as the parser would read them, but with patience: what
// is wrong in earlier words must not keep a user from finding the next one.

namespace trovik {
namespace {

bool takesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

bool mayRepeat(const CLI::Option& option) {
  return option.get_items_expected_max() > 1 || option.check_name("--verbose");
}

/// The form of a value as the help shows it, without the marks of what is
/// optional or repeated: "[JOB]" and "JOB..." are "JOB".
std::string formOf(const CLI::Option& option) {
  std::string form = option.get_type_name();
  std::erase_if(form, [](char c) { return c == '[' || c == ']' || c == '.'; });
  return form;
}

bool startsNoCase(const std::string& text, const std::string& start) {
  return text.size() >= start.size() && String::EqualNoCase(text.substr(0, start.size()), start);
}

class Line {
public:
  Line(const std::vector<std::string>& words, const CompletionSources& sources)
      : sources_(sources), last_(words.empty() ? std::string() : words.back()) {
    std::string helpVerb;
    declareVerbs(program_, declared_, helpVerb);
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
      const CLI::Option* option = find(last_.substr(0, equals));
      return option == nullptr || !takesValue(*option)
                 ? Completions()
                 : valuesFor(*option, last_.substr(0, equals + 1), last_.substr(equals + 1));
    }
    if (verb_ == nullptr) {
      return verbs();
    }
    const CLI::Option* option = positional();
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
      if (const CLI::Option* option = find(word.substr(0, equals)); option != nullptr) {
        given_.insert(option);
        if (takesValue(*option) && equals == word.size()) {
          wanting_ = option;
        } else if (equals < word.size()) {
          note(*option, word.substr(equals + 1));
        }
      }
    } else if (verb_ == nullptr) {
      const auto found =
          program_.get_subcommands([&](const CLI::App* app) { return app->get_name() == word; });
      verb_ = found.empty() ? nullptr : found.front();
      lost_ = found.empty();
    } else {
      if (const CLI::Option* option = positional(); option != nullptr && formOf(*option) == "TYPE") {
        found_.type = word;
      }
      ++places_;
    }
  }

  /// Keeps what a look at the installation depends on.
  void note(const CLI::Option& option, const std::string& value) {
    for (const auto& [name, target] :
         {std::pair{"--module-path", &found_.modulePath}, std::pair{"--settings", &found_.settings},
          std::pair{"--options", &found_.options}, std::pair{"--state", &found_.state}}) {
      if (option.check_name(name)) {
        *target = value;
      }
    }
  }

  const CLI::Option* find(const std::string& name) const {
    const CLI::Option* option = verb_ == nullptr ? nullptr : verb_->get_option_no_throw(name);
    return option == nullptr ? program_.get_option_no_throw(name) : option;
  }

  /// The argument whose place the next word has.
  const CLI::Option* positional() const {
    std::vector<const CLI::Option*> all;
    for (const CLI::Option* option : verb_->get_options()) {
      if (option->get_positional()) {
        all.push_back(option);
      }
    }
    if (places_ < all.size()) {
      return all[places_];
    }
    return !all.empty() && all.back()->get_items_expected_max() > 1 ? all.back() : nullptr;
  }

  Completions verbs() const {
    std::vector<Candidate> candidates;
    if (!lost_) {
      for (const CLI::App* verb : program_.get_subcommands(isListed)) {
        candidates.push_back({verb->get_name(), verb->get_description()});
      }
    }
    return matching(std::move(candidates), "", last_);
  }

  Completions options() const {
    std::vector<Candidate> candidates;
    const CLI::App& app = verb_ == nullptr ? program_ : *verb_;
    for (const CLI::Option* option : app.get_options()) {
      if (!option->get_positional() && (!given_.contains(option) || mayRepeat(*option))) {
        candidates.push_back({"--" + option->get_lnames().front(), option->get_description()});
      }
    }
    return matching(std::move(candidates), "", last_);
  }

  Completions valuesFor(const CLI::Option& option, const std::string& before,
                        const std::string& start) const {
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
    if (!found_.type) {
      return {};
    }
    const std::size_t equals = start.find('=');
    if (equals == std::string::npos) {
      return matching(sources_.parameters(found_, *found_.type), before, start);
    }
    Completions values = sources_.values(found_, *found_.type, start.substr(0, equals));
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

  CLI::App program_;
  Options declared_; ///< the parser's, unused
  const CompletionSources& sources_;
  std::string last_;
  Options found_;
  const CLI::App* verb_ = nullptr;
  bool lost_ = false;                    ///< there is a word in the verb's place that is none
  const CLI::Option* wanting_ = nullptr; ///< whose value comes next
  std::set<const CLI::Option*> given_;
  std::size_t places_ = 0; ///< arguments by their place so far
  bool ended_ = false;     ///< "--" was seen
};

} // namespace

Completions completionsOf(const std::vector<std::string>& words, const CompletionSources& sources) {
  return Line(words, sources).complete();
}

} // namespace trovik
