#include "trovik/commandline/HelpText.h"

#include "trovik/text/Text.h"

#include <algorithm>
#include <vector>

namespace trovik {
namespace {

constexpr std::size_t column = 22; // where descriptions begin

/// "  --range FRAMES      the frames ...", the description in a column.
std::string entry(const std::string& left, const std::string& description, std::size_t width) {
  std::string right = wrapped(description, width, column);
  if (left.size() + 3 <= column) {
    right.erase(0, std::min(left.size() + 2, right.size()));
    return "  " + left + right;
  }
  return "  " + left + '\n' + right;
}

std::string optionName(const Argument& option) {
  const std::string names =
      (option.letter == 0 ? "" : std::string{'-', option.letter, ',', ' '}) + option.name;
  return option.form.empty() ? names : names + ' ' + option.form;
}

} // namespace

std::string helpText(const CommandForm& form, const Verb* verb, std::size_t width) {
  const Verb& about = verb == nullptr ? form.program : *verb;
  std::vector<const Argument*> places;
  std::vector<std::string> groups;
  for (const Argument& argument : about.arguments) {
    if (!argument.isOption()) {
      places.push_back(&argument);
    } else if (std::find(groups.begin(), groups.end(), argument.group) == groups.end()) {
      groups.push_back(argument.group);
    }
  }
  // A verb's own options come before the common ones.
  std::stable_partition(groups.begin(), groups.end(),
                        [](const std::string& group) { return group == "Options"; });

  std::string usage = "usage: trovik " + (verb == nullptr ? "VERB" : verb->name);
  for (const Argument* argument : places) {
    usage += ' ' + argument->form;
  }
  std::string text = usage + " [options]\n\n" + wrapped(about.description, width, 0);
  if (!places.empty()) {
    text += '\n';
    for (const Argument* argument : places) {
      text += entry(argument->name, argument->description, width);
    }
  }
  std::string verbGroup;
  for (const Verb& listed : form.verbs) {
    if (verb != nullptr || !listed.isListed()) {
      continue;
    }
    if (listed.group != verbGroup) {
      verbGroup = listed.group;
      text += '\n' + verbGroup + ":\n";
    }
    text += entry(listed.name, listed.description, width);
  }
  for (const std::string& group : groups) {
    text += '\n' + group + ":\n";
    for (const Argument& argument : about.arguments) {
      if (argument.isOption() && argument.group == group) {
        text += entry(optionName(argument), argument.description, width);
      }
    }
  }
  const std::string footer = helpFooter(about.name);
  return footer.empty() ? text : text + '\n' + footer + '\n';
}

} // namespace trovik
