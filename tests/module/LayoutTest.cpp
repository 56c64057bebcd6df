#include "tests/module/ModuleTest.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstring>

namespace {

/// The place of a virtual operation in its class's table, as compiled callers
/// use it.
template <typename Member> std::size_t SlotOf(Member member) {
  std::uintptr_t bits = 0;
  std::memcpy(&bits, &member, sizeof(bits));
  EXPECT_EQ(bits & 1, 1U) << "not a virtual operation";
  return (bits - 1) / sizeof(void*);
}

struct Slot {
  std::size_t Place;
  const char* Owner; ///< the class whose version a module's job uses
};

// In the order of the table; the two destructors come first.
std::vector<Slot> ExpectedSlots() {
  return {
      {SlotOf(&TrovikObject::Clone), "TrovikObject"},
      {SlotOf(&TrovikObject::Merge), "TrovikObject"},
      {SlotOf(&TrovikObject::Get), "TrovikObject"},
      {SlotOf(&TrovikObject::Set), "TrovikObject"},
      {SlotOf(&TrovikObject::Send), "TrovikObject"},
      {SlotOf(&TrovikObject::Read), "TrovikObject"},
      {SlotOf(&TrovikObject::Save), "TrovikObject"},
      {SlotOf(&TrovikObject::Load), "TrovikObject"},
      {SlotOf(&RenderJob::Execute), "ProcessJob"},
      {SlotOf(&RenderJob::Interrupt), "ProcessJob"},
      {SlotOf(&RenderJob::DoGetDistributor), "RenderJob"},
      {SlotOf(&RenderJob::IsValid), "Job"},
      {SlotOf(&RenderJob::PackObject), nullptr},
      {SlotOf(&RenderJob::UnpackObject), nullptr},
      {SlotOf(&RenderJob::GetParameter), nullptr},
      {SlotOf(&RenderJob::SetParameter), nullptr},
      {SlotOf(&RenderJob::Copy), "Job"},
      {SlotOf(&RenderJob::UpdateFromParent), "Job"},
      {SlotOf(&RenderJob::ProcessCommand), nullptr},
      {SlotOf(&RenderJob::OnChildChange), "RenderJob"},
      {SlotOf(&RenderJob::ConvertWorkToParent), "Job"},
      {SlotOf(&RenderJob::IsStarted), "Job"},
      {SlotOf(&RenderJob::IsFinished), "Job"},
      {SlotOf(&RenderJob::IsFailed), "Job"},
      {SlotOf(&RenderJob::IsCanceled), "Job"},
      {SlotOf(&RenderJob::IsPaused), "Job"},
      {SlotOf(&RenderJob::StatusAsString), "Job"},
      {SlotOf(&RenderJob::SetFinished), "Job"},
      {SlotOf(&RenderJob::SetType), nullptr},
      {SlotOf(&RenderJob::PreExecute), "RenderJob"},
      {SlotOf(&RenderJob::CreateCommandLine), nullptr},
      {SlotOf(&RenderJob::GetLatestExecutable), nullptr},
      {SlotOf(&RenderJob::OnProcessSpawned), "ProcessJob"},
      {SlotOf(&RenderJob::ProcessLine), nullptr},
      {SlotOf(&RenderJob::CheckResult), nullptr},
      {SlotOf(&RenderJob::DetermineStartDirectory), "RenderJob"},
      {SlotOf(&RenderJob::ValidateResources), "ProcessJob"},
      {SlotOf(&RenderJob::CheckFiles), "RenderJob"},
      {SlotOf(&RenderJob::DoCheckFile), "RenderJob"},
  };
}

class LayoutTest : public ModuleTest {
protected:
  /// The class that a function belongs to, and the file that holds it.
  static std::pair<String, String> OwnerOf(void* function) {
    Dl_info found{};
    EXPECT_NE(dladdr(function, &found), 0);
    String name(found.dli_sname);
    int status = 0;
    if (char* demangled = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status)) {
      name = demangled;
      std::free(demangled);
    }
    return {String(name.substr(0, name.find("::"))), Path(found.dli_fname).Leaf(true)};
  }
};

TEST_F(LayoutTest, VirtualOperationsStandInTheOrderOfTheContract) {
  std::size_t expected = 2;
  for (const Slot& slot : ExpectedSlots()) {
    EXPECT_EQ(slot.Place, expected) << (slot.Owner == nullptr ? "the module" : slot.Owner);
    ++expected;
  }
}

TEST_F(LayoutTest, JobOverridesWhatIsItsOwnAndInheritsTheRest) {
  const std::unique_ptr<Job, void (*)(Job*)> job(m_Module.CreateJob(), m_Module.DeleteJob);
  void** table = nullptr;
  std::memcpy(static_cast<void*>(&table), static_cast<const void*>(job.get()), sizeof(table));
  for (const std::size_t destructor : {0U, 1U}) {
    EXPECT_EQ(OwnerOf(table[destructor]).second, "Tessivar.so");
  }
  for (const Slot& slot : ExpectedSlots()) {
    const auto [owner, file] = OwnerOf(table[slot.Place]);
    if (slot.Owner == nullptr) {
      EXPECT_EQ(file, "Tessivar.so") << slot.Place << " " << owner;
    } else {
      EXPECT_EQ(owner, slot.Owner) << slot.Place;
      EXPECT_TRUE(file.starts_with("libTrovikApplication.so")) << slot.Place << " " << file;
    }
  }
}

TEST_F(LayoutTest, JobIsARenderJobByTheHostsOwnTypes) {
  const std::unique_ptr<Job, void (*)(Job*)> job(m_Module.CreateJob(), m_Module.DeleteJob);
  EXPECT_NE(dynamic_cast<RenderJob*>(job.get()), nullptr);
  EXPECT_NE(dynamic_cast<ProcessJob*>(job.get()), nullptr);
  EXPECT_EQ(dynamic_cast<void*>(job.get()), static_cast<void*>(job.get()));
}

} // namespace
