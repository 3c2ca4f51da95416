#include "tarsil/platform/PortAccess.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortAccessTest : public testing::Test {
 protected:
  PortAccessTest() {
    grantpt(master_);
    unlockpt(master_);
    path_ = ptsname(master_);
  }
  ~PortAccessTest() override { close(master_); }

  const int master_ = posix_openpt(O_RDWR | O_NOCTTY);
  std::string path_;
};

TEST_F(PortAccessTest, NamesTheProgramsThatHaveADeviceOpen) {
  EXPECT_THAT(programsHolding(path_), IsEmpty());
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    const int held = open(path_.c_str(), O_RDWR | O_NOCTTY);
    const char sign = held >= 0 ? 'y' : 'n';
    if (write(ready[1], &sign, 1) != 1) _exit(1);
    for (;;) pause();
  }
  char sign = 'n';
  ASSERT_EQ(read(ready[0], &sign, 1), 1);
  ASSERT_EQ(sign, 'y');
  EXPECT_THAT(programsHolding(path_),
              ElementsAre(testing::EndsWith(" (process " + std::to_string(child) + ")")));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_THAT(programsHolding(path_), IsEmpty());
  close(ready[0]);
  close(ready[1]);
}

TEST_F(PortAccessTest, LeavesThisProcessOut) {
  const int held = open(path_.c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(held, 0);
  EXPECT_THAT(programsHolding(path_), IsEmpty());
  close(held);
}

TEST_F(PortAccessTest, NamesTheGroup) {
  EXPECT_EQ(groupOf("/proc/self"), getgrgid(getegid())->gr_name);
  EXPECT_EQ(groupOf("/dev/there-is-no-such-device"), "");
  EXPECT_THAT(programsHolding("/dev/there-is-no-such-device"), IsEmpty());
}

}  // namespace
}  // namespace tarsil
