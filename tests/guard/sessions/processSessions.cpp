// guard-process-sessions COUNT [FIRST_SEED [AT_ONCE]]: random sessions in real processes, some at once.
// Prints what they came to, and the story of each that broke a rule; ends with 1 when one did.
// guard-process-sessions --one SEED: one of them, with its story.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/runtime/RunLoop.hpp"
#include "tests/guard/sessions/processSession.hpp"
#include "tests/helpers/ChildProcess.hpp"

using namespace tarsil;

namespace {

constexpr const char* resultFormat = "%llu checks, %llu faults, %llu violations";

int runOne(std::uint64_t seed) {
  std::string folder = std::filesystem::temp_directory_path() / "guard-process-session-XXXXXX";
  if (!mkdtemp(folder.data())) return 2;
  // Where watchers keep their records.
  setenv("HOME", folder.c_str(), 1);
  unsetenv("XDG_STATE_HOME");
  const RandomSession session = runProcessSession(seed, folder);
  for (const std::string& line : session.story) std::printf("  %s\n", line.c_str());
  std::printf(resultFormat, static_cast<unsigned long long>(session.checks),
              static_cast<unsigned long long>(session.faults),
              static_cast<unsigned long long>(session.violations.size()));
  std::puts("");
  std::fflush(stdout);
  std::error_code error;
  std::filesystem::remove_all(folder, error);
  return session.violations.empty() ? 0 : 1;
}

struct Sum {
  unsigned long long checks = 0, faults = 0, broken = 0;

  void add(std::uint64_t seed, const std::vector<std::string>& story) {
    std::array<unsigned long long, 3> numbers{};
    const bool isWhole = !story.empty() && std::sscanf(story.back().c_str(), resultFormat, &numbers[0],
                                                       &numbers[1], &numbers[2]) == 3;
    checks += numbers[0];
    faults += numbers[1];
    if (isWhole && numbers[2] == 0) return;
    ++broken;
    std::printf("seed %llu%s\n", static_cast<unsigned long long>(seed),
                isWhole ? "" : " did not come to its end");
    for (const std::string& line : story) std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  }
};

int runMany(const std::string& program, std::uint64_t count, std::uint64_t first, std::size_t atOnce) {
  Sum sum;
  struct Running {
    std::uint64_t seed;
    std::unique_ptr<ChildProcess> process;
  };
  std::vector<Running> running;
  for (std::uint64_t next = first; next < first + count || !running.empty();) {
    while (running.size() < atOnce && next < first + count) {
      running.push_back({next, std::make_unique<ChildProcess>(
                                   std::vector<std::string>{program, "--one", std::to_string(next)})});
      ++next;
    }
    RunLoop::main().runUntil([] { return false; }, std::chrono::milliseconds(100));
    std::erase_if(running, [&](Running& session) {
      if (!session.process->hasEnded()) return false;
      RunLoop::main().runUntil([] { return false; }, std::chrono::milliseconds(10));  // its last lines
      sum.add(session.seed, session.process->lines());
      return true;
    });
  }
  std::printf("%llu sessions from seed %llu: %llu checks, %llu faults, %llu sessions broke a rule\n",
              static_cast<unsigned long long>(count), static_cast<unsigned long long>(first), sum.checks,
              sum.faults, sum.broken);
  return sum.broken == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const auto number = [&](int index, std::uint64_t otherwise) {
    return argc > index ? std::strtoull(argv[index], nullptr, 10) : otherwise;
  };
  if (argc == 3 && std::string(argv[1]) == "--one") return runOne(number(2, 1));
  return runMany(argv[0], number(1, 20), number(2, 1), static_cast<std::size_t>(number(3, 10)));
}
