#include "tarsil/guard/detail/Containment.hpp"

#include <gtest/gtest.h>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

TEST(ContainmentTest, TellsWhyTheProcessWouldHaveStopped) {
  const Containment containment;
  EXPECT_EQ(Containment::call([] { fatalError("no honest answer"); }), "no honest answer");
}

TEST(ContainmentTest, TellsThatTheThreadWouldHaveStayedForEver) {
  const Containment containment;
  EXPECT_EQ(Containment::call([] { neverReturn(); }), "it would wait for ever for a reply that it knows");
}

TEST(ContainmentTest, LeavesWorkThatReturnsAlone) {
  const Containment containment;
  bool done = false;
  EXPECT_EQ(Containment::call([&] { done = true; }), std::nullopt);
  EXPECT_TRUE(done);
}

TEST(ContainmentDeathTest, StopsTheProcessOutsideOfAContainedCall) {
  const Containment containment;
  EXPECT_DEATH(fatalError("no honest answer"), "tarsil: fatal error: no honest answer");
}

TEST(ContainmentDeathTest, EndsWithItsObject) {
  { const Containment containment; }
  EXPECT_DEATH(static_cast<void>(Containment::call([] { fatalError("nobody contains it"); })),
               "nobody contains it");
}

}  // namespace
}  // namespace tarsil::detail
