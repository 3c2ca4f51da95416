#include "tarsil/runtime/detail/schedule.hpp"

#include <bit>
#include <chrono>

#include <gmock/gmock.h>

namespace tarsil::detail {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using Instant = Clock::Instant;

Instant at(long nanos) {
  return Instant(nanoseconds(nanos));
}

TEST(scheduleTest, AfterAddsAndSaturates) {
  EXPECT_EQ(after(at(5), nanoseconds(7)), at(12));
  EXPECT_EQ(after(at(5), nanoseconds(0)), at(5));
  EXPECT_EQ(after(at(5), nanoseconds(-7)), at(5));
  EXPECT_EQ(after(at(5), Duration::max()), Instant::max());
  EXPECT_EQ(after(at(5), Duration::min()), at(5));
  EXPECT_EQ(after(at(0), Duration::max()), Instant::max());
  EXPECT_EQ(after(Instant::max(), nanoseconds(1)), Instant::max());
}

TEST(scheduleTest, TheNextBeatIsAWholeMultipleAway) {
  EXPECT_EQ(nextBeat(at(100), nanoseconds(10), at(100)), at(110));
  EXPECT_EQ(nextBeat(at(100), nanoseconds(10), at(109)), at(110));
  EXPECT_EQ(nextBeat(at(100), nanoseconds(10), at(110)), at(120));
  EXPECT_EQ(nextBeat(at(100), nanoseconds(10), at(137)), at(140));
}

TEST(scheduleTest, TheNextBeatComesAfterThisOneEvenWhenTheClockIsBehind) {
  EXPECT_EQ(nextBeat(at(100), nanoseconds(10), at(90)), at(110));
}

TEST(scheduleTest, TheLastBeatIsAtTheEndOfTime) {
  EXPECT_EQ(nextBeat(at(100), Duration::max(), at(100)), Instant::max());
  EXPECT_EQ(nextBeat(Instant::max(), nanoseconds(10), at(100)), Instant::max());
}

TEST(scheduleTest, WithoutLeewayATimerFiresWhenItIsDue) {
  EXPECT_EQ(sharedInstant(at(12345), nanoseconds(0)), at(12345));
  EXPECT_EQ(sharedInstant(at(12345), nanoseconds(-1)), at(12345));
}

TEST(scheduleTest, WithLeewayATimerFiresAtTheRoundestInstantOfItsWindow) {
  for (long due = 1; due < 300; ++due) {
    for (long leeway = 0; leeway < 70; ++leeway) {
      auto roundest = static_cast<unsigned long>(due);
      for (auto other = roundest; other <= static_cast<unsigned long>(due + leeway); ++other) {
        if (std::countr_zero(other) > std::countr_zero(roundest)) roundest = other;
      }
      ASSERT_EQ(sharedInstant(at(due), nanoseconds(leeway)), at(static_cast<long>(roundest)))
          << due << " " << leeway;
    }
  }
}

TEST(scheduleTest, TimersOfDifferentLeewaysMeet) {
  EXPECT_EQ(sharedInstant(at(97), nanoseconds(20)), at(112));
  EXPECT_EQ(sharedInstant(at(101), nanoseconds(50)), at(128));
  EXPECT_EQ(sharedInstant(at(113), nanoseconds(20)), at(128));
  EXPECT_EQ(sharedInstant(at(126), nanoseconds(3)), at(128));
}

TEST(scheduleTest, ARepeatingTimerFiresAtAMultipleOfItsInterval) {
  EXPECT_EQ(sharedBeat(at(100), nanoseconds(10), nanoseconds(5)), at(100));
  EXPECT_EQ(sharedBeat(at(96), nanoseconds(10), nanoseconds(5)), at(100));
  EXPECT_EQ(sharedBeat(at(95), nanoseconds(10), nanoseconds(5)), at(100));
  EXPECT_EQ(sharedBeat(at(95), nanoseconds(10), nanoseconds(100)), at(100));
}

TEST(scheduleTest, OrAsLateAsItMayWhereThereIsNone) {
  EXPECT_EQ(sharedBeat(at(94), nanoseconds(10), nanoseconds(5)), at(99));
  EXPECT_EQ(sharedBeat(at(94), nanoseconds(10), nanoseconds(0)), at(94));
  EXPECT_EQ(sharedBeat(at(94), nanoseconds(10), nanoseconds(-1)), at(94));
  EXPECT_EQ(sharedBeat(at(94), Duration::max(), nanoseconds(5)), at(99));
  EXPECT_EQ(sharedBeat(Instant::max(), nanoseconds(10), nanoseconds(5)), Instant::max());
}

TEST(scheduleTest, PortsThatPollWithinFiveMillisecondsShareEachTickAfterTwo) {
  // Opened at any time: alone, a hundred of them would wake the machine ten thousand times a second.
  for (int port = 0; port < 100; ++port) {
    const auto next = [](Instant fired) {
      return sharedBeat(nextBeat(fired, milliseconds(10), fired), milliseconds(10), milliseconds(5));
    };
    const Instant first = sharedInstant(at(1'000'000'000 + port * 123'457L), milliseconds(5));
    const Instant second = next(first);
    const Instant third = next(second);
    EXPECT_EQ(third.time_since_epoch() % milliseconds(10), nanoseconds(0)) << port;
    EXPECT_EQ(next(third) - third, milliseconds(10)) << port;
  }
}

TEST(scheduleTest, NoLeewayIsTooLarge) {
  EXPECT_EQ(sharedInstant(Instant::max(), milliseconds(5)), Instant::max());
  EXPECT_GE(sharedInstant(at(5), Duration::max()), at(5));
}

}  // namespace
}  // namespace tarsil::detail
