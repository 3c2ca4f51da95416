#include "tarsil/platform/UserFolders.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/helpers/TemporaryUserFolders.hpp"

namespace tarsil {
namespace {

TEST(UserFoldersTest, AreTheSystemsUnlessOthersArePutInTheirPlace) {
  class OtherFolders : public UserFolders {
   public:
    std::string home() override { return "/somewhere"; }
    std::string documents() override { return "/elsewhere"; }
  };
  const std::shared_ptr<UserFolders> systems = UserFolders::shared();
  ASSERT_NE(systems, nullptr);

  const auto others = std::make_shared<OtherFolders>();
  const auto before = UserFolders::exchangeShared(others);
  EXPECT_EQ(UserFolders::shared(), others);

  EXPECT_EQ(UserFolders::exchangeShared(before), others);
  EXPECT_EQ(UserFolders::shared(), systems);
}

TEST(UserFoldersTest, AreATestsOwnWhileItHasTemporaryOnes) {
  const std::shared_ptr<UserFolders> systems = UserFolders::shared();
  {
    const TemporaryUserFolders user;
    EXPECT_EQ(UserFolders::shared()->home(), user.home());
    EXPECT_EQ(UserFolders::shared()->documents(), user.documents());
    EXPECT_TRUE(std::filesystem::is_directory(user.home()));
  }
  EXPECT_EQ(UserFolders::shared(), systems);
}

}  // namespace
}  // namespace tarsil
