// A host that drops its station at each moment of an exercise.

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>

#include "tests/guard/GuardedSession.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

TEST(DroppedStationTest, LeavesAMachineThatStandsAndALineForTheNext) {
  std::size_t events = 0;
  bool wasDropped = true;
  for (std::size_t moment = 0; wasDropped; ++moment) {
    GuardedSession session({.monitor = true});
    const auto run = [&session](Duration duration) {
      for (Duration passed{}; passed < duration; passed += 100ms) session.run(100ms);
    };
    events = 0;
    wasDropped = false;
    session.station()->onEvent([&](const Event& /*event*/) {
      if (events++ != moment) return;
      wasDropped = true;
      session.station().reset();
    });
    const auto ask = [&session](auto command) {
      if (!session.station()) return;
      EXPECT_TRUE(command(*session.station()).isAccepted());
    };
    run(6s);
    ask([](GuardedStation& station) { return station.start(); });
    ask([](GuardedStation& station) { return station.setLoad({.speed = 2}); });
    run(4s);
    ask([](GuardedStation& station) { return station.measurePressure(); });
    run(2s);
    ask([](GuardedStation& station) { return station.stop(); });
    run(6s);
    session.station().reset();
    run(10s);
    ASSERT_EQ(session.truth().speed, 0) << "dropped in event " << moment;
    session.openAgain();
    session.run(2s);
    EXPECT_EQ(session->state(), GuardedStation::State::ready);
  }
  EXPECT_GT(events, 100U);
}

}  // namespace
}  // namespace tarsil
