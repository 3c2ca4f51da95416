#include "tarsil/platform/linux/LinuxUserFolders.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>
#include <string>

namespace tarsil {
namespace {

/// Puts HOME back as it was.
class LinuxUserFoldersTest : public testing::Test {
 protected:
  LinuxUserFoldersTest() {
    if (const char* home = getenv("HOME")) before_ = home;
  }
  ~LinuxUserFoldersTest() override { before_ ? setenv("HOME", before_->c_str(), 1) : unsetenv("HOME"); }

  LinuxUserFolders folders;

 private:
  std::optional<std::string> before_;
};

TEST_F(LinuxUserFoldersTest, FindsTheHomeInTheEnvironment) {
  setenv("HOME", "/home/nurse", 1);
  EXPECT_EQ(folders.home(), "/home/nurse");
  EXPECT_EQ(folders.documents(), "/home/nurse/Documents");
}

TEST_F(LinuxUserFoldersTest, LeavesOutSlashesAtTheEnd) {
  setenv("HOME", "/home/nurse//", 1);
  EXPECT_EQ(folders.home(), "/home/nurse");
  setenv("HOME", "/", 1);
  EXPECT_EQ(folders.home(), "");
  EXPECT_EQ(folders.documents(), "/Documents");
}

TEST_F(LinuxUserFoldersTest, AsksThePasswordDatabaseWithoutAHomeInTheEnvironment) {
  const passwd* user = getpwuid(getuid());
  if (user == nullptr) GTEST_SKIP() << "this user has no entry";
  const std::string home = user->pw_dir;
  unsetenv("HOME");
  EXPECT_EQ(folders.home(), home);
  setenv("HOME", "", 1);
  EXPECT_EQ(folders.home(), home);
  EXPECT_EQ(folders.documents(), home + "/Documents");
}

}  // namespace
}  // namespace tarsil
