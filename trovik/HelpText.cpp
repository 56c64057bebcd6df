#include "trovik/HelpText.h"

#include "trovik/Text.h"
#include "trovik/VerbOptions.h"

#include <CLI/CLI.hpp>

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

std::string optionName(const CLI::Option& option) {
  std::string names;
  for (const std::string& name : option.get_snames()) {
    names += "-" + name + ", ";
  }
  for (const std::string& name : option.get_lnames()) {
    names += "--" + name + ", ";
  }
  names.resize(names.size() - std::min<std::size_t>(2, names.size()));
  // Flags have a type of 0 items and show none.
  const std::string type = option.get_items_expected_max() == 0 ? std::string() : option.get_type_name();
  return type.empty() ? names : names + ' ' + type;
}

} // namespace

std::string helpText(const CLI::App& app, std::size_t width) {
  const bool isVerb = app.get_parent() != nullptr;
  const std::vector<const CLI::App*> verbs = app.get_subcommands(isListed);
  std::vector<const CLI::Option*> positionals;
  std::vector<std::string> groups;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) {
      positionals.push_back(option);
    } else if (std::find(groups.begin(), groups.end(), option->get_group()) == groups.end()) {
      groups.push_back(option->get_group());
    }
  }
  // A verb's own options come before the common ones.
  std::stable_partition(groups.begin(), groups.end(),
                        [](const std::string& group) { return group == "Options"; });

  std::string usage = "usage: trovik";
  usage += isVerb ? ' ' + app.get_name() : std::string(" VERB");
  for (const CLI::Option* option : positionals) {
    usage += ' ' + option->get_type_name();
  }
  std::string text = usage + " [options]\n\n" + wrapped(app.get_description(), width, 0);
  if (!positionals.empty()) {
    text += '\n';
    for (const CLI::Option* option : positionals) {
      text += entry(option->get_name(), option->get_description(), width);
    }
  }
  std::string verbGroup;
  for (const CLI::App* verb : verbs) {
    if (verb->get_group() != verbGroup) {
      verbGroup = verb->get_group();
      text += '\n' + verbGroup + ":\n";
    }
    text += entry(verb->get_name(), verb->get_description(), width);
  }
  for (const std::string& group : groups) {
    text += '\n' + group + ":\n";
    for (const CLI::Option* option : app.get_options()) {
      if (!option->get_positional() && option->get_group() == group) {
        text += entry(optionName(*option), option->get_description(), width);
      }
    }
  }
  if (!app.get_footer().empty()) {
    text += '\n' + app.get_footer() + '\n';
  }
  return text;
}

} // namespace trovik
