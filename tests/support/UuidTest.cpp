#include "tarsil/support/Uuid.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/random.h>

#include <cerrno>
#include <set>
#include <string>
#include <vector>

namespace {

struct Asked {
  std::vector<std::size_t> lengths;
  bool fails = false;
};

Asked& asked() {
  static Asked all;
  return all;
}

}  // namespace

// Stands before the C library's own, so that the test sees each call.
extern "C" int getentropy(void* buffer, std::size_t length) {
  asked().lengths.push_back(length);
  if (asked().fails) {
    errno = ENOSYS;
    return -1;
  }
  return getrandom(buffer, length, 0) == static_cast<ssize_t>(length) ? 0 : -1;
}

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

TEST(UuidTest, AsksTheSystemOnceForAllItsBytes) {
  asked().lengths.clear();
  Uuid::random();
  EXPECT_THAT(asked().lengths, testing::ElementsAre(16U));
}

TEST(UuidTest, ThrowsWhenTheSystemHasNoRandomNumbers) {
  asked().fails = true;
  EXPECT_THROW(Uuid::random(), std::runtime_error);
  asked().fails = false;
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
