#include "doubles/ScriptedCentral.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Delegate : public BluetoothCentralDelegate, public BluetoothPeripheralDelegate {
 public:
  void centralManagerDidUpdateState(BluetoothCentral&) override { heard.push_back("state"); }
  void centralManagerDidConnectPeripheral(BluetoothCentral&,
                                          const std::shared_ptr<BluetoothPeripheral>& peripheral) override {
    heard.push_back("connected " + peripheral->identifier());
  }
  void centralManagerDidFailToConnectPeripheral(BluetoothCentral&,
                                                const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                                const std::optional<BluetoothError>& error) override {
    heard.push_back("failed " + peripheral->identifier() + " " + error.value().description);
  }
  void centralManagerDidDisconnectPeripheral(BluetoothCentral&,
                                             const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                             const std::optional<BluetoothError>&) override {
    heard.push_back("disconnected " + peripheral->identifier());
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>&,
      const std::shared_ptr<BluetoothCharacteristic>& characteristic,
      const std::optional<BluetoothError>&) override {
    heard.push_back(characteristic->UUID() + (characteristic->isNotifying() ? " notifies" : " is quiet"));
  }
  std::vector<std::string> heard;
};

class ScriptedCentralTest : public testing::Test {
 protected:
  std::vector<std::string> calls;
  doubles::ScriptedCentral central{
      [this](const doubles::BluetoothCall& call) { calls.push_back(call.text()); }};
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
};

TEST_F(ScriptedCentralTest, TellsTheObserverEveryCall) {
  const auto peripheral = central.peripheral("p1");
  const auto service = peripheral->setCharacteristics("FFB0", {"FFB2"});
  central.scanForPeripherals();
  central.stopScan();
  central.connect(peripheral);
  central.cancelPeripheralConnection(peripheral);
  peripheral->setDelegate(delegate);
  peripheral->discoverServices();
  peripheral->discoverCharacteristics(service);
  peripheral->setNotifyValue(true, service->characteristics().front());
  peripheral->setNotifyValue(false, service->characteristics().front());
  EXPECT_THAT(calls, ElementsAre("central scan", "central stopScan", "central connect p1",
                                 "central cancelConnection p1", "peripheral setDelegate p1",
                                 "peripheral discoverServices p1", "peripheral discoverCharacteristics FFB0",
                                 "peripheral setNotify FFB2", "peripheral clearNotify FFB2"));
}

TEST_F(ScriptedCentralTest, TellsTheDelegateWhatTheScriptSays) {
  central.setDelegate(delegate);
  EXPECT_THAT(delegate->heard, IsEmpty());
  central.updateState(BluetoothState::poweredOn);
  central.didFailToConnect("p1", BluetoothError{BluetoothError::Code::connectionTimeout, "no answer"});
  central.didConnect("p1");
  EXPECT_EQ(central.peripheral("p1")->state(), BluetoothPeripheralState::connected);
  central.peripheral("p1")->setCharacteristics("FFB0", {"FFB2"});
  central.peripheral("p1")->setDelegate(delegate);
  central.peripheral("p1")->answerNotificationState("FFB2", true);
  central.didDisconnect("p1");
  EXPECT_EQ(central.peripheral("p1")->state(), BluetoothPeripheralState::disconnected);
  EXPECT_THAT(central.peripheral("p1")->services(), IsEmpty());
  EXPECT_THAT(delegate->heard, ElementsAre("state", "failed p1 no answer", "connected p1", "FFB2 notifies",
                                           "disconnected p1"));
}

TEST_F(ScriptedCentralTest, KeepsNobodyAlive) {
  std::weak_ptr<Delegate> watched = delegate;
  central.setDelegate(delegate);
  central.peripheral("p1")->setDelegate(delegate);
  delegate.reset();
  EXPECT_TRUE(watched.expired());
  central.updateState(BluetoothState::poweredOn);
  central.didConnect("p1");
  central.peripheral("p1")->answerServices({"FFB0"});
}

}  // namespace
}  // namespace tarsil
