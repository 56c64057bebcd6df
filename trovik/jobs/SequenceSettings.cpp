#include "trovik/jobs/SequenceSettings.h"

#include "host/application/Application.h"
#include "host/application/JobFactory.h"

namespace trovik {
namespace {

IniFile& settings() {
  return Application::the_Application->Settings();
}

/// What the installation says of a type; empty for nothing.
String settingOf(const UID& type, const char* key) {
  return settings().GetValue(type.GenString(), key, String::Null);
}

/// Brings the settings back as they were.
class SettingsAsBefore {
public:
  SettingsAsBefore() : before_(settings()) {}
  ~SettingsAsBefore() { settings() = before_; }
  SettingsAsBefore(const SettingsAsBefore&) = delete;
  SettingsAsBefore& operator=(const SettingsAsBefore&) = delete;

private:
  IniFile before_;
};

} // namespace

void SequenceSettings::detect(const DetectFunction& module, const UID& type, const String& changed,
                              std::map<String, String>& values) const {
  const SettingsAsBefore asBefore;
  if (!look.empty()) {
    settings().SetValue(type.GenString(), lookKey, look);
  }
  if (!digits.empty()) {
    settings().SetValue(type.GenString(), digitsKey, digits);
  }
  module(type, changed, values);
}

std::string SequenceSettings::whyNotLooked(const UID& type) const {
  if (!look.empty()) {
    return look.Bool() ? std::string() : std::string(lookKey) + " is switched off for this job";
  }
  if (const String setting = settingOf(type, lookKey); !setting.empty()) {
    return setting.Bool() ? std::string() : "the settings of this installation switch it off for the type";
  }
  const ParameterInfo* info = JobFactory::s_JobFactory->GetTypeParameterInfo(type, lookKey, false);
  return info != nullptr && info->Default.Bool() ? std::string()
                                                 : "the type does not look for scene sequences";
}

std::string SequenceSettings::whoAsksForDigits(const UID& type) const {
  if (!digits.empty()) {
    return std::string(digitsKey) + " asks for " + digits;
  }
  const String setting = settingOf(type, digitsKey);
  return setting.empty() ? std::string("the type asks for more")
                         : "the settings of this installation ask for " + setting;
}

} // namespace trovik
