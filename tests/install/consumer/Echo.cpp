// A module in a few lines: a type whose works say their frame.
#include "host/Application.h"

#define ENTRY extern "C" __attribute__((visibility("default")))

struct EchoJob : RenderJob {
  EchoJob() : RenderJob(true) {}
  String CreateCommandLine(Path&) override { return "/bin/echo this is frame $(Frame)"; }
};

ENTRY bool OnModuleLoad(Module*) {
  return true;
}
ENTRY void OnModuleUnload() {}
ENTRY void ListTypes(std::vector<UID>& types) {
  types.assign(1, UID());
  types[0].FromString("1f6f9a6c-1e0f-4f0b-9d53-8f2c7a4b6e01");
}
ENTRY void GetTypeInfo(UID const&, JobTypeInfo* info) {
  info->Name = "Echo";
  RenderJob::FillJobTypeInfo(info, false);
}
ENTRY Job* CreateJob() {
  return new EchoJob;
}
ENTRY void DeleteJob(Job* job) {
  delete job;
}
