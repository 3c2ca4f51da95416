#include "tarsil/support/Uuid.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tarsil {
namespace {

TEST(UuidTest, IsARandomOneInItsUsualForm) {
  EXPECT_THAT(Uuid::random().string(),
              testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
}

TEST(UuidTest, NoTwoAreEqual) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(Uuid::random().string());
  EXPECT_EQ(seen.size(), 1000U);
}

TEST(UuidTest, ACopyIsEqualAndHasTheSameHash) {
  const Uuid one = Uuid::random();
  const Uuid copy = one;
  EXPECT_EQ(copy, one);
  EXPECT_EQ(copy.hash(), one.hash());
  EXPECT_EQ(copy.string(), one.string());
  EXPECT_NE(Uuid::random(), one);
}

}  // namespace
}  // namespace tarsil
