#include "trovik/check/ValueKinds.h"

#include <algorithm>

namespace trovik {

bool isOneOf(const String& name, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(),
                     [&name](const char* known) { return String::EqualNoCase(name, known); });
}

bool givesPlain(const CommandCall& call) {
  return isOneOf(call.Command->Name, {"If", "Start", "End", "Count", "Add", "Pad", "Extension"});
}

ValueKind kindOf(const TypeCheck& check, const String& name) {
  if (String::EqualNoCase(name, "ActualScene")) {
    return ValueKind::Scenes;
  }
  const ParameterInfo* parameter = check.info->GetParam(name);
  if (parameter == nullptr ||
      isOneOf(name, {"ErrorDetectPosition", "SuccessExitCodes", "RefusedInSceneName"})) {
    return ValueKind::Plain;
  }
  switch (parameter->Type()) {
  case ParameterInfo::k_File:
  case ParameterInfo::k_Folder:
    return ValueKind::Path;
  case ParameterInfo::k_Text:
  case ParameterInfo::k_Multiline:
  case ParameterInfo::k_List:
    return ValueKind::Text;
  default:
    return ValueKind::Plain;
  }
}

} // namespace trovik
