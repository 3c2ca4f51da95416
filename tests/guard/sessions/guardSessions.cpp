// guard-sessions [COUNT [FIRST_SEED]]: random sessions on virtual time, by the ten thousand. Prints what they
// came to, and the story of the first that broke a rule; ends with 1 when one did.

#include <cstdio>
#include <cstdlib>

#include "tests/guard/RandomSession.hpp"

int main(int argc, char** argv) {
  const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000;
  const std::uint64_t first = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  std::uint64_t checks = 0;
  std::uint64_t faults = 0;
  std::uint64_t broken = 0;
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const tarsil::RandomSession session = tarsil::runRandomSession(seed);
    checks += session.checks;
    faults += session.faults;
    if (session.violations.empty()) continue;
    if (broken++ > 0) continue;
    std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), session.violations.front().c_str());
    for (const std::string& line : session.story) std::printf("  %s\n", line.c_str());
  }
  std::printf("%llu sessions from seed %llu: %llu checks, %llu faults, %llu sessions broke a rule\n",
              static_cast<unsigned long long>(count), static_cast<unsigned long long>(first),
              static_cast<unsigned long long>(checks), static_cast<unsigned long long>(faults),
              static_cast<unsigned long long>(broken));
  return broken == 0 ? 0 : 1;
}
