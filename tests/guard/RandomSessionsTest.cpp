#include <gtest/gtest.h>

#include "tests/guard/RandomSession.hpp"

namespace tarsil {
namespace {

/// A share of what `guard-sessions` runs by the ten thousand.
constexpr std::uint64_t sessions = 40;

TEST(RandomSessionsTest, KeepEveryRule) {
  std::uint64_t checks = 0;
  for (std::uint64_t seed = 1; seed <= sessions; ++seed) {
    const RandomSession session = runRandomSession(seed);
    checks += session.checks;
    if (session.violations.empty()) continue;
    std::string story;
    for (const std::string& line : session.story) story += line + "\n";
    ADD_FAILURE() << "seed " << seed << ": " << session.violations.front() << "\n" << story;
  }
  EXPECT_GT(checks, 100 * sessions);
}

}  // namespace
}  // namespace tarsil
