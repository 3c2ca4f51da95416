#pragma once

#include <memory>
#include <string_view>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// What every driver of a serial device shares: it is its port's delegate, tells the host when the port opens
/// or vanishes, and prints port errors, which the host never hears of. Commands are dropped without a report
/// while there is no port; without a host, replies are read all the same. Main thread, on which the port
/// calls its delegate too.
class SerialDriver : public KivStressDevice, public ORSSerialPortDelegate {
 public:
  using KivStressDevice::KivStressDevice;

  /// Also makes this driver the port's delegate; a driver that does not live in a std::shared_ptr cannot be
  /// one, and stops the process.
  void setSerialPort(std::shared_ptr<ORSSerialPort> port) override;

  void serialPortWasOpened(ORSSerialPort& port) override;
  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override;
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& error) override;
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override = 0;

 protected:
  /// This driver as its port's delegate, as the class that it is, so that it hears every call that this class
  /// overrides. Every driver says it in the same words: `return itself(*this);`. A class that is derived from
  /// a driver and does not repeat them stops the process when it gets a port.
  virtual ORSSerialPortDelegateRef portDelegate() = 0;
  template <class Driver>
  static ORSSerialPortDelegateRef itself(Driver& driver) {
    return std::static_pointer_cast<Driver>(driver.shared_from_this());
  }

  /// Sends the bytes that the hexadecimal text stands for. A text that gives no bytes sends nothing.
  void sendHex(std::string_view hex) const;
  /// Sends the characters as they are.
  void sendText(std::string_view text) const;
};

}  // namespace tarsil
