#include "tests/application/jobs/FolderReads.h"
#include "tests/trovik/engine/EngineTest.h"
#include "trovik/jobs/WorkMaker.h"

#include <ctime>
#include <filesystem>
#include <memory>

namespace trovik {
namespace {

/// A job whose program is searched for, and what was found when it was submitted,
/// long after the folder had changed.
class EngineThatSearches : public EngineTest {
protected:
  EngineThatSearches() {
    type.add(ParameterInfo::k_Text, "SearchRoot");
    job = type.makeJob();
    job->SetParameter("CommandString", "$(SubRange)");
    job->SetParameter(p_StartDirectory, directory.path());
    job->SetParameter("SearchRoot", root());
    machine.behaviour = [](const ProcessStart&) { return script(std::chrono::seconds(1)); };
  }
  std::string root() const { return directory.file("programs"); }
  std::string install(const std::string& version) const {
    const std::string folder = root() + "/paint-" + version;
    std::filesystem::create_directories(folder);
    std::filesystem::create_symlink("/bin/true", folder + "/render");
    return folder + "/render";
  }
  std::shared_ptr<ExecutableMemory> found(const NewJob& entry) const {
    auto memory = std::make_shared<ExecutableMemory>([] { return std::time(nullptr) + 3600; });
    WorkInfo work;
    work.run = entry.works.front();
    work.hasFrames = true;
    const SmartHandle<Job> first = WorkMaker(entry.type, entry.packed, memory).make(work);
    EXPECT_EQ(dynamic_cast<ProcessJob&>(*first).DescribeWork().Arguments.at(0), root() + "/paint-1/render");
    return memory;
  }
  void workOffWith(const NewJob& entry, const std::shared_ptr<ExecutableMemory>& searches) {
    LocalEngine engine(machine, queue, inspector, machine, recorder);
    EnginePlan plan;
    plan.only = queue.submit(entry);
    plan.searches = searches;
    EXPECT_TRUE(engine.run(plan));
  }
};

TEST_F(EngineThatSearches, UsesWhatTheSubmissionFound) {
  const std::string program = install("1");
  const NewJob entry = entryOf("1-3", 0);
  const auto searches = found(entry);
  FolderReads reads{Path(root())};
  workOffWith(entry, searches);
  ASSERT_EQ(machine.started.size(), 3U);
  EXPECT_EQ(machine.started.back().Arguments.at(0), program);
  EXPECT_EQ(reads.Count(), 0);
  workOffWith(entry, nullptr);
  EXPECT_EQ(reads.Count(), 1) << "another process searches once for itself";
}

TEST_F(EngineThatSearches, MeetsWhatWasInstalledSince) {
  install("1");
  const NewJob entry = entryOf("1-3", 0);
  const auto searches = found(entry);
  const std::string newer = install("2");
  FolderReads reads{Path(root())};
  workOffWith(entry, searches);
  ASSERT_EQ(machine.started.size(), 3U);
  EXPECT_EQ(machine.started.front().Arguments.at(0), newer);
  EXPECT_EQ(machine.started.back().Arguments.at(0), newer);
  EXPECT_EQ(reads.Count(), 1);
}

} // namespace
} // namespace trovik
