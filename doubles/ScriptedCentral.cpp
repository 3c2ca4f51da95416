#include "doubles/ScriptedCentral.hpp"

namespace tarsil::doubles {

void ScriptedCentral::connect(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  record("connect", peripheral->identifier());
}

void ScriptedCentral::cancelPeripheralConnection(const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  record("cancelConnection", peripheral->identifier());
}

std::shared_ptr<ScriptedPeripheral> ScriptedCentral::peripheral(const std::string& identifier) {
  auto& known = peripherals_[identifier];
  if (!known) known = std::make_shared<ScriptedPeripheral>(identifier, std::nullopt, observer_);
  return known;
}

void ScriptedCentral::updateState(BluetoothState state) {
  state_ = state;
  if (const auto host = delegate_.lock()) host->centralManagerDidUpdateState(*this);
}

void ScriptedCentral::discover(const std::string& identifier, std::optional<std::string> name) {
  const auto found = peripheral(identifier);
  found->rename(std::move(name));
  const BluetoothAdvertisement advertisement{found->name(), {}};
  if (const auto host = delegate_.lock()) {
    host->centralManagerDidDiscoverPeripheral(*this, found, advertisement, std::nullopt);
  }
}

void ScriptedCentral::didConnect(const std::string& identifier) {
  const auto target = peripheral(identifier);
  target->connectionState = BluetoothPeripheralState::connected;
  if (const auto host = delegate_.lock()) host->centralManagerDidConnectPeripheral(*this, target);
}

void ScriptedCentral::didFailToConnect(const std::string& identifier,
                                       const std::optional<BluetoothError>& error) {
  const auto target = peripheral(identifier);
  target->connectionState = BluetoothPeripheralState::disconnected;
  if (const auto host = delegate_.lock())
    host->centralManagerDidFailToConnectPeripheral(*this, target, error);
}

void ScriptedCentral::didDisconnect(const std::string& identifier,
                                    const std::optional<BluetoothError>& error) {
  const auto target = peripheral(identifier);
  target->connectionState = BluetoothPeripheralState::disconnected;
  target->setServices({});
  if (const auto host = delegate_.lock()) host->centralManagerDidDisconnectPeripheral(*this, target, error);
}

void ScriptedCentral::record(std::string name, std::optional<std::string> argument) const {
  if (observer_) observer_({"central", std::move(name), std::move(argument)});
}

}  // namespace tarsil::doubles
