#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "doubles/BluetoothCall.hpp"
#include "doubles/ScriptedPeripheral.hpp"
#include "tarsil/bluetooth/BluetoothCentral.hpp"

namespace tarsil::doubles {

/// A central without a radio, for tests and for the replay of scripts: whatever is asked of it or of its
/// peripherals goes to the observer, and the script says what happens in the air. It never does anything by
/// itself, not even tell a new delegate its state. The events below call the delegate at once, on the calling
/// thread.
class ScriptedCentral final : public BluetoothCentral {
 public:
  explicit ScriptedCentral(BluetoothCallObserver observer) : observer_(std::move(observer)) {}

  BluetoothState state() const override { return state_; }
  void setDelegate(std::weak_ptr<BluetoothCentralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void scanForPeripherals() override { record("scan"); }
  void stopScan() override { record("stopScan"); }
  void connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;
  void cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) override;

  /// The peripheral with this identifier; made up on first use, without a name.
  std::shared_ptr<ScriptedPeripheral> peripheral(const std::string& identifier);

  void updateState(BluetoothState state);
  /// `name` is what the peripheral is called from now on.
  void discover(const std::string& identifier, std::optional<std::string> name);
  void didConnect(const std::string& identifier);
  void didFailToConnect(const std::string& identifier,
                        const std::optional<BluetoothError>& error = std::nullopt);
  void didDisconnect(const std::string& identifier,
                     const std::optional<BluetoothError>& error = std::nullopt);

 private:
  void record(std::string name, std::optional<std::string> argument = std::nullopt) const;

  BluetoothCallObserver observer_;
  BluetoothState state_ = BluetoothState::unknown;
  std::weak_ptr<BluetoothCentralDelegate> delegate_;
  std::map<std::string, std::shared_ptr<ScriptedPeripheral>> peripherals_;
};

}  // namespace tarsil::doubles
