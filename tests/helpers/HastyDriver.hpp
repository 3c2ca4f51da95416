#pragma once

#include <thread>

#include "tarsil/platform/linux/KernelTerminalDriver.hpp"

namespace tarsil {

/// The kernel's drivers, and a terminal over them that loses its patience within moments: its three seconds
/// are so many pauses.
class HastyDriver final : public KernelTerminalDriver {
 public:
  void pause() override { std::this_thread::yield(); }
};

}  // namespace tarsil
