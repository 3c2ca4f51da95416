#include "simulators/lines/CableBehaviour.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;
using testing::StartsWith;

TEST(CableBehaviourTest, ReadsWhatItIsCalled) {
  EXPECT_EQ(CableBehaviour::read("wire"), CableBehaviour::wire());
  EXPECT_EQ(CableBehaviour::read("gentle"), CableBehaviour::gentleLine());
  EXPECT_EQ(CableBehaviour::read("adapter"), CableBehaviour::read("latency=16ms,packet=62"));
}

TEST(CableBehaviourTest, ReadsEveryWord) {
  const auto cable = CableBehaviour::read(
      "latency=1.5ms,packet=8,delay=2s,split=1/4,join=0.5,lose=1/200,double=0.25,change=1,"
      "replies.add=1/8,mute=commands,seed=4294967295");
  EXPECT_EQ(cable.latency, 1500us);
  EXPECT_EQ(cable.packet, 8U);
  EXPECT_EQ(cable.delay, 2s);
  EXPECT_EQ(cable.split, 0.25);
  EXPECT_EQ(cable.join, 0.5);
  EXPECT_EQ(cable.replies.lose, 0.005);
  EXPECT_EQ(cable.commands.lose, 0.005);
  EXPECT_EQ(cable.replies.repeat, 0.25);
  EXPECT_EQ(cable.commands.change, 1.0);
  EXPECT_EQ(cable.replies.add, 0.125);
  EXPECT_EQ(cable.commands.add, 0.0);
  EXPECT_FALSE(cable.replies.muted);
  EXPECT_TRUE(cable.commands.muted);
  EXPECT_EQ(cable.seed, 4294967295U);
}

TEST(CableBehaviourTest, ALaterWordOverridesAnEarlierOne) {
  EXPECT_EQ(CableBehaviour::read("adapter,wire"), CableBehaviour::wire());
  EXPECT_EQ(CableBehaviour::read("adapter,latency=1ms").latency, 1ms);
  EXPECT_EQ(CableBehaviour::read("lose=1/2,commands.lose=0").commands.lose, 0.0);
}

TEST(CableBehaviourTest, AnAdapterHasThePacketsOfUSB) {
  EXPECT_EQ(CableBehaviour::read("latency=16ms").packet, 62U);
}

TEST(CableBehaviourTest, WritesWhatItReads) {
  for (const char* text :
       {"wire", "gentle", "latency=16ms,packet=62", "latency=1500us,packet=8", "gentle,lose=0.005",
        "latency=2s,packet=1,delay=30ms,split=0.25,join=0.5,replies.lose=0.125,commands.double=1.0,"
        "mute=both,seed=0"}) {
    EXPECT_EQ(CableBehaviour::read(text).text(), text);
  }
  const auto odd = CableBehaviour::read("latency=0.0005ms,lose=1/3");
  EXPECT_EQ(CableBehaviour::read(odd.text()), odd);
}

/// What it says of a text that it refuses.
std::string refusal(const std::string& text) {
  try {
    CableBehaviour::read(text);
  } catch (const std::invalid_argument& refused) {
    return refused.what();
  }
  return "none";
}

TEST(CableBehaviourTest, RefusesWithTheWordAndTheReason) {
  EXPECT_EQ(refusal("adapter,lose=2"), "cable: \"lose=2\" has no chance from 0 to 1, such as 1/200");
  EXPECT_EQ(refusal("latency=16"), "cable: \"latency=16\" has no time from 0 to 10 s, such as 16ms");
  EXPECT_EQ(refusal("latency=1ms,packet=0"), "cable: \"packet=0\" has no whole number from 1 to 4096");
  EXPECT_EQ(refusal("mute=all"), "cable: \"mute=all\" mutes neither replies nor commands nor both");
  EXPECT_THAT(refusal("loose=1/2"), StartsWith("cable: \"loose=1/2\" is none of wire, adapter, gentle, "));
  EXPECT_EQ(refusal("packet=62"),
            "cable: \"packet=62\" would keep what is less than a packet for ever: give it a latency");
  EXPECT_EQ(refusal("gentle,split=1/2"),
            "cable: \"gentle,split=1/2\" cannot be gentle and have an adapter, a delay, splits or joins");
}

class UnreadableCableTest : public testing::TestWithParam<const char*> {};

TEST_P(UnreadableCableTest, IsRefused) {
  EXPECT_THAT(refusal(GetParam()), StartsWith("cable: "));
}

INSTANTIATE_TEST_SUITE_P(All, UnreadableCableTest,
                         testing::Values("", ",", "wire,", "lose", "lose=", "lose=1/0", "lose=-1/2",
                                         "lose=3/2", "lose=nan", "lose=1/1e999", "lose=1e999/1e999",
                                         "latency=-1ms", "latency=11s", "latency=ms", "latency=1e999s",
                                         "latency=nans", "packet=1.5", "packet=4097,latency=1ms", "seed=-1",
                                         "seed=4294967296", "mute", "replies.latency=1ms", "replies.",
                                         "gentle,packet=8", "gentle,delay=1ms", "gentle,join=1"));

}  // namespace
}  // namespace tarsil::simulators
