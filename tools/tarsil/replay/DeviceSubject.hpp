#pragma once

#include <memory>
#include <optional>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"
#include "tools/tarsil/replay/BluetoothScript.hpp"
#include "tools/tarsil/replay/Subject.hpp"

namespace tarsil::cli {

/// One driver with a scripted port of its own.
class DeviceSubject final : public Subject {
 public:
  DeviceSubject(ReplayWorld world, const Operation& start);
  ~DeviceSubject() override;

  void perform(const Operation& operation) override;

 private:
  enum class PortState { open, closed, none };
  static PortState portState(const Value& value);

  void setPort(PortState state);
  void setDelegates(const Operation& operation);
  /// What the port tells its delegate, by name; false when it is no such operation.
  bool performPortCall(const Operation& operation);

  ReplayWorld world_;
  std::shared_ptr<KivStressDevice> device_;
  /// The device as its port's delegate; null for one that is on no serial port.
  std::shared_ptr<ORSSerialPortDelegate> driver_;
  std::shared_ptr<ORSSerialPort> port_;
  std::optional<BluetoothScript> bluetooth_;
};

}  // namespace tarsil::cli
