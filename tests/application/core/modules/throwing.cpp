// A module that throws what is no Exception* in every place where the host
// calls it: in those whose names stand in the environment variable
// TROVIK_TEST_THROWS, separated by blanks.

#include "host/Application.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace {

void Reach(const std::string& place) {
  const char* places = std::getenv("TROVIK_TEST_THROWS");
  std::istringstream words(places == nullptr ? "" : places);
  for (std::string word; words >> word;) {
    if (word == place) {
      throw std::runtime_error("thrown in " + place);
    }
    if (word == place + "=7") {
      throw 7;
    }
  }
}

UID TypeId() {
  UID id;
  id.FromString("c0de0000-0000-4000-8000-000000000002");
  return id;
}

class ThrowingJob : public Job {
public:
  int Execute() override { return k_StatusFinished; }
  void Interrupt(int) override {}
  std::unique_ptr<Distributor> DoGetDistributor() override { return nullptr; }
  void OnChildChange(SmartHandle<const Job>, const String&, const String&) override {}
  void SetType(const UID& type) override {
    Reach("SetType");
    Job::SetType(type);
  }
};

} // namespace

bool LoadVirtualModuleData(const Path&) {
  Reach("LoadVirtualModuleData");
  return true;
}

bool GetLatestExeSearch(const UID&, std::vector<Path>&, std::vector<Path>&, Path&) {
  Reach("GetLatestExeSearch");
  return false;
}

extern "C" bool OnModuleLoad(Module*) {
  Reach("OnModuleLoad");
  return true;
}

extern "C" void OnModuleUnload() {
  Reach("OnModuleUnload");
}

extern "C" void ListTypes(std::vector<UID>& types) {
  Reach("ListTypes");
  types = {TypeId()};
}

extern "C" void GetTypeInfo(const UID&, JobTypeInfo* info) {
  Reach("GetTypeInfo");
  info->Name = "Throwing";
}

extern "C" Job* CreateJob() {
  Reach("CreateJob");
  return new ThrowingJob();
}

extern "C" void DeleteJob(Job* job) {
  delete job;
  Reach("DeleteJob");
}

extern "C" void AutoDetect(const UID&, const String&, std::map<String, String>&) {
  Reach("AutoDetect");
}
