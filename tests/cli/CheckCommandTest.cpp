#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <regex>

#include "tests/cli/SimulatedProcess.hpp"

namespace tarsil::cli {
namespace {

using testing::AnyOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(CheckCommandTest, CountsWhatDevicesAnswerAndMovesNothing) {
  SimulatedProcess treadmill("LodeTreadmill");
  SimulatedProcess monitor("Tango");
  const auto ended =
      run({"check", "--seconds", "2", "LodeTreadmill@" + treadmill.path(), "Tango@" + monitor.path()});
  EXPECT_EQ(ended.code, 0) << ended.output << ended.errors;
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_THAT(ended.output, HasSubstr("LodeTreadmill on " + treadmill.path() + "\n"));
  EXPECT_THAT(ended.output, HasSubstr("\n  adapter    none that the system knows of\n"));
  EXPECT_THAT(ended.output, HasSubstr("\n  line       38400 bit/s, 8N1\n"));
  EXPECT_THAT(
      ended.output,
      ContainsRegex("\n  asked      2 times, 2 answers, after [0-9]+ ms \\(median\\), [0-9]+ ms at most\n"
                    "  received   [0-9]+ bytes, 4 replies; 0 bytes lost, 0 replies with a wrong check\n"
                    "  yes\nTango on "));
  EXPECT_THAT(treadmill.status(), HasSubstr("belt stopped, 0.0 km/h"));
  EXPECT_THAT(monitor.status(), Not(HasSubstr("inflat")));
}

TEST(CheckCommandTest, SaysWhyADeviceDoesNotAnswer) {
  SimulatedProcess silent("LodeTreadmill", {"--fault", "silence"});
  SimulatedProcess other("ErgolineK2.4P10");
  const auto ended =
      run({"check", "--seconds", "1", "LodeTreadmill@" + silent.path(), "MEDXINGPort@" + other.path()});
  EXPECT_EQ(ended.code, 3);
  EXPECT_EQ(
      ended.errors,
      "tarsil: LodeTreadmill: nothing came back: is it switched on, and is this its cable?; MEDXINGPort: "
      "nothing came back: is it switched on, and is this its cable?\n");
  EXPECT_THAT(ended.output, HasSubstr("\n  asked      1 times, no answer\n"));
}

TEST(CheckCommandTest, ListensToADeviceThatTalksByItself) {
  SimulatedProcess oximeter("MEDXINGPort");
  const auto ended = run({"check", "MEDXINGPort@" + oximeter.path()});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.output, HasSubstr("\n  asked      nothing: it talks by itself\n"));
  EXPECT_THAT(ended.output, EndsWith("\n  yes\n"));
}

TEST(CheckCommandTest, SaysWhatACableLost) {
  SimulatedProcess treadmill("LodeTreadmill", {"--cable", "adapter,lose=1/8"});
  const auto ended = run({"check", "--seconds", "4", "LodeTreadmill@" + treadmill.path()});
  EXPECT_EQ(ended.code, 3);
  // Which bytes are lost depends on when the questions come, so each of these may be what is left of the
  // replies.
  EXPECT_THAT(ended.errors, AnyOf(HasSubstr(" questions got no answer"), HasSubstr(" belong to no reply"),
                                  HasSubstr("does the cable lose bytes?")));
}

TEST(CheckCommandTest, SaysWhoHasThePort) {
  SimulatedProcess treadmill("LodeTreadmill");
  const int held = open(treadmill.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  flock(held, LOCK_EX);
  const auto ended = run({"check", "--seconds", "1", "LodeTreadmill@" + treadmill.path()});
  close(held);
  EXPECT_EQ(ended.code, 3);
  EXPECT_THAT(ended.errors, HasSubstr("LodeTreadmill: another program has it open: tests-cli (process " +
                                      std::to_string(getpid()) + ")"));
  EXPECT_THAT(ended.output, Not(HasSubstr("received")));
}

TEST(CheckCommandTest, SaysThatAModelTellsNothing) {
  SimulatedProcess treadmill("TM-400V2");
  const auto ended = run({"check", "--seconds", "1", "TM-400V2@" + treadmill.path()});
  EXPECT_EQ(ended.code, 0) << ended.errors;
  EXPECT_THAT(ended.output, HasSubstr("\n  yes        it opens; "));
}

TEST(CheckCommandTest, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(run({"check", "LodeTreadmil@/dev/null"}).errors,
            "tarsil: no model with a line is called \"LodeTreadmil\"; see `tarsil devices`; did you mean "
            "\"LodeTreadmill\"?\n");
  EXPECT_EQ(run({"check", "LodeTreadmill@ttyNone"}).errors,
            "tarsil: there is no port \"ttyNone\"; see `tarsil ports`\n");
  EXPECT_EQ(run({"check", "LodeTreadmill"}).errors, "tarsil: \"LodeTreadmill\" names no port: MODEL@PORT\n");
  EXPECT_EQ(run({"check", "LodeTreadmill@/dev/null", "Tango@/dev/null"}).errors,
            "tarsil: the port \"/dev/null\" cannot serve two devices\n");
}

}  // namespace
}  // namespace tarsil::cli
