#include "tarsil/runtime/Observation.hpp"

#include <optional>
#include <utility>

#include <gtest/gtest.h>

namespace tarsil {
namespace {

class ObservationTest : public testing::Test {
 protected:
  Observation observation() {
    return Observation([this] { ++ended; });
  }

  int ended = 0;
};

TEST_F(ObservationTest, EndsOnceWhenItIsDropped) {
  { const auto dropped = observation(); }
  EXPECT_EQ(ended, 1);
}

TEST_F(ObservationTest, EndsOnceWhenItIsReset) {
  auto kept = observation();
  kept.reset();
  kept.reset();
  EXPECT_EQ(ended, 1);
}

TEST_F(ObservationTest, MovesItsEndAlong) {
  std::optional<Observation> first(observation());
  auto second = std::move(*first);
  first.reset();
  EXPECT_EQ(ended, 0);
  second = observation();
  EXPECT_EQ(ended, 1);
  second = Observation();
  EXPECT_EQ(ended, 2);
}

}  // namespace
}  // namespace tarsil
