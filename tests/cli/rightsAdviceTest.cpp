#include "tools/tarsil/ports/rightsAdvice.hpp"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>

namespace tarsil::cli {
namespace {

using testing::StartsWith;

TEST(RightsAdviceTest, NamesTheGroupToJoin) {
  const auto* dialout = getgrnam("dialout");  // NOLINT(concurrency-mt-unsafe): one thread
  ASSERT_NE(dialout, nullptr);
  struct stat file {};
  file.st_gid = dialout->gr_gid;
  file.st_mode = S_IFCHR | 0660;
  EXPECT_THAT(rightsAdvice(file), StartsWith("join the group dialout (sudo usermod -aG dialout "));
}

TEST(RightsAdviceTest, NamesAGroupWithoutANameByItsNumber) {
  struct stat file {};
  file.st_gid = 4000000;
  file.st_mode = S_IFCHR | 0660;
  EXPECT_THAT(rightsAdvice(file), StartsWith("join the group 4000000 "));
}

TEST(RightsAdviceTest, NamesTheOwnerWhenNoGroupHelps) {
  struct stat file {};
  file.st_uid = 0;
  file.st_mode = S_IFCHR | 0640;
  EXPECT_EQ(rightsAdvice(file), "only root may open it");
}

TEST(RightsAdviceTest, HasNoneForAPortThatCanBeOpened) {
  EXPECT_EQ(whyNotOpenable("/dev/null"), std::nullopt);
}

TEST(RightsAdviceTest, SaysWhatElseIsWrong) {
  EXPECT_EQ(whyNotOpenable("/nowhere"), "cannot open /nowhere: No such file or directory");
}

}  // namespace
}  // namespace tarsil::cli
