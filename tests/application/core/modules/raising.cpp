// A module of two types that cannot describe one of them.

#include "host/Application.h"

namespace {

UID TypeId(const char* text) {
  UID id;
  id.FromString(text);
  return id;
}

} // namespace

extern "C" bool OnModuleLoad(Module*) {
  return true;
}
extern "C" void OnModuleUnload() {}
extern "C" void ListTypes(std::vector<UID>& types) {
  types = {TypeId("bad00000-0000-4000-8000-000000000001"), TypeId("c0de0000-0000-4000-8000-000000000001")};
}
extern "C" void GetTypeInfo(const UID& type, JobTypeInfo* info) {
  if (type == TypeId("bad00000-0000-4000-8000-000000000001")) {
    throw new Exception("raising", "GetTypeInfo", 1, "cannot tell", 0, String::Null, 0);
  }
  info->Name = "Taken";
}
extern "C" Job* CreateJob() {
  return nullptr;
}
extern "C" void DeleteJob(Job*) {}
