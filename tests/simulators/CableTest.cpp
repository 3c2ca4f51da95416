#include "simulators/lines/Cable.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>

#include "tests/simulators/simulatedTime.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;

/// At this speed a byte takes exactly a millisecond.
constexpr std::uint64_t byteEachMillisecond = 10'000;

Bytes bytesUpTo(std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
  return bytes;
}

struct Arrived {
  Duration when;
  Bytes bytes;

  bool operator==(const Arrived&) const = default;
  friend void PrintTo(const Arrived& arrived, std::ostream* out) {
    *out << std::chrono::duration<double, std::milli>(arrived.when).count() << " ms "
         << testing::PrintToString(arrived.bytes);
  }
};

class CableTest : public testing::Test {
 protected:
  static VirtualTime& time() { return simulatedTime(); }

  CableTest() { time(); }

  Cable& plug(const std::string& behaviour) {
    begin_ = Clock::now();
    cable_.emplace(
        CableBehaviour::read(behaviour), byteEachMillisecond,
        [this](const Bytes& bytes) {
          atHost_.push_back({Clock::now() - begin_, bytes});
        },
        [this](const Bytes& bytes) {
          atDevice_.push_back({Clock::now() - begin_, bytes});
        });
    return *cable_;
  }

  std::vector<Arrived> repliesWithin(Duration duration) {
    time().advance(duration);
    return std::exchange(atHost_, {});
  }

  std::vector<Arrived> commandsWithin(Duration duration) {
    time().advance(duration);
    return std::exchange(atDevice_, {});
  }

  static Bytes joined(const std::vector<Arrived>& arrived) {
    Bytes all;
    for (const Arrived& piece : arrived) all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    return all;
  }

  Clock::Instant begin_;
  std::vector<Arrived> atHost_;
  std::vector<Arrived> atDevice_;
  std::optional<Cable> cable_;
};

TEST_F(CableTest, AWireCarriesRepliesByteAfterByteAtTheSpeedOfTheLine) {
  Cable& cable = plug("wire");
  cable.putReply(Bytes{1, 2}, true);
  cable.putReply(Bytes{3}, true);
  EXPECT_THAT(repliesWithin(1s), ElementsAre(Arrived{1ms, {1}}, Arrived{2ms, {2}}, Arrived{3ms, {3}}));
}

TEST_F(CableTest, AWireTakesACommandWhenItsLastByteHasCome) {
  Cable& cable = plug("wire");
  cable.putCommand(Bytes{1, 2, 3});
  cable.putCommand(Bytes{4});
  EXPECT_THAT(commandsWithin(1s), ElementsAre(Arrived{3ms, {1, 2, 3}}, Arrived{4ms, {4}}));
}

TEST_F(CableTest, TheTwoWaysDoNotWaitForEachOther) {
  Cable& cable = plug("wire");
  cable.putCommand(bytesUpTo(100));
  cable.putReply(Bytes{1}, false);
  EXPECT_THAT(repliesWithin(1ms), ElementsAre(Arrived{1ms, {1}}));
}

TEST_F(CableTest, AGentleLineKeepsTogetherWhatADriverWantsInOnePiece) {
  Cable& cable = plug("gentle");
  cable.putReply(Bytes{1, 2}, false);
  cable.putReply(Bytes{3, 4, 5}, true);
  cable.putCommand(Bytes{6, 7});
  EXPECT_THAT(repliesWithin(1s), ElementsAre(Arrived{1ms, {1}}, Arrived{2ms, {2}}, Arrived{5ms, {3, 4, 5}}));
  EXPECT_THAT(commandsWithin(1s), ElementsAre(Arrived{0ms, {6, 7}}));
}

