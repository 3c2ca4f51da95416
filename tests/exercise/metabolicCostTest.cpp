#include "tarsil/exercise/metabolicCost.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tarsil {
namespace {

constexpr double mile = 1.609344;  // km
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

// Worked by hand from the published equations: ml of oxygen a minute and kilogram, over 3.5.

TEST(MetabolicCostTest, OfWalkingUphill) {
  // 75 m a minute at 10 %: 7.5 + 13.5 + 3.5 ml
  EXPECT_NEAR(costOnTreadmill(4.5, 10)->equivalents, 24.5 / 3.5, 1e-9);
  EXPECT_TRUE(costOnTreadmill(4.5, 10)->isWithinValidity);
}

TEST(MetabolicCostTest, OfRunningUphill) {
  // 200 m a minute at 5 %: 40 + 9 + 3.5 ml
  EXPECT_NEAR(costOnTreadmill(12, 5)->equivalents, 52.5 / 3.5, 1e-9);
  EXPECT_TRUE(costOnTreadmill(12, 5)->isWithinValidity);
}

TEST(MetabolicCostTest, OfTheStagesOfBruceAsTheTablesHaveThem) {
  EXPECT_NEAR(costOnTreadmill(1.7 * mile, 10)->equivalents, 4.6, 0.05);
  EXPECT_NEAR(costOnTreadmill(2.5 * mile, 12)->equivalents, 7.0, 0.1);
  EXPECT_NEAR(costOnTreadmill(3.4 * mile, 14)->equivalents, 10.2, 0.1);
  EXPECT_NEAR(costOnTreadmill(4.2 * mile, 16)->equivalents, 13.5, 0.1);
}

TEST(MetabolicCostTest, SaysWhereTheTreadmillEquationsWereNotPublishedFor) {
  EXPECT_FALSE(costOnTreadmill(2.99, 0)->isWithinValidity);
  EXPECT_TRUE(costOnTreadmill(3, 0)->isWithinValidity);
  EXPECT_TRUE(costOnTreadmill(6, 0)->isWithinValidity);
  EXPECT_FALSE(costOnTreadmill(6.01, 0)->isWithinValidity);
  EXPECT_FALSE(costOnTreadmill(8.04, 0)->isWithinValidity);
  EXPECT_TRUE(costOnTreadmill(8.05, 0)->isWithinValidity);
}

TEST(MetabolicCostTest, OfCyclingDependsOnTheMass) {
  // 10.8 * 100 / 60 + 7 ml
  EXPECT_NEAR(costOnErgometer(100, 60)->equivalents, 25 / 3.5, 1e-9);
  EXPECT_NEAR(costOnErgometer(100, 120)->equivalents, 16 / 3.5, 1e-9);
}

TEST(MetabolicCostTest, SaysWhereTheErgometerEquationWasNotPublishedFor) {
  EXPECT_FALSE(costOnErgometer(49, 70)->isWithinValidity);
  EXPECT_TRUE(costOnErgometer(50, 70)->isWithinValidity);
  EXPECT_TRUE(costOnErgometer(200, 70)->isWithinValidity);
  EXPECT_FALSE(costOnErgometer(201, 70)->isWithinValidity);
}

TEST(MetabolicCostTest, OfStandingAndSittingIsOne) {
  EXPECT_EQ(costOnTreadmill(0, 15)->equivalents, 1);
  EXPECT_EQ(costOnErgometer(0, 70)->equivalents, 1);
}

TEST(MetabolicCostTest, OfWhatNobodyCanMeasureIsNone) {
  for (const double wrong : {-0.1, nan, infinite}) {
    EXPECT_FALSE(costOnTreadmill(wrong, 0)) << wrong;
    EXPECT_FALSE(costOnTreadmill(5, wrong)) << wrong;
    EXPECT_FALSE(costOnErgometer(wrong, 70)) << wrong;
    EXPECT_FALSE(costOnErgometer(100, wrong)) << wrong;
  }
  EXPECT_FALSE(costOnErgometer(100, 0));
}

}  // namespace
}  // namespace tarsil
