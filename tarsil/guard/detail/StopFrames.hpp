#pragma once

#include <vector>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// The bytes that stop a model, as its own driver writes them: for those who cannot wait for the driver (a
/// thread that stands in for a frozen main thread, a process that stands in for a dead one).
struct StopFrames {
  /// To be sent at once, and again until the device stands.
  std::vector<Bytes> now;
  /// To be sent when it stands; empty for most models.
  std::vector<Bytes> standing;
};

/// Lets a driver of its own write its stop to a line that leads nowhere. Main thread.
StopFrames stopFramesOf(KivStressDevice& driver);

}  // namespace tarsil::detail