TEST_F(CableTest, AnAdapterHandsOverWhenItsTimerRunsOut) {
  Cable& cable = plug("latency=16ms,packet=62");
  cable.putReply(bytesUpTo(40), false);
  // Its timer runs all the time, so nobody knows where the first packet ends.
  const auto packets = repliesWithin(1s);
  ASSERT_THAT(packets, SizeIs(AllOf(Ge(3U), Le(4U))));
  EXPECT_LE(packets[0].when, 16ms);
  EXPECT_EQ(packets[0].bytes.size(), static_cast<std::size_t>(packets[0].when / 1ms));
  for (std::size_t i = 1; i < packets.size(); ++i) EXPECT_EQ(packets[i].when - packets[i - 1].when, 16ms);
  EXPECT_EQ(packets[1].bytes.size(), 16U);
  EXPECT_EQ(joined(packets), bytesUpTo(40));
}

TEST_F(CableTest, AnAdapterHandsOverAtMostAFullPacket) {
  Cable& cable = plug("latency=1s,packet=8");
  cable.putReply(bytesUpTo(20), false);
  const auto packets = repliesWithin(2s);
  EXPECT_EQ(joined(packets), bytesUpTo(20));
  EXPECT_THAT(packets, Contains(testing::Field(&Arrived::bytes, SizeIs(8))));
  EXPECT_THAT(packets, Not(Contains(testing::Field(&Arrived::bytes, SizeIs(testing::Gt(8))))));
}

TEST_F(CableTest, AnAdaptersTimerIsSomewhereElseForEachSeed) {
  const auto firstHandover = [this](const std::string& behaviour) {
    plug(behaviour).putReply(Bytes{1}, false);
    return repliesWithin(1s).at(0).when;
  };
  EXPECT_NE(firstHandover("adapter,seed=2"), firstHandover("adapter,seed=3"));
  EXPECT_EQ(firstHandover("adapter,seed=2"), firstHandover("adapter,seed=2"));
}

TEST_F(CableTest, DelayKeepsTheOrder) {
  Cable& cable = plug("delay=30ms");
  cable.putReply(bytesUpTo(100), false);
  const auto pieces = repliesWithin(1s);
  EXPECT_EQ(joined(pieces), bytesUpTo(100));
  EXPECT_GT(pieces.front().when, 1ms);
  EXPECT_LE(pieces.back().when, 130ms);
}

TEST_F(CableTest, SplitsWhatWasHandedOver) {
  Cable& cable = plug("latency=16ms,packet=10,split=1");
  cable.putReply(bytesUpTo(10), false);
  const auto pieces = repliesWithin(1s);
  ASSERT_THAT(pieces, SizeIs(Ge(2U)));
  EXPECT_EQ(pieces[1].when - pieces[0].when, 2ms);
  EXPECT_EQ(joined(pieces), bytesUpTo(10));
}

TEST_F(CableTest, JoinsWhatWasHandedOverButWaitsNoLongerThanItHasPatience) {
  Cable& cable = plug("join=1");
  cable.putReply(bytesUpTo(3), false);
  EXPECT_THAT(repliesWithin(1s), ElementsAre(Arrived{53ms, bytesUpTo(3)}));
}

struct Cue {
  ByteFault fault;
  Bytes result;
};

TEST_F(CableTest, ACueStrikesTheMiddleOfTheNextMessage) {
  Cable& cable = plug("wire");
  const auto struck = [&](ByteFault fault) {
    cable.replies().cue(fault);
    cable.putReply(Bytes{10, 20, 30}, false);
    return joined(repliesWithin(1s));
  };
  EXPECT_THAT(struck(ByteFault::lose), ElementsAre(10, 30));
  EXPECT_THAT(struck(ByteFault::repeat), ElementsAre(10, 20, 20, 30));
  EXPECT_THAT(struck(ByteFault::change), ElementsAre(10, Not(20), 30));
  EXPECT_THAT(struck(ByteFault::add), ElementsAre(10, testing::_, 20, 30));
  cable.putReply(Bytes{10, 20, 30}, false);
  EXPECT_THAT(joined(repliesWithin(1s)), ElementsAre(10, 20, 30));
  cable.commands().cue(ByteFault::lose);
  cable.putCommand(Bytes{10, 20, 30});
  EXPECT_THAT(joined(commandsWithin(1s)), ElementsAre(10, 30));
}

