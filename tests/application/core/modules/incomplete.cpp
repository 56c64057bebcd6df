// A library that lacks some of the entry points of a module.

#include "host/Application.h"

extern "C" bool OnModuleLoad(Module*) {
  return true;
}
extern "C" void ListTypes(std::vector<UID>&) {}
extern "C" void GetTypeInfo(const UID&, JobTypeInfo*) {}
extern "C" Job* CreateJob() {
  return nullptr;
}
