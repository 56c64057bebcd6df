// A module that does not want to be loaded.

#include "host/Application.h"

extern "C" bool OnModuleLoad(Module*) {
  return false;
}
extern "C" void OnModuleUnload() {
  LogWarning("refusing: unload");
}
extern "C" void ListTypes(std::vector<UID>&) {
  LogWarning("refusing: never asked");
}
extern "C" void GetTypeInfo(const UID&, JobTypeInfo*) {}
extern "C" Job* CreateJob() {
  return nullptr;
}
extern "C" void DeleteJob(Job*) {}
