#pragma once

#include <memory>
#include <string>

#include "doubles/ScriptedCentral.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tools/tarsil/replay/Events.hpp"
#include "tools/tarsil/replay/Operation.hpp"

namespace tarsil::cli {

/// What happens in the air around a Bluetooth oximeter. The oximeter is the central's delegate from the
/// start.
class BluetoothScript {
 public:
  BluetoothScript(Events& events, std::shared_ptr<MEDXINGSpO2> oximeter);

  /// False when it is no operation for a Bluetooth oximeter.
  bool perform(const Operation& operation);

 private:
  void performEvent(const Operation& operation);
  /// What the central tells of, and what the peripheral answers; false for an event of another kind.
  bool performCentralEvent(const std::string& event, const Operation& operation);
  bool performPeripheralEvent(const std::string& event, const Operation& operation);
  /// The characteristic that the operation names, else the oximeter's own.
  std::shared_ptr<doubles::ScriptedCharacteristic> characteristic(const Operation& operation) const;
  void setField(const Operation& operation);
  /// The identifier that the operation names, else that of the peripheral at hand.
  std::string identifier(const Operation& operation) const;
  /// The peripheral that the oximeter has stored, else the one discovered last.
  std::shared_ptr<doubles::ScriptedPeripheral> peripheral() const;

  std::shared_ptr<MEDXINGSpO2> oximeter_;
  std::shared_ptr<doubles::ScriptedCentral> central_;
  std::string lastDiscovered_;
};

/// The observer that turns what is asked of a central and its peripherals into events.
doubles::BluetoothCallObserver bluetoothEvents(Events& events);

}  // namespace tarsil::cli
