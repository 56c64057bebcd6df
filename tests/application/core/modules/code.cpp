// A module of one type that is written in code.

#include "host/Application.h"

#include <cstdlib>

namespace {

UID TypeId() {
  UID id;
  id.FromString("c0de0000-0000-4000-8000-000000000001");
  return id;
}

class CodeJob : public Job {
public:
  int Execute() override { return k_StatusFinished; }
  void Interrupt(int) override {}
  std::unique_ptr<Distributor> DoGetDistributor() override { return nullptr; }
  void OnChildChange(SmartHandle<const Job>, const String&, const String&) override {}
};

} // namespace

extern "C" bool OnModuleLoad(Module* module) {
  LogWarning("code: load " + module->Filename().Leaf(true));
  return true;
}

extern "C" void OnModuleUnload() {
  LogWarning("code: unload");
}

extern "C" void ListTypes(std::vector<UID>& types) {
  types = {TypeId(), TypeId()};
}

extern "C" void GetTypeInfo(const UID&, JobTypeInfo* info) {
  info->Name = "Code";
  ParameterInfo* param = info->NewParam(ParameterInfo::k_Text);
  param->Name = "Title";
}

extern "C" Job* CreateJob() {
  return new CodeJob();
}

extern "C" void DeleteJob(Job* job) {
  LogWarning("code: delete job");
  delete job;
}
