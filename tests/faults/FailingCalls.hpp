#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarsil {

/// How one call of the system goes wrong.
struct Fault {
  /// "read", "ioctl TIOCMGET"; "memory" for an allocation.
  std::string call;
  /// Which of these calls, from 0 on.
  std::size_t number = 0;
  /// errno; `fewer` for a transfer of fewer bytes than were asked for.
  int error = 0;
  /// All later ones that could fail in this way do, too: no descriptor is left.
  bool forGood = false;

  static constexpr int fewer = -1;
};

/// "read 17: Input/output error"
std::string text(const Fault& fault);

/// The library's calls of the system, which go through here in the programs that link this: counted, and
/// failed where a test wants one to fail. The calls of tests and simulated devices are their own. Any thread;
/// arm and disarm while no other thread runs library code.
class FailingCalls {
 public:
  /// From now on calls are counted; none fails.
  static void count();
  /// From now on calls are counted, and one fails.
  static void arm(const Fault& fault);
  /// Calls are their own again.
  static void disarm();

  /// Names of the calls since `count` or `arm`, in their order.
  static std::vector<std::string> made();
  /// How often memory was allocated since then, by anybody in the program.
  static std::size_t allocated();
  /// Whether the fault has come to pass.
  static bool hasFailed();

  /// The ways in which this call can plausibly go wrong.
  static std::vector<int> faultsOf(const std::string& call);

  /// What `new` of this program asks.
  static void* allocate(std::size_t size);
};

}  // namespace tarsil
