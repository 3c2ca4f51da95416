#pragma once

#include <optional>
#include <string>

#include "tarsil/bluetooth/BluetoothError.hpp"
#include "tarsil/bluetooth/bluez/detail/SystemBus.hpp"

namespace tarsil::bluez {

/// What a failed call means to this library.
enum class Failure {
  /// BlueZ is there already, or was never anywhere else: the call has its effect.
  none,
  /// It may well succeed in a moment.
  passing,
  /// There is no BlueZ on the bus.
  noDaemon,
  /// The system forbids this process the call.
  refused,
  /// It will not succeed.
  lasting,
};

/// Whether BlueZ is still busy with an earlier call of the same kind.
bool isInProgress(const std::optional<BusError>& error);
Failure failureOf(const BusError& error);
/// The error as a delegate hears it.
BluetoothError toBluetoothError(const BusError& error);
/// What BlueZ's reason for the end of a connection means; `unknown` where it gives none.
BluetoothError lossFor(const std::optional<std::string>& reasonName, const std::string& reasonText);

}  // namespace tarsil::bluez