TEST_F(CableTest, FaultsComeAboutAsOftenAsTheirChancesSay) {
  Cable& cable = plug("lose=1/100,double=1/50,change=1/25,add=1/10,commands.lose=0");
  for (int i = 0; i < 100; ++i) cable.putReply(bytesUpTo(200), false);
  const auto& count = cable.replies().count();
  EXPECT_EQ(count.put, 20'000U);
  // Four standard deviations around 200, 400, 800 and 2,000, less what an earlier fault of a byte kept out.
  EXPECT_NEAR(static_cast<double>(count.lost), 200, 57);
  EXPECT_NEAR(static_cast<double>(count.repeated), 396, 80);
  EXPECT_NEAR(static_cast<double>(count.changed), 776, 112);
  EXPECT_NEAR(static_cast<double>(count.added), 1863, 165);
  EXPECT_EQ(cable.commands().count().put, 0U);
}

TEST_F(CableTest, TheSameSeedGivesTheSameFaults) {
  const auto damaged = [this](const std::string& seed) {
    plug("lose=1/10,change=1/10,add=1/10,seed=" + seed).putReply(bytesUpTo(200), false);
    return joined(repliesWithin(10s));
  };
  const Bytes first = damaged("5");
  EXPECT_EQ(damaged("5"), first);
  EXPECT_NE(damaged("6"), first);
}

TEST_F(CableTest, CertainFaultsStrikeEveryByte) {
  plug("replies.change=1").putReply(Bytes(1000, 7), false);
  EXPECT_THAT(joined(repliesWithin(2s)), AllOf(SizeIs(1000), Not(Contains(7))));
  plug("double=1").putReply(Bytes{1, 2}, false);
  EXPECT_THAT(joined(repliesWithin(1s)), ElementsAre(1, 1, 2, 2));
  plug("lose=1").putReply(Bytes{1, 2}, false);
  EXPECT_THAT(repliesWithin(1s), IsEmpty());
}

TEST_F(CableTest, MutedWaysCarryNothing) {
  Cable& cable = plug("mute=commands");
  cable.putCommand(Bytes{1});
  cable.putReply(Bytes{2, 3}, false);
  time().advance(1ms);
  cable.replies().mute(true);
  cable.putReply(Bytes{4}, false);
  EXPECT_THAT(joined(repliesWithin(1s)), ElementsAre(2));
  EXPECT_THAT(commandsWithin(1s), IsEmpty());
  cable.replies().mute(false);
  cable.commands().mute(false);
  cable.putReply(Bytes{5}, false);
  cable.putCommand(Bytes{6});
  EXPECT_THAT(joined(repliesWithin(1s)), ElementsAre(5));
  EXPECT_THAT(joined(commandsWithin(1s)), ElementsAre(6));
}

TEST_F(CableTest, WhatIsUnderWayIsLostWithThePlug) {
  Cable& cable = plug("adapter,delay=100ms");
  cable.putReply(bytesUpTo(80), false);
  cable.putCommand(bytesUpTo(80));
  time().advance(70ms);
  const std::size_t before = joined(std::exchange(atHost_, {})).size();
  EXPECT_LT(before, 80U);
  cable.unplug();
  cable.putReply(Bytes{1}, false);
  cable.putCommand(Bytes{2});
  EXPECT_THAT(repliesWithin(1s), IsEmpty());
  EXPECT_THAT(commandsWithin(1s), IsEmpty());
  cable.plugIn();
  cable.putReply(Bytes{3}, false);
  EXPECT_THAT(joined(repliesWithin(1s)), ElementsAre(3));
}

}  // namespace
}  // namespace tarsil::simulators
