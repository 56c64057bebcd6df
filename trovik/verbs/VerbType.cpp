#include "host/application/JobFactory.h"
#include "host/foundation/StringTokenizer.h"
#include "trovik/jobs/Types.h"
#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>

namespace trovik {
namespace {

std::vector<std::string> flagNames(const ParameterInfo& info) {
  std::vector<std::string> names;
  for (String name : StringTokenizer::Split(FlagsAsText(info.Flags), ',')) {
    names.emplace_back(name.Trim());
  }
  return names;
}

Json parameterJson(const ParameterInfo& info, const std::string& group) {
  Json json = {{"name", info.Name},       {"label", info.Label},     {"group", group},
               {"type", kindName(info)},  {"default", info.Default}, {"help", info.Help},
               {"flags", flagNames(info)}};
  if (info.Minimum) {
    json["minimum"] = *info.Minimum;
  }
  if (info.Maximum) {
    json["maximum"] = *info.Maximum;
  }
  if (!info.Choices.empty()) {
    json["choices"] = std::vector<std::string>(info.Choices.begin(), info.Choices.end());
  }
  if (const FileParameterInfo* file = FileParameterInfo::CastFrom(&info);
      file != nullptr && !file->Filter.empty()) {
    json["filter"] = file->Filter;
  }
  return json;
}

bool isShown(const ParameterInfo& info) {
  return (info.Flags & ParameterInfo::k_Visible) != 0 &&
         (info.Flags & (ParameterInfo::k_Internal | ParameterInfo::k_Deprecated)) == 0;
}

/// The words of a text that may hold line breaks, each line made visible.
std::string shownLines(const Console& console, const std::string& text) {
  std::string out;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    out += (begin == 0 ? "" : "\n") + console.shown(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return out;
}

class Form {
public:
  Form(const Session& session, const UID& type, const JobTypeInfo& info, bool all)
      : console_(session.console()), width_(std::min<std::size_t>(session.console().layoutWidth(), 100)),
        all_(all), type_(type), info_(info) {}

  std::string text() {
    head();
    for (std::size_t i = 0; i < info_.ParamCount(); ++i) {
      parameter(*info_.GetParam(static_cast<unsigned long>(i)));
    }
    for (const CommandInfo& command : info_.Commands()) {
      this->command(command);
    }
    return out_;
  }

private:
  void head() {
    out_ += console_.coloured(Colour::Bold, console_.shown(typeTitle(type_))) + '\n';
    std::vector<std::string> aliases;
    for (const String& alias : info_.Aliases()) {
      if (!alias.empty()) {
        aliases.push_back(console_.shown(alias));
      }
    }
    if (!aliases.empty()) {
      out_ += "also called " + joined(aliases, ", ") + '\n';
    }
    out_ += "ID " + type_.GenString() + '\n';
    for (const String* text : {&info_.Help, &info_.Details}) {
      if (!text->empty()) {
        out_ += '\n' + wrapped(shownLines(console_, *text), width_, 0);
      }
    }
  }

  void parameter(const ParameterInfo& info) {
    if (info.Type() == ParameterInfo::k_Heading) {
      heading_ = console_.shown(info.Label.empty() ? info.Name : info.Label);
      return;
    }
    if (!all_ && !isShown(info)) {
      return;
    }
    openGroup();
    std::string title = "  " + console_.coloured(Colour::Bold, console_.shown(info.Name));
    if (!info.Label.empty() && info.Label != info.Name) {
      title += "  " + console_.shown(info.Label);
    }
    out_ += title + '\n';
    std::string facts = console_.shown(kindText(info));
    if ((info.Flags & ParameterInfo::k_Required) != 0) {
      facts += "; required";
    }
    if ((info.Flags & ParameterInfo::k_ReadOnly) != 0) {
      facts += "; cannot be set";
    }
    if ((info.Flags & ParameterInfo::k_Deprecated) != 0) {
      facts += "; deprecated";
    }
    out_ += wrapped(facts, width_, margin);
    if (!info.Default.empty()) {
      out_ += wrapped("default: " + console_.shown(info.Default), width_, margin);
    }
    if (all_) {
      out_ += wrapped("flags: " + (info.Flags == 0 ? "none" : std::string(FlagsAsText(info.Flags))), width_,
                      margin);
    }
    if (!info.Help.empty()) {
      out_ += wrapped(shownLines(console_, info.Help), width_, margin);
    }
  }

  void command(const CommandInfo& command) {
    if (!commandsOpen_) {
      commandsOpen_ = true;
      heading_ = "Commands";
      openGroup();
    }
    std::string title = "  " + console_.coloured(Colour::Bold, console_.shown(command.Name));
    if (!command.Label.empty() && command.Label != command.Name) {
      title += "  " + console_.shown(command.Label);
    }
    out_ += title + '\n';
    out_ += wrapped("runs: " + console_.shown(command.Command), width_, margin);
    if (!command.Help.empty()) {
      out_ += wrapped(shownLines(console_, command.Help), width_, margin);
    }
  }

  void openGroup() {
    if (!heading_.empty()) {
      out_ += '\n' + console_.coloured(Colour::Bold, heading_) + '\n';
      heading_.clear();
      any_ = true;
    } else if (!any_) {
      out_ += '\n';
      any_ = true;
    }
  }

  static constexpr std::size_t margin = 6;
  const Console& console_;
  std::size_t width_;
  bool all_;
  const UID& type_;
  const JobTypeInfo& info_;
  std::string heading_; // of a group that has shown nothing yet
  bool any_ = false;
  bool commandsOpen_ = false;
  std::string out_;
};

Json typeJson(const UID& type, const JobTypeInfo& info) {
  Json json = jsonOfKind("type");
  json["id"] = type.GenString();
  json["name"] = info.Name;
  json["aliases"] = std::vector<std::string>(info.Aliases().begin(), info.Aliases().end());
  json["help"] = info.Help;
  json["details"] = info.Details;
  json["enabled"] = info.Enabled;
  json["parameters"] = Json::array();
  std::string group;
  for (std::size_t i = 0; i < info.ParamCount(); ++i) {
    const ParameterInfo& parameter = *info.GetParam(static_cast<unsigned long>(i));
    if (parameter.Type() == ParameterInfo::k_Heading) {
      group = parameter.Label.empty() ? parameter.Name : parameter.Label;
    } else {
      json["parameters"].push_back(parameterJson(parameter, group));
    }
  }
  json["commands"] = Json::array();
  for (const CommandInfo& command : info.Commands()) {
    json["commands"].push_back({{"name", command.Name},
                                {"label", command.Label},
                                {"help", command.Help},
                                {"command", command.Command}});
  }
  return json;
}

} // namespace

int describeType(Session& session, const TypeOptions& options) {
  const UID type = findType(*options.type);
  const JobTypeInfo& info = *JobFactory::s_JobFactory->GetTypeInfo(type, false);
  session.console().print(options.json ? jsonDocument(typeJson(type, info))
                                       : Form(session, type, info, options.all).text());
  return exitGood;
}

} // namespace trovik
