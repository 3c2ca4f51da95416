#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "tarsil/bluetooth/BluetoothCentral.hpp"

namespace tarsil::cli {

/// A central for a demonstration, and whether its oximeter is a simulated one.
struct HostCentral {
  std::shared_ptr<BluetoothCentral> central;
  bool isSimulated;
};

/// The machine's own Bluetooth where it has an adapter; otherwise a central with a simulated oximeter in
/// reach, which asks `saturation` (in percent) for each of its measurements. Main thread.
HostCentral hostCentral(std::function<std::uint8_t()> saturation);

/// Always the simulated one.
HostCentral simulatedCentral(std::function<std::uint8_t()> saturation);

}  // namespace tarsil::cli
