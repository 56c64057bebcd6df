#include "host/application/JobFactory.h"
#include "trovik/jobs/Types.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>

namespace trovik {
namespace {

std::vector<std::string> aliasesOf(const JobTypeInfo& info) {
  std::vector<std::string> aliases;
  std::copy_if(info.Aliases().begin(), info.Aliases().end(), std::back_inserter(aliases),
               [](const String& alias) { return !alias.empty(); });
  return aliases;
}

Json summaryOf(const UID& type, const JobTypeInfo& info) {
  return {{"id", type.GenString()},
          {"name", info.Name},
          {"aliases", aliasesOf(info)},
          {"help", info.Help},
          {"enabled", info.Enabled}};
}

struct TypeRow {
  std::string name;
  std::string aliases;
  std::string help;
};

} // namespace

int listTypes(Session& session, const TypesOptions& options) {
  Console& console = session.console();
  const bool all = options.all;
  Json document = jsonOfKind("types");
  document["types"] = Json::array();
  std::vector<TypeRow> rows;
  std::size_t hidden = 0;
  for (const UID& type : JobFactory::s_JobFactory->Types()) {
    const JobTypeInfo& info = *JobFactory::s_JobFactory->GetTypeInfo(type, false);
    if (!info.Enabled && !all) {
      ++hidden;
      continue;
    }
    document["types"].push_back(summaryOf(type, info));
    std::string help = info.Help.substr(0, info.Help.find('\n'));
    rows.push_back({console.shown(typeTitle(type)) + (info.Enabled ? "" : " (off)"),
                    console.shown(joined(aliasesOf(info), ", ")), console.shown(help)});
  }
  if (options.json) {
    console.print(jsonDocument(document));
    return exitGood;
  }
  if (rows.empty() && hidden == 0) {
    throw UsageError{"no job types are installed",
                     "put .tvx files into a directory of the module path; \"trovik types -v\" shows it"};
  }
  if (rows.empty()) {
    console.print(
        (hidden == 1 ? std::string("the only type is") : "all " + counted(hidden, "type") + " are") +
        " switched off; \"trovik types --all\" lists " + (hidden == 1 ? "it" : "them") + '\n');
    return exitGood;
  }
  TypeRow heading{"TYPE", "ALIASES", "WHAT IT DOES"};
  std::size_t nameWidth = displayWidth(heading.name);
  std::size_t aliasWidth = displayWidth(heading.aliases);
  for (const TypeRow& row : rows) {
    nameWidth = std::max(nameWidth, displayWidth(row.name));
    aliasWidth = std::max(aliasWidth, displayWidth(row.aliases));
  }
  if (console.traits().terminal) {
    // The help keeps at least half of a narrow terminal.
    nameWidth = std::min(nameWidth, console.width() / 4);
    aliasWidth = std::min(aliasWidth, console.width() / 4);
  }
  std::string table;
  const auto append = [&](const TypeRow& row, Colour colour) {
    std::string line = padded(cutToWidth(row.name, nameWidth), nameWidth) + "  " +
                       padded(cutToWidth(row.aliases, aliasWidth), aliasWidth) + "  " + row.help;
    if (console.traits().terminal) {
      line = cutToWidth(line, console.width());
    }
    line.erase(line.find_last_not_of(' ') + 1);
    table += console.coloured(colour, line) + '\n';
  };
  append(heading, Colour::Bold);
  for (const TypeRow& row : rows) {
    append(row, Colour::Plain);
  }
  console.print(table);
  if (hidden > 0 && console.traits().terminal) {
    console.print(console.coloured(Colour::Faint, counted(hidden, "type") + " more with --all") + '\n');
  }
  return exitGood;
}

} // namespace trovik
