#pragma once

#include <memory>

#include "tarsil/bluetooth/BluetoothCentral.hpp"

namespace tarsil {

/// A central over BlueZ, the Bluetooth system of Linux. Call it on the main thread; it lives on the main run
/// loop and has no thread of its own.
///
/// Opening the system bus takes a few exchanges with the bus itself, here; nothing that is called later ever
/// waits. Without a system bus, or once it is lost, the state is `unsupported` for good, and the reason is
/// one line on standard output.
///
/// - Of several adapters it uses one that is switched on, and stays with it until that one goes away or is
///   switched off.
/// - `connect` stays in force until there is a connection: an attempt that the peripheral does not answer, or
///   that breaks off, is repeated after a second, and a peripheral that BlueZ has forgotten is looked for. It
///   fails when the system refuses it, or when Bluetooth goes away.
/// - A scan also reports what BlueZ is connected to: BlueZ keeps a connection whose program has crashed.
/// - `unauthorized` lasts until the adapter is switched off and on, or BlueZ is restarted.
/// - `identifier()` is the peripheral's address.
/// - BlueZ 5.66 does not say why a connection ended: `BluetoothError::Code::unknown` then stands for a link
///   that was lost and for one that the peripheral ended. Versions that send the signal Device1.Disconnected
///   tell them apart.
std::shared_ptr<BluetoothCentral> makeBluezCentral();

}  // namespace tarsil
