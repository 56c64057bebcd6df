#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

namespace {

std::function<void(JobTypeInfo&)> Named(const String& name, const std::vector<String>& aliases = {}) {
  return [=](JobTypeInfo& info) {
    info.Name = name;
    for (const String& alias : aliases) {
      info.AddAlias(alias);
    }
    AddParam(info, ParameterInfo::k_Text, "Title", "untitled");
  };
}

TEST(JobFactory, KnowsItsTypesUntilTheyAreUnregistered) {
  UID id;
  {
    const RegisteredType type(Named("Sketch"));
    id = type.Id;
    EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(id, true)->Name, "Sketch");
    EXPECT_EQ(JobFactory::s_JobFactory->GetTypeParameterInfo(id, "TITLE", true)->Default, "untitled");
    EXPECT_EQ(JobFactory::s_JobFactory->GetTypeParameterInfo(id, "other", true), nullptr);
    EXPECT_FALSE(JobFactory::s_JobFactory->Register(id, std::make_unique<JobTypeInfo>(), nullptr, nullptr));
    EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(id, true)->Name, "Sketch");
  }
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(id, false), nullptr);
}

TEST(JobFactory, LogsAnUnknownTypeOnlyWhenItMustExist) {
  UID id;
  id.FromString("00112233-4455-6677-8899-aabbccddeeff");
  const LogCapture log;
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(id, false), nullptr);
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeParameterInfo(id, "Scene", false), nullptr);
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeInfo(id, true), nullptr);
  EXPECT_EQ(JobFactory::s_JobFactory->GetTypeParameterInfo(id, "Scene", true), nullptr);
  const String line = "no job type has the ID 00112233-4455-6677-8899-aabbccddeeff";
  EXPECT_EQ(log.Lines(), (std::vector<String>{line, line}));
}

TEST(JobFactory, OrdersTypesByNameInAnyCase) {
  const RegisteredType zebra(Named("zebra"));
  const RegisteredType ant(Named("Ant"));
  const RegisteredType bee(Named("bee"));
  EXPECT_EQ(JobFactory::s_JobFactory->Types(), (std::vector<UID>{ant.Id, bee.Id, zebra.Id}));
}

TEST(JobFactory, FindsTypesByIdElseByNameElseByAlias) {
  const RegisteredType sketch(Named("Sketch", {"sk", "draw"}));
  const RegisteredType draw(Named("Draw", {"SK"}));
  const JobFactory& factory = *JobFactory::s_JobFactory;
  EXPECT_EQ(factory.FindTypes(UID(sketch.Id).GenString().Upper()), (std::vector<UID>{sketch.Id}));
  EXPECT_EQ(factory.FindTypes("SKETCH"), (std::vector<UID>{sketch.Id}));
  EXPECT_EQ(factory.FindTypes("draw"), (std::vector<UID>{draw.Id}));
  EXPECT_EQ(factory.FindTypes("sk"), (std::vector<UID>{draw.Id, sketch.Id}));
  for (const char* text : {"", "%n%s%n", "nothing", "00112233-4455-6677-8899-aabbccddeeff"}) {
    EXPECT_TRUE(factory.FindTypes(text).empty()) << text;
  }
}

TEST(JobFactory, MakesJobsOfAType) {
  const RegisteredType type(Named("Sketch"));
  const SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type.Id);
  EXPECT_EQ(job->Type(), type.Id);
  String value;
  EXPECT_TRUE(job->GetParameter("Title", value));
  EXPECT_EQ(value, "untitled");
  EXPECT_TRUE(job->WeakSelf().IsValid());
}

TEST(JobFactory, RaisesWhereNoJobCanBeMade) {
  UID id;
  id.FromString("00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(MessageOf([&id] { JobFactory::s_JobFactory->CreateJob(id); }),
            "no job type has the ID 00112233-4455-6677-8899-aabbccddeeff");
  const RegisteredType barren(Named("Barren"), [] { return static_cast<Job*>(nullptr); });
  EXPECT_EQ(MessageOf([&barren] { JobFactory::s_JobFactory->CreateJob(barren.Id); }),
            "the module of the type \"Barren\" made no job");
}

} // namespace
