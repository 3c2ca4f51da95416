#pragma once

#include <functional>
#include <memory>

#include "tarsil/bluetooth/BluetoothCentral.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"

namespace tarsil::detail {

/// The Bluetooth oximeter of a station, which is looked for until it is found, and again when its link is
/// lost. Every measurement is handed on, unchanged ones included. Main thread.
class BluetoothOximeter {
 public:
  BluetoothOximeter(std::shared_ptr<BluetoothCentral> central, std::function<void(float)> saturation);
  ~BluetoothOximeter();
  BluetoothOximeter(const BluetoothOximeter&) = delete;
  BluetoothOximeter& operator=(const BluetoothOximeter&) = delete;

  /// Ends scan and connection.
  void close();

 private:
  class Host;

  std::shared_ptr<BluetoothCentral> central_;
  std::shared_ptr<MEDXINGSpO2> oximeter_;
  std::shared_ptr<Host> host_;
};

}  // namespace tarsil::detail
