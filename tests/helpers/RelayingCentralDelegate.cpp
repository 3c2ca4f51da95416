#include "tests/helpers/RelayingCentralDelegate.hpp"

#include <algorithm>

namespace tarsil {
namespace {

std::string withCode(const char* what, const std::optional<BluetoothError>& error) {
  return error ? std::string(what) + " " + nameOf(error->code) : what;
}

}  // namespace

void RelayingCentralDelegate::centralManagerDidUpdateState(BluetoothCentral& central) {
  heard.push_back(nameOf(central.state()));
  receiver_->centralManagerDidUpdateState(central);
}

void RelayingCentralDelegate::centralManagerDidDiscoverPeripheral(
    BluetoothCentral& central, const std::shared_ptr<BluetoothPeripheral>& peripheral,
    const BluetoothAdvertisement& advertisementData, std::optional<int> RSSI) {
  heard.push_back("discovered " + peripheral->name().value_or("?"));
  lastPeripheral = peripheral;
  receiver_->centralManagerDidDiscoverPeripheral(central, peripheral, advertisementData, RSSI);
}

void RelayingCentralDelegate::centralManagerDidConnectPeripheral(
    BluetoothCentral& central, const std::shared_ptr<BluetoothPeripheral>& peripheral) {
  heard.push_back("connected");
  lastPeripheral = peripheral;
  receiver_->centralManagerDidConnectPeripheral(central, peripheral);
}

void RelayingCentralDelegate::centralManagerDidFailToConnectPeripheral(
    BluetoothCentral& central, const std::shared_ptr<BluetoothPeripheral>& peripheral,
    const std::optional<BluetoothError>& error) {
  heard.push_back(withCode("failed", error));
  lastPeripheral = peripheral;
  receiver_->centralManagerDidFailToConnectPeripheral(central, peripheral, error);
}

void RelayingCentralDelegate::centralManagerDidDisconnectPeripheral(
    BluetoothCentral& central, const std::shared_ptr<BluetoothPeripheral>& peripheral,
    const std::optional<BluetoothError>& error) {
  heard.push_back(withCode("disconnected", error));
  lastPeripheral = peripheral;
  receiver_->centralManagerDidDisconnectPeripheral(central, peripheral, error);
}

bool RelayingCentralDelegate::hasHeard(const std::string& line) const {
  return count(line) > 0;
}

std::size_t RelayingCentralDelegate::count(const std::string& line) const {
  return static_cast<std::size_t>(std::count(heard.begin(), heard.end(), line));
}

const char* nameOf(BluetoothState state) {
  switch (state) {
    case BluetoothState::unknown:
      return "unknown";
    case BluetoothState::resetting:
      return "resetting";
    case BluetoothState::unsupported:
      return "unsupported";
    case BluetoothState::unauthorized:
      return "unauthorized";
    case BluetoothState::poweredOff:
      return "poweredOff";
    case BluetoothState::poweredOn:
      return "poweredOn";
  }
  return "?";
}

const char* nameOf(BluetoothError::Code code) {
  using enum BluetoothError::Code;
  switch (code) {
    case unknown:
      return "unknown";
    case notConnected:
      return "notConnected";
    case connectionFailed:
      return "connectionFailed";
    case connectionTimeout:
      return "connectionTimeout";
    case peripheralDisconnected:
      return "peripheralDisconnected";
    case centralUnavailable:
      return "centralUnavailable";
    case notPermitted:
      return "notPermitted";
    case notSupported:
      return "notSupported";
  }
  return "?";
}

}  // namespace tarsil
