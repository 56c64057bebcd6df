#include "trovik/jobs/Types.h"

#include "host/application/Job.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Quoting.h"
#include "trovik/machine/Locations.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <cstdio>

namespace trovik {
namespace {

std::string number(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.15g", value);
  return buffer;
}

std::string limits(const ParameterInfo& info) {
  if (info.Minimum && info.Maximum) {
    return ", " + number(*info.Minimum) + " to " + number(*info.Maximum);
  }
  if (info.Minimum) {
    return ", at least " + number(*info.Minimum);
  }
  if (info.Maximum) {
    return ", at most " + number(*info.Maximum);
  }
  return {};
}

} // namespace

UID findType(const std::string& text) {
  const JobFactory& factory = *JobFactory::s_JobFactory;
  const std::vector<UID> found = factory.FindTypes(text);
  if (found.size() == 1) {
    return found.front();
  }
  if (found.empty()) {
    std::vector<String> names;
    for (const UID& type : factory.Types()) {
      const JobTypeInfo* info = factory.GetTypeInfo(type, false);
      names.push_back(info->Name);
      for (const String& alias : info->Aliases()) {
        names.push_back(alias);
      }
    }
    if (names.empty()) {
      throw UsageError{
          "no job types are installed",
          "\"trovik types -v\" shows where they are looked for; add a directory with --module-path"};
    }
    if (const Path file = absolutePath(text); !text.empty() && exists(file) && !IsDirectory(file)) {
      throw UsageError{inQuotes(text) + " is a file and no job type",
                       String::EqualNoCase(file.Extension(), "tvx")
                           ? "name the type, and its file's directory with --module-path DIR:"
                           : "name the type before the scene; \"trovik types\" lists them"};
    }
    throw UsageError{"there is no job type " + inQuotes(text),
                     didYouMean(text, names, "\"trovik types\" lists them all")};
  }
  std::string ids;
  for (const UID& type : found) {
    ids += "\n  " + type.GenString() + "  " + printable(typeTitle(type), OddBytes::Show);
  }
  throw UsageError{counted(found.size(), "job type") + " answer to " + inQuotes(text) + ":" + ids,
                   "name one of them by its ID"};
}

std::string typeTitle(const UID& type) {
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(type, false);
  return info == nullptr || info->Name.empty() ? std::string(type.GenString()) : std::string(info->Name);
}

const ParameterInfo& findParameter(const UID& type, const std::string& name) {
  const JobTypeInfo* info = JobFactory::s_JobFactory->GetTypeInfo(type, false);
  if (const ParameterInfo* parameter = info->GetParam(String(name)); parameter != nullptr) {
    return *parameter;
  }
  std::vector<String> names;
  for (std::size_t i = 0; i < info->ParamCount(); ++i) {
    const ParameterInfo* parameter = info->GetParam(static_cast<unsigned long>(i));
    if (parameter->Type() != ParameterInfo::k_Heading) {
      names.push_back(parameter->Name);
    }
  }
  const std::string title = typeTitle(type);
  const std::string command = JoinCommandLine({"trovik", "type", title});
  throw UsageError{inQuotes(title) + " has no parameter " + inQuotes(name),
                   didYouMean(name, names, '"' + command + "\" lists them all")};
}

std::string kindName(const ParameterInfo& info) {
  return ParameterTypeName(info.Type()).Lower();
}

std::string kindText(const ParameterInfo& info) {
  switch (info.Type()) {
  case ParameterInfo::k_Text:
    return "text";
  case ParameterInfo::k_Integer:
    return "whole number" + limits(info) +
           (info.Choices.empty() ? "" : ", or " + joined({info.Choices.begin(), info.Choices.end()}, ", "));
  case ParameterInfo::k_Decimal:
    return "number" + limits(info);
  case ParameterInfo::k_Choice: {
    std::vector<std::string> choices(info.Choices.begin(), info.Choices.end());
    return "one of: " + joined(choices, ", ");
  }
  case ParameterInfo::k_Range:
    return "frames, such as 1-100, 1-100x5 or 1,4,9-12";
  case ParameterInfo::k_Multiline:
    return "text of several lines";
  case ParameterInfo::k_Duration:
    return "time: seconds, or a number with s, m, h or d" + limits(info);
  case ParameterInfo::k_Boolean:
    return "Yes or No";
  case ParameterInfo::k_BoolOverride:
    return "Yes, No or empty";
  case ParameterInfo::k_File:
    return "file";
  case ParameterInfo::k_Folder:
    return "folder or path";
  case ParameterInfo::k_Heading:
    return "heading";
  case ParameterInfo::k_List:
    return "list of texts between semicolons";
  }
  return "text";
}

} // namespace trovik
