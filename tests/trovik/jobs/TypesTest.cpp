#include "trovik/jobs/Types.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TEST(FindType, NameAliasAndIdMatchInAnyCase) {
  const TestType type("Water Colour");
  type.info().AddAlias("wc");
  EXPECT_TRUE(findType("water colour") == type.id());
  EXPECT_TRUE(findType("WC") == type.id());
  EXPECT_TRUE(findType(type.id().GenString().Upper()) == type.id());
}

TEST(FindType, UnknownTypeIsRefusedWithASuggestion) {
  const TestType type("Sketch");
  const Refusal refusal = refusalOf([] { findType("skecth"); });
  EXPECT_EQ(refusal.message, "there is no job type \"skecth\"");
  EXPECT_EQ(refusal.hint, "did you mean \"Sketch\"? \"trovik types\" lists them all");
  EXPECT_EQ(refusalOf([] { findType("completely else"); }).hint, "\"trovik types\" lists them all");
}

TEST(FindType, AmbiguousNameTellsTheIds) {
  const TestType one("Sketch");
  const TestType two("sketch");
  const Refusal refusal = refusalOf([] { findType("sketch"); });
  EXPECT_EQ(refusal.message.substr(0, 32), "2 job types answer to \"sketch\":\n");
  EXPECT_NE(refusal.message.find(one.id().GenString() + "  Sketch"), std::string::npos);
  EXPECT_NE(refusal.message.find(two.id().GenString() + "  sketch"), std::string::npos);
  EXPECT_EQ(refusal.hint, "name one of them by its ID");
}

TEST(FindType, WithoutTypesTheHintTellsWhereToPutThem) {
  EXPECT_EQ(refusalOf([] { findType("x"); }).message, "no job types are installed");
}

TEST(FindParameter, NameMatchesInAnyCase) {
  const TestType type;
  EXPECT_EQ(findParameter(type.id(), "outputFOLDER").Name, "OutputFolder");
}

TEST(FindParameter, UnknownNameIsRefusedWithASuggestion) {
  const TestType type;
  const Refusal refusal = refusalOf([&] { findParameter(type.id(), "PacketSice"); });
  EXPECT_EQ(refusal.message, "\"Sketch\" has no parameter \"PacketSice\"");
  EXPECT_EQ(refusal.hint, "did you mean \"PacketSize\"? \"trovik type Sketch\" lists them all");
}

TEST(KindText, TellsKindAndLimits) {
  ParameterInfo integer(ParameterInfo::k_Integer);
  EXPECT_EQ(kindText(integer), "whole number");
  integer.Minimum = 1;
  EXPECT_EQ(kindText(integer), "whole number, at least 1");
  integer.Maximum = 64;
  EXPECT_EQ(kindText(integer), "whole number, 1 to 64");
  ParameterInfo decimal(ParameterInfo::k_Decimal);
  decimal.Maximum = 0.5;
  EXPECT_EQ(kindText(decimal), "number, at most 0.5");
  ParameterInfo choice(ParameterInfo::k_Choice);
  choice.Choices = {"png", "exr"};
  EXPECT_EQ(kindText(choice), "one of: png, exr");
  EXPECT_EQ(kindName(integer), "integer");
}

} // namespace
} // namespace trovik
