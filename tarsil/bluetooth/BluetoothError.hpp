#pragma once

#include <string>

namespace tarsil {

/// Why a Bluetooth operation failed or a connection ended.
struct BluetoothError {
  enum class Code {
    /// The system gave no reason, or one that is none of these; `description` has its own words.
    unknown,
    /// The operation needs a connection and there is none.
    notConnected,
    /// The connection could not be made.
    connectionFailed,
    /// The peripheral went silent: the link's supervision time-out, or no answer to a connection attempt.
    connectionTimeout,
    /// The peripheral ended the connection.
    peripheralDisconnected,
    /// Bluetooth itself went away: switched off, adapter removed, or the system's Bluetooth service stopped.
    centralUnavailable,
    /// The system refused this process the operation.
    notPermitted,
    /// The peripheral or the characteristic cannot do this.
    notSupported,
  };

  Code code = Code::unknown;
  /// One line for a log; the system's own words where it has some.
  std::string description;

  bool operator==(const BluetoothError&) const = default;
};

}  // namespace tarsil
