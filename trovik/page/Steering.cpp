#include "trovik/page/Steering.h"

#include "trovik/text/Json.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <array>
#include <utility>

namespace trovik {
namespace {

using Action = SteeringWish::Action;

constexpr std::array<std::pair<Action, const char*>, 6> names = {{{Action::Retry, "retry"},
                                                                  {Action::Cancel, "cancel"},
                                                                  {Action::Hold, "hold"},
                                                                  {Action::Release, "release"},
                                                                  {Action::Set, "set"},
                                                                  {Action::Delete, "delete"}}};

/// A value that has to be of this kind.
template <typename Value> Value valueOf(const Json& json, const std::string& name, const char* kind) {
  try {
    return json.get<Value>();
  } catch (const Json::exception&) {
    throw UsageError{name + " is not " + kind, ""};
  }
}

std::string textOf(const Json& json, const std::string& name) {
  return json.is_number_integer() ? std::to_string(valueOf<std::int64_t>(json, name, "a number"))
                                  : valueOf<std::string>(json, name, "a text or a whole number");
}

void take(SteeringWish& wish, const std::string& key, const Json& value) {
  if (key == "dryRun") {
    wish.dryRun = valueOf<bool>(value, key, "true or false");
  } else if (key == "frames" && wish.action == Action::Retry) {
    if (!value.is_null()) {
      wish.frames = valueOf<std::string>(value, key, "a text");
    }
  } else if (key == "withFollowers" && wish.action == Action::Cancel) {
    wish.withFollowers = valueOf<bool>(value, key, "true or false");
  } else if (key == "changes" && wish.action == Action::Set && value.is_object()) {
    for (const auto& [name, changed] : value.items()) {
      if (name.empty() || name.find('=') != std::string::npos) {
        throw UsageError{inQuotes(name) + " is no name", ""};
      }
      wish.changes.emplace_back(name, textOf(changed, name));
    }
  } else {
    throw UsageError{inQuotes(key) + " is nothing that \"" + nameOf(wish.action) + "\" takes", ""};
  }
}

} // namespace

const char* nameOf(Action action) {
  for (const auto& [known, name] : names) {
    if (known == action) {
      return name;
    }
  }
  return "";
}

std::optional<Action> steeringActionOf(const std::string& name) {
  for (const auto& [action, known] : names) {
    if (name == known) {
      return action;
    }
  }
  return std::nullopt;
}

SteeringWish steeringWish(SteeringWish::Action action, JobId job, const std::string& body) {
  SteeringWish wish;
  wish.action = action;
  wish.job = job;
  Json json;
  try {
    json = Json::parse(body);
  } catch (const Json::exception&) {
    throw UsageError{"the body is no JSON", "such as {\"dryRun\": true}"};
  }
  if (!json.is_object()) {
    throw UsageError{"the body is no object", "such as {\"dryRun\": true}"};
  }
  for (const auto& [key, value] : json.items()) {
    take(wish, key, value);
  }
  if (action == Action::Set && wish.changes.empty()) {
    throw UsageError{"nothing is to change", "such as {\"changes\": {\"Priority\": 80}}"};
  }
  return wish;
}

} // namespace trovik
