#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tarsil/bluetooth/bluez/makeBluezCentral.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tests/bluez/FakeBluez.hpp"
#include "tests/bluez/PrivateBus.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RelayingCentralDelegate.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* serviceUUID = "0000ffb0-0000-1000-8000-00805f9b34fb";
constexpr const char* characteristicUUID = "0000ffb2-0000-1000-8000-00805f9b34fb";
constexpr const char* deviceInterface = "org.bluez.Device1";

/// Writes down what a peripheral answers.
class RecordingPeripheralDelegate : public BluetoothPeripheralDelegate {
 public:
  void peripheralDidDiscoverServices(const std::shared_ptr<BluetoothPeripheral>& peripheral,
                                     const std::optional<BluetoothError>& error) override {
    std::string line = "services";
    for (const auto& service : peripheral->services()) line += " " + service->UUID();
    heard.push_back(line + codeOf(error));
  }
  void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<BluetoothPeripheral>&,
                                                      const std::shared_ptr<BluetoothService>& service,
                                                      const std::optional<BluetoothError>& error) override {
    std::string line = "characteristics of " + service->UUID();
    for (const auto& characteristic : service->characteristics()) line += " " + characteristic->UUID();
    heard.push_back(line + codeOf(error));
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>&,
      const std::shared_ptr<BluetoothCharacteristic>& characteristic,
      const std::optional<BluetoothError>& error) override {
    heard.push_back(characteristic->UUID() + (characteristic->isNotifying() ? " notifies" : " is quiet") +
                    codeOf(error));
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<BluetoothPeripheral>&,
      const std::shared_ptr<BluetoothCharacteristic>& characteristic,
      const std::optional<BluetoothError>&) override {
    heard.push_back(characteristic->UUID() + " = " +
                    BinaryDecimalHex::hexStringFromData(characteristic->value().value()));
  }
  std::vector<std::string> heard;

 private:
  static std::string codeOf(const std::optional<BluetoothError>& error) {
    return error ? std::string(", error ") + nameOf(error->code) : "";
  }
};

class BluezCentralTest : public testing::Test {
 protected:
  void makeCentral() {
    central = makeBluezCentral();
    central->setDelegate(relay);
  }

  bool until(const std::function<bool()>& condition) { return RunLoop::main().runUntil(condition, 10s); }
  bool hears(const std::string& line) {
    return until([&] { return relay->hasHeard(line); });
  }
  bool isCalled(const std::string& method, std::size_t times = 1) {
    return until([&] { return bluez->count(method) >= times; });
  }
  /// What waits for its next try when this begins has had it then.
  void letAPausePass() {
    bool hasPassed = false;
    Timer::scheduledOn(RunLoop::main(), 1s, false, [&](Timer&) { hasPassed = true; });
    ASSERT_TRUE(until([&] { return hasPassed; }));
  }
  /// A central that is on and scans, and an oximeter that it has found.
  void discover() {
    bluez = std::make_unique<FakeBluez>();
    adapter = bluez->addAdapter("hci0", true);
    makeCentral();
    ASSERT_TRUE(hears("poweredOn"));
    central->scanForPeripherals();
    ASSERT_TRUE(isCalled("StartDiscovery"));
    device = bluez->addDevice(adapter, {.name = "MEDXING-SpO2", .RSSI = -57});
    ASSERT_TRUE(hears("discovered MEDXING-SpO2"));
    peripheral = relay->lastPeripheral;
    peripheral->setDelegate(answers);
    relay->take();
    bluez->takeCalls();
  }

  void connect() {
    discover();
    central->connect(peripheral);
    central->stopScan();
    ASSERT_TRUE(isCalled("Connect"));
    bluez->setFlag(device, "Connected", true);
    ASSERT_TRUE(hears("connected"));
    relay->take();
  }

  void subscribe() {
    connect();
    service = bluez->addService(device, "service0010", serviceUUID);
    characteristic = bluez->addCharacteristic(service, "char0011", characteristicUUID);
    bluez->setFlag(device, "ServicesResolved", true);
    peripheral->discoverServices();
    ASSERT_TRUE(until([&] { return !peripheral->services().empty(); }));
    peripheral->discoverCharacteristics(peripheral->services().front());
    ASSERT_TRUE(until([&] { return !peripheral->services().front()->characteristics().empty(); }));
    peripheral->setNotifyValue(true, peripheral->services().front()->characteristics().front());
    ASSERT_TRUE(isCalled("StartNotify"));
    ASSERT_TRUE(until([&] { return answers->heard.back() == "FFB2 notifies"; }));
    answers->heard.clear();
  }

  PrintedLines printed;
  std::unique_ptr<PrivateBus> bus = std::make_unique<PrivateBus>();
  std::unique_ptr<FakeBluez> bluez;
  std::shared_ptr<BluetoothCentral> central;
  std::shared_ptr<RelayingCentralDelegate> relay = std::make_shared<RelayingCentralDelegate>();
  std::shared_ptr<RecordingPeripheralDelegate> answers = std::make_shared<RecordingPeripheralDelegate>();
  std::shared_ptr<BluetoothPeripheral> peripheral;
  std::string adapter;
  std::string device;
  std::string service;
  std::string characteristic;
};

// ---- state ----

TEST_F(BluezCentralTest, WithoutABusThereIsNoBluetooth) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  makeCentral();
  EXPECT_EQ(central->state(), BluetoothState::unsupported);
  EXPECT_THAT(printed.diagnostic(), ElementsAre(testing::StartsWith("Bluetooth: no system bus: ")));
  EXPECT_THAT(relay->heard, IsEmpty());
  EXPECT_TRUE(hears("unsupported"));
  central->scanForPeripherals();
  central->stopScan();
}

TEST_F(BluezCentralTest, WithoutADaemonThereIsNoBluetoothUntilItComes) {
  makeCentral();
  EXPECT_EQ(central->state(), BluetoothState::unsupported);
  ASSERT_TRUE(hears("unsupported"));
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", true);
  EXPECT_TRUE(hears("poweredOn"));
  EXPECT_THAT(relay->heard, ElementsAre("unsupported", "poweredOn"));
}

TEST_F(BluezCentralTest, ADaemonThatCannotSayWhatItHasIsNoBluetooth) {
  bluez = std::make_unique<FakeBluez>(FakeBluez::Objects::withheld);
  makeCentral();
  EXPECT_EQ(central->state(), BluetoothState::unknown);
  ASSERT_TRUE(hears("unsupported"));
  bluez->addAdapter("hci0", true);
  bluez->handOutObjects();
  // It is asked again by itself.
  EXPECT_TRUE(hears("poweredOn"));
}

TEST_F(BluezCentralTest, TellsEveryStateOfTheAdapter) {
  bluez = std::make_unique<FakeBluez>();
  makeCentral();
  EXPECT_EQ(central->state(), BluetoothState::unknown);
  ASSERT_TRUE(hears("unsupported"));
  adapter = bluez->addAdapter("hci0", false);
  ASSERT_TRUE(hears("poweredOff"));
  bluez->setPowered(adapter, true);
  ASSERT_TRUE(hears("poweredOn"));
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(until([&] { return relay->count("poweredOff") == 2; }));
  bluez->remove(adapter);
  ASSERT_TRUE(until([&] { return relay->count("unsupported") == 2; }));
  EXPECT_THAT(relay->heard,
              ElementsAre("unsupported", "poweredOff", "poweredOn", "poweredOff", "unsupported"));
}

TEST_F(BluezCentralTest, ADaemonThatGoesIsExpectedBack) {
  discover();
  bluez = nullptr;
  ASSERT_TRUE(hears("resetting"));
  EXPECT_THAT(relay->take(), ElementsAre("resetting"));
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", true);
  ASSERT_TRUE(hears("poweredOn"));
  // A loss of Bluetooth ends the scan; the next one works.
  EXPECT_EQ(bluez->count("StartDiscovery"), 0U);
  central->scanForPeripherals();
  EXPECT_TRUE(isCalled("StartDiscovery"));
}

TEST_F(BluezCentralTest, ARefusalOfTheBusIsToldAsSuch) {
  bus = std::make_unique<PrivateBus>("closed");
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", true);
  makeCentral();
  EXPECT_TRUE(hears("unauthorized"));
}

TEST_F(BluezCentralTest, ABusThatIsLostEndsBluetoothForGood) {
  connect();
  bus->kill();
  ASSERT_TRUE(hears("unsupported"));
  EXPECT_THAT(relay->heard, ElementsAre("disconnected centralUnavailable", "unsupported"));
  central->scanForPeripherals();
  central->connect(peripheral);
  EXPECT_TRUE(hears("failed centralUnavailable"));
}

TEST_F(BluezCentralTest, PrefersAnAdapterThatIsOn) {
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", false);
  bluez->addAdapter("hci1", true);
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  EXPECT_THAT(relay->heard, ElementsAre("poweredOn"));
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery"));
  EXPECT_THAT(bluez->takeCalls(), testing::Contains("StartDiscovery /org/bluez/hci1"));
}

TEST_F(BluezCentralTest, MovesToAnotherAdapterWhenItsOwnIsPulledOut) {
  connect();
  central->scanForPeripherals();
  bluez->addAdapter("hci1", true);
  bluez->takeCalls();
  bluez->remove(adapter);
  ASSERT_TRUE(hears("disconnected unknown"));
  ASSERT_TRUE(isCalled("StartDiscovery"));
  EXPECT_THAT(bluez->takeCalls(), testing::Contains("StartDiscovery /org/bluez/hci1"));
  EXPECT_EQ(central->state(), BluetoothState::poweredOn);
}

TEST_F(BluezCentralTest, StaysWithItsAdapterWhileThatOneIsOn) {
  discover();
  const auto other = bluez->addAdapter("hci1", true);
  bluez->setPowered(other, false);
  bluez->setPowered(other, true);
  bluez->addDevice(other, {.address = "C0:00:00:00:00:05", .name = "Heard by the other", .RSSI = -60});
  bluez->addDevice(adapter, {.address = "C0:00:00:00:00:06", .name = "Heard", .RSSI = -60});
  ASSERT_TRUE(hears("discovered Heard"));
  EXPECT_THAT(relay->heard, ElementsAre("discovered Heard"));
}

TEST_F(BluezCentralTest, AnAttemptGoesOnWithAnotherAdapter) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  central->stopScan();
  ASSERT_TRUE(isCalled("Connect"));
  const auto other = bluez->addAdapter("hci1", true);
  bluez->takeCalls();
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(isCalled("StartDiscovery"));
  EXPECT_THAT(bluez->takeCalls(), testing::Contains("StartDiscovery /org/bluez/hci1"));
  EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::connecting);
  bluez->answer("Connect", "org.bluez.Error.Failed");
  bluez->addDevice(other, {.name = "MEDXING-SpO2", .RSSI = -57});
  ASSERT_TRUE(hears("connected"));
  EXPECT_THAT(relay->heard, ElementsAre("connected"));
  EXPECT_THAT(bluez->takeCalls(), testing::Contains("Connect /org/bluez/hci1/dev_C0_11_22_33_44_55"));
}

TEST_F(BluezCentralTest, ANewDelegateIsToldTheStateLater) {
  discover();
  const auto other = std::make_shared<RelayingCentralDelegate>();
  central->setDelegate(other);
  EXPECT_THAT(other->heard, IsEmpty());
  EXPECT_TRUE(until([&] { return other->hasHeard("poweredOn"); }));
  EXPECT_THAT(relay->heard, IsEmpty());
}

TEST_F(BluezCentralTest, ANewDelegateIsToldTheStateOnce) {
  discover();
  central->setDelegate(relay);
  central->setDelegate(relay);
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(hears("poweredOff"));
  EXPECT_THAT(relay->heard, ElementsAre("poweredOn", "poweredOff"));
}

// ---- scan ----

TEST_F(BluezCentralTest, ScansForLowEnergyOnly) {
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", true);
  makeCentral();
  central->scanForPeripherals();  // too early: nothing happens
  ASSERT_TRUE(hears("poweredOn"));
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery"));
  central->stopScan();
  ASSERT_TRUE(isCalled("StopDiscovery"));
  EXPECT_THAT(bluez->takeCalls(),
              ElementsAre("SetDiscoveryFilter /org/bluez/hci0 DuplicateData=0 Transport=le",
                          "StartDiscovery /org/bluez/hci0", "StopDiscovery /org/bluez/hci0"));
}

TEST_F(BluezCentralTest, ReportsAPeripheralOncePerScanAndName) {
  discover();
  EXPECT_EQ(peripheral->identifier(), "C0:11:22:33:44:55");
  bluez->announce(device, deviceInterface, {{"RSSI", sdbus::Variant(std::int16_t{-40})}});
  bluez->announce(device, deviceInterface, {{"Name", sdbus::Variant(std::string("MEDXING-SpO2"))}});
  bluez->announce(device, deviceInterface, {{"Name", sdbus::Variant(std::string("Renamed"))}});
  ASSERT_TRUE(hears("discovered Renamed"));
  EXPECT_THAT(relay->take(), ElementsAre("discovered Renamed"));
  EXPECT_EQ(relay->lastPeripheral, peripheral);
  EXPECT_EQ(peripheral->name(), "Renamed");
  // It is still heard: a new scan reports it at once.
  central->scanForPeripherals();
  EXPECT_TRUE(hears("discovered Renamed"));
}

TEST_F(BluezCentralTest, ReportsANameThatComesLate) {
  discover();
  const auto late = bluez->addDevice(adapter, {.address = "C0:00:00:00:00:02", .name = {}, .RSSI = -60});
  ASSERT_TRUE(hears("discovered ?"));
  bluez->announce(late, deviceInterface, {{"Name", sdbus::Variant(std::string("Late"))}});
  EXPECT_TRUE(hears("discovered Late"));
}

TEST_F(BluezCentralTest, DoesNotReportWhatBluezOnlyRemembers) {
  discover();
  bluez->announce(device, deviceInterface, {}, {"RSSI"});
  bluez->addDevice(adapter, {.address = "C0:00:00:00:00:03", .name = "Remembered", .RSSI = {}});
  bluez->addDevice(adapter, {.address = "C0:00:00:00:00:04", .name = "Heard", .RSSI = -60});
  ASSERT_TRUE(hears("discovered Heard"));
  central->scanForPeripherals();
  ASSERT_TRUE(until([&] { return relay->count("discovered Heard") == 2; }));
  EXPECT_THAT(relay->heard, ElementsAre("discovered Heard", "discovered Heard"));
  // Heard again at last.
  bluez->announce(device, deviceInterface, {{"RSSI", sdbus::Variant(std::int16_t{-50})}});
  EXPECT_TRUE(hears("discovered MEDXING-SpO2"));
}

// As an earlier program leaves it that ended, or crashed, without ending its connection.
TEST_F(BluezCentralTest, ReportsWhatIsConnectedAlready) {
  bluez = std::make_unique<FakeBluez>();
  adapter = bluez->addAdapter("hci0", true);
  device = bluez->addDevice(adapter, {.name = "MEDXING-SpO2", .RSSI = {}, .connected = true});
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  central->scanForPeripherals();
  ASSERT_TRUE(hears("discovered MEDXING-SpO2"));
  bluez->failNext("Connect", {"org.bluez.Error.AlreadyConnected"});
  central->connect(relay->lastPeripheral);
  EXPECT_TRUE(hears("connected"));
  EXPECT_THAT(relay->heard, ElementsAre("poweredOn", "discovered MEDXING-SpO2", "connected"));
}

TEST_F(BluezCentralTest, AScanThatCannotStartIsTriedAgain) {
  bluez = std::make_unique<FakeBluez>();
  bluez->addAdapter("hci0", true);
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  bluez->failNext("StartDiscovery", {"org.bluez.Error.InProgress", "org.bluez.Error.Failed"});
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery", 3));
  central->stopScan();
  bluez->takeCalls();
  EXPECT_TRUE(isCalled("StopDiscovery"));
}

TEST_F(BluezCentralTest, AScanThatCannotStopIsStoppedBeforeTheNextOne) {
  discover();
  bluez->failNext("StopDiscovery", {"org.bluez.Error.InProgress"});
  central->stopScan();
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery"));
  EXPECT_THAT(bluez->takeCalls(),
              ElementsAre("StopDiscovery /org/bluez/hci0", "StopDiscovery /org/bluez/hci0",
                          "SetDiscoveryFilter /org/bluez/hci0 DuplicateData=0 Transport=le",
                          "StartDiscovery /org/bluez/hci0"));
}

TEST_F(BluezCentralTest, AScanThatIsRefusedIsToldAsAState) {
  bluez = std::make_unique<FakeBluez>();
  adapter = bluez->addAdapter("hci0", true);
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  for (const char* error : {"org.bluez.Error.NotAuthorized", "org.freedesktop.DBus.Error.AccessDenied"}) {
    relay->take();
    bluez->failNext("StartDiscovery", {error});
    central->scanForPeripherals();
    ASSERT_TRUE(hears("unauthorized")) << error;
    // Another program's scan is no reason to believe that ours is allowed; a switch of the adapter is one to
    // see.
    bluez->announce(adapter, "org.bluez.Adapter1", {{"Discovering", sdbus::Variant(true)}});
    bluez->setPowered(adapter, false);
    bluez->setPowered(adapter, true);
    ASSERT_TRUE(hears("poweredOn"));
    EXPECT_THAT(relay->heard, ElementsAre("unauthorized", "poweredOff", "poweredOn"));
  }
}

TEST_F(BluezCentralTest, AnAnswerFromBeforeALossCountsForNothing) {
  bluez = std::make_unique<FakeBluez>();
  adapter = bluez->addAdapter("hci0", true);
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  bluez->hold("StartDiscovery");
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery"));
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(hears("poweredOff"));
  bluez->setPowered(adapter, true);
  ASSERT_TRUE(until([&] { return relay->count("poweredOn") == 2; }));
  bluez->answer("StartDiscovery");
  central->scanForPeripherals();
  EXPECT_TRUE(isCalled("StartDiscovery", 2));
}

TEST_F(BluezCentralTest, ATryFromBeforeALossCountsForNothing) {
  bluez = std::make_unique<FakeBluez>();
  adapter = bluez->addAdapter("hci0", true);
  makeCentral();
  ASSERT_TRUE(hears("poweredOn"));
  bluez->failNext("StartDiscovery", {"org.bluez.Error.InProgress"});
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StopDiscovery"));  // it pauses before it tries again
  bluez->setPowered(adapter, false);
  bluez->setPowered(adapter, true);
  ASSERT_TRUE(until([&] { return relay->count("poweredOn") == 2; }));
  bluez->hold("StartDiscovery");
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery", 2));
  letAPausePass();
  central->scanForPeripherals();
  bluez->answer("StartDiscovery");
  central->stopScan();
  ASSERT_TRUE(isCalled("StopDiscovery", 2));
  EXPECT_EQ(bluez->count("StartDiscovery"), 2U);
}

// ---- connections ----

TEST_F(BluezCentralTest, TellsAConnectionOnce) {
  connect();
  EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::connected);
  // BlueZ's answer to the call follows the property.
  RunLoop::main().runFor(50ms);
  EXPECT_THAT(relay->heard, IsEmpty());
  central->connect(peripheral);
  EXPECT_TRUE(hears("connected"));
}

// BlueZ 5.66 gets stuck when it is asked to stop its scan while it connects.
TEST_F(BluezCentralTest, AConnectionWaitsForTheEndOfTheScan) {
  discover();
  bluez->hold("StopDiscovery");
  central->connect(peripheral);
  central->stopScan();
  ASSERT_TRUE(isCalled("StopDiscovery"));
  RunLoop::main().runFor(50ms);
  EXPECT_EQ(bluez->count("Connect"), 0U);
  bluez->answer("StopDiscovery");
  EXPECT_TRUE(hears("connected"));
}

TEST_F(BluezCentralTest, AScanEndsAfterTheAttemptToConnect) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  central->stopScan();
  RunLoop::main().runFor(50ms);
  EXPECT_EQ(bluez->count("StopDiscovery"), 0U);
  bluez->answer("Connect");
  EXPECT_TRUE(isCalled("StopDiscovery"));
}

TEST_F(BluezCentralTest, ADeviceThatWasConnectedAlreadyIsConnected) {
  discover();
  bluez->failNext("Connect", {"org.bluez.Error.AlreadyConnected"});
  central->connect(peripheral);
  EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::connecting);
  EXPECT_TRUE(hears("connected"));
}

TEST_F(BluezCentralTest, AnAttemptThatBreaksOffIsRepeated) {
  discover();
  bluez->failNext("Connect", {"org.bluez.Error.Failed", "org.bluez.Error.InProgress"});
  central->connect(peripheral);
  ASSERT_TRUE(hears("connected"));
  EXPECT_EQ(bluez->count("Connect"), 3U);
  EXPECT_THAT(relay->heard, ElementsAre("connected"));
}

TEST_F(BluezCentralTest, AnotherInterfaceThatGoesTakesNoAnswerWithIt) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  bluez->removeInterface(device, "org.bluez.Battery1");
  bluez->announce(device, deviceInterface, {{"Name", sdbus::Variant(std::string("Renamed"))}});
  ASSERT_TRUE(hears("discovered Renamed"));
  bluez->answer("Connect", "org.bluez.Error.Failed");
  EXPECT_TRUE(isCalled("Connect", 2));
}

TEST_F(BluezCentralTest, ADeviceThatComesBackWhileTheLoopRunsWithinACallLosesNoAnswer) {
  connect();
  bluez->takeCalls();
  bluez->hold("Connect");
  struct Reconnecter : BluetoothCentralDelegate {
    void centralManagerDidDisconnectPeripheral(BluetoothCentral& told,
                                               const std::shared_ptr<BluetoothPeripheral>& lost,
                                               const std::optional<BluetoothError>&) override {
      told.connect(lost);
      attempted = comesBack();
    }
    std::function<bool()> comesBack;
    bool attempted = false;
  };
  const auto reconnecter = std::make_shared<Reconnecter>();
  reconnecter->comesBack = [this] {
    bluez->addDevice(adapter, {.name = "MEDXING-SpO2", .RSSI = -57});
    return isCalled("Connect");
  };
  central->setDelegate(reconnecter);
  bluez->remove(device);
  ASSERT_TRUE(until([&] { return reconnecter->attempted; }));
  bluez->answer("Connect", "org.bluez.Error.Failed");
  EXPECT_TRUE(isCalled("Connect", 2));
}

TEST_F(BluezCentralTest, ARefusedConnectionFails) {
  discover();
  for (const auto& [error, told] :
       {std::pair("org.bluez.Error.NotAuthorized", "failed notPermitted"),
        std::pair("org.freedesktop.DBus.Error.AccessDenied", "failed notPermitted"),
        std::pair("org.bluez.Error.NotSupported", "failed notSupported"),
        std::pair("org.bluez.Error.AuthenticationFailed", "failed connectionFailed"),
        std::pair("org.bluez.Error.InvalidArguments", "failed unknown")}) {
    relay->take();
    bluez->failNext("Connect", {error});
    central->connect(peripheral);
    EXPECT_TRUE(hears(told)) << error;
    EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::disconnected);
  }
}

TEST_F(BluezCentralTest, AnAttemptFailsWhenBluetoothGoes) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(hears("poweredOff"));
  EXPECT_THAT(relay->take(), ElementsAre("failed centralUnavailable", "poweredOff"));
  bluez->answer("Connect");
  bluez->setPowered(adapter, true);
  ASSERT_TRUE(hears("poweredOn"));
  EXPECT_THAT(relay->heard, ElementsAre("poweredOn"));
}

TEST_F(BluezCentralTest, LooksForAPeripheralThatBluezHasForgotten) {
  discover();
  central->stopScan();
  ASSERT_TRUE(isCalled("StopDiscovery"));
  bluez->remove(device);
  bluez->setPowered(adapter, true);
  RunLoop::main().runFor(50ms);
  bluez->takeCalls();
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("StartDiscovery"));
  EXPECT_EQ(bluez->count("Connect"), 0U);
  bluez->addDevice(adapter, {.name = "MEDXING-SpO2", .RSSI = -57});
  ASSERT_TRUE(hears("connected"));
  // Nobody asked for a scan: nothing was reported, and it ended.
  EXPECT_THAT(relay->heard, ElementsAre("connected"));
  EXPECT_TRUE(isCalled("StopDiscovery"));
}

TEST_F(BluezCentralTest, TellsWhyAConnectionEndedWhereBluezSaysSo) {
  for (const auto& [reason, told] :
       {std::pair("org.bluez.Reason.Timeout", "disconnected connectionTimeout"),
        std::pair("org.bluez.Reason.Remote", "disconnected peripheralDisconnected"),
        std::pair("org.bluez.Reason.Unknown", "disconnected unknown"),
        std::pair("", "disconnected unknown")}) {
    bluez = nullptr;
    connect();
    if (*reason != '\0') bluez->tellReason(device, reason, "as the test says");
    bluez->setFlag(device, "Connected", false);
    ASSERT_TRUE(until([&] { return !relay->heard.empty(); }));
    EXPECT_THAT(relay->heard, ElementsAre(told));
    EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::disconnected);
    relay->take();
  }
}

TEST_F(BluezCentralTest, EndsAConnectionOnRequestWithoutAnError) {
  connect();
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(isCalled("Disconnect"));
  EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::disconnecting);
  bluez->setFlag(device, "Connected", false);
  ASSERT_TRUE(hears("disconnected"));
  central->cancelPeripheralConnection(peripheral);
  RunLoop::main().runFor(50ms);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
}

TEST_F(BluezCentralTest, AReasonCountsForItsOwnConnectionOnly) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  bluez->tellReason(device, "org.bluez.Reason.Timeout", "of an attempt");
  bluez->answer("Connect");
  ASSERT_TRUE(hears("connected"));
  bluez->setFlag(device, "Connected", true);
  bluez->setFlag(device, "Connected", false);
  EXPECT_TRUE(hears("disconnected unknown"));
}

TEST_F(BluezCentralTest, ARequestedEndHasNoErrorEvenWhenBluetoothGoesFirst) {
  connect();
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(isCalled("Disconnect"));
  bluez->setPowered(adapter, false);
  ASSERT_TRUE(hears("poweredOff"));
  EXPECT_THAT(relay->heard, ElementsAre("disconnected", "poweredOff"));
}

TEST_F(BluezCentralTest, AnEndThatBluezCannotBringAboutIsToldAllTheSame) {
  connect();
  bluez->failNext("Disconnect", {"org.bluez.Error.NotConnected"});
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(hears("disconnected"));
  EXPECT_EQ(peripheral->state(), BluetoothPeripheralState::disconnected);
}

TEST_F(BluezCentralTest, AConnectionAskedForWhileTheLastOneEndsIsMadeAfterIt) {
  connect();
  bluez->takeCalls();
  central->cancelPeripheralConnection(peripheral);
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Disconnect"));
  EXPECT_EQ(bluez->count("Connect"), 0U);
  bluez->setFlag(device, "Connected", false);
  ASSERT_TRUE(hears("connected"));
  EXPECT_THAT(relay->take(), ElementsAre("disconnected", "connected"));

  // Unless it is not wanted any more.
  bluez->setFlag(device, "Connected", true);
  central->cancelPeripheralConnection(peripheral);
  central->connect(peripheral);
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(isCalled("Disconnect", 2));
  bluez->setFlag(device, "Connected", false);
  ASSERT_TRUE(hears("disconnected"));
  RunLoop::main().runFor(50ms);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
  EXPECT_EQ(bluez->count("Connect"), 1U);
}

TEST_F(BluezCentralTest, ACentralThatIsDroppedEndsItsConnections) {
  connect();
  bluez->takeCalls();
  central = nullptr;
  EXPECT_TRUE(isCalled("Disconnect"));
  EXPECT_THAT(bluez->takeCalls(), ElementsAre("Disconnect /org/bluez/hci0/dev_C0_11_22_33_44_55"));
  EXPECT_THAT(relay->heard, IsEmpty());
}

TEST_F(BluezCentralTest, ACentralThatIsDroppedHasNothingToEndWhereItOnlyWaits) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  bluez->remove(device);
  bluez->addDevice(adapter, {.address = "C0:11:22:33:44:66", .name = "next", .RSSI = -57});
  ASSERT_TRUE(hears("discovered next"));
  central = nullptr;
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
}

TEST_F(BluezCentralTest, AScanAttemptsNoConnectionThatIsThereAlready) {
  connect();
  bluez->takeCalls();
  central->scanForPeripherals();
  ASSERT_TRUE(isCalled("StartDiscovery"));
  bluez->addDevice(adapter, {.address = "C0:11:22:33:44:66", .name = "next", .RSSI = -57});
  ASSERT_TRUE(hears("discovered next"));  // that the scan runs was answered before
  central->stopScan();
  ASSERT_TRUE(isCalled("StopDiscovery"));
  EXPECT_EQ(bluez->count("Connect"), 0U);
}

TEST_F(BluezCentralTest, EndsAnAttemptOnRequest) {
  discover();
  bluez->hold("Connect");
  central->connect(peripheral);
  ASSERT_TRUE(isCalled("Connect"));
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(hears("disconnected"));
  ASSERT_TRUE(isCalled("Disconnect"));
  bluez->answer("Connect", "org.bluez.Error.Failed");
  // The attempt is over: it is not repeated.
  RunLoop::main().runFor(1500ms);
  EXPECT_THAT(relay->heard, ElementsAre("disconnected"));
  EXPECT_EQ(bluez->count("Connect"), 1U);
}

// ---- services and notifications ----

TEST_F(BluezCentralTest, AnswersWithTheServicesWhenBluezHasResolvedThem) {
  connect();
  peripheral->discoverServices();
  RunLoop::main().runFor(50ms);
  EXPECT_THAT(answers->heard, IsEmpty());

  service = bluez->addService(device, "service0010", serviceUUID);
  bluez->addService(device, "service0020", "6e400001-b5a3-f393-e0a9-e50e24dcca9e");
  characteristic = bluez->addCharacteristic(service, "char0011", characteristicUUID);
  bluez->setFlag(device, "ServicesResolved", true);
  ASSERT_TRUE(until([&] { return !answers->heard.empty(); }));
  EXPECT_THAT(peripheral->services().front()->characteristics(), IsEmpty());
  peripheral->discoverCharacteristics(peripheral->services().front());
  ASSERT_TRUE(until([&] { return answers->heard.size() == 2; }));
  EXPECT_THAT(answers->heard, ElementsAre("services FFB0 6E400001-B5A3-F393-E0A9-E50E24DCCA9E",
                                          "characteristics of FFB0 FFB2"));
}

TEST_F(BluezCentralTest, LeavesTheServicesOfOtherDevices) {
  connect();
  service = bluez->addService(device, "service0010", serviceUUID);
  const std::string other =
      bluez->addDevice(adapter, {.address = "C0:11:22:33:44:66", .name = "next", .RSSI = -57});
  const std::string others = bluez->addService(other, "service0010", "6e400001-b5a3-f393-e0a9-e50e24dcca9e");
  bluez->addCharacteristic(others, "char0011", characteristicUUID);
  bluez->setFlag(device, "ServicesResolved", true);
  peripheral->discoverServices();
  ASSERT_TRUE(until([&] { return !answers->heard.empty(); }));
  peripheral->discoverCharacteristics(peripheral->services().front());
  ASSERT_TRUE(until([&] { return answers->heard.size() == 2; }));
  EXPECT_THAT(answers->heard, ElementsAre("services FFB0", "characteristics of FFB0"));
}

TEST_F(BluezCentralTest, WithoutAConnectionThereAreNoServices) {
  discover();
  peripheral->discoverServices();
  ASSERT_TRUE(until([&] { return !answers->heard.empty(); }));
  EXPECT_THAT(answers->heard, ElementsAre("services, error notConnected"));
}

TEST_F(BluezCentralTest, HandsOnNotifications) {
  subscribe();
  bluez->notify(characteristic, {1, 2});
  bluez->notify(characteristic, {3});
  bluez->notify(characteristic, {});
  ASSERT_TRUE(until([&] { return answers->heard.size() == 3; }));
  EXPECT_THAT(answers->heard, ElementsAre("FFB2 = 0102", "FFB2 = 03", "FFB2 = "));
}

TEST_F(BluezCentralTest, NoNotificationIsLostBeforeTheConfirmation) {
  subscribe();
  const auto target = peripheral->services().front()->characteristics().front();
  peripheral->setNotifyValue(false, target);
  ASSERT_TRUE(until([&] { return answers->heard.size() == 1; }));
  bluez->notify(characteristic, {1});
  bluez->takeCalls();
  RunLoop::main().runFor(50ms);
  bluez->hold("StartNotify");
  peripheral->setNotifyValue(true, target);
  ASSERT_TRUE(isCalled("StartNotify"));
  bluez->notify(characteristic, {2});
  ASSERT_TRUE(until([&] { return answers->heard.size() == 2; }));
  bluez->answer("StartNotify");
  ASSERT_TRUE(until([&] { return answers->heard.size() == 3; }));
  EXPECT_THAT(answers->heard, ElementsAre("FFB2 is quiet", "FFB2 = 02", "FFB2 notifies"));
}

TEST_F(BluezCentralTest, ABusySubscriptionIsRepeatedAndARefusedOneTold) {
  subscribe();
  const auto target = peripheral->services().front()->characteristics().front();
  bluez->failNext("StartNotify", {"org.bluez.Error.InProgress", "org.bluez.Error.NotSupported"});
  bluez->takeCalls();
  peripheral->setNotifyValue(true, target);
  ASSERT_TRUE(until([&] { return !answers->heard.empty(); }));
  EXPECT_THAT(answers->heard, ElementsAre("FFB2 is quiet, error notSupported"));
  EXPECT_EQ(bluez->count("StartNotify"), 2U);
}

TEST_F(BluezCentralTest, ASubscriptionThatIsWithdrawnIsNotRepeated) {
  subscribe();
  const auto target = peripheral->services().front()->characteristics().front();
  bluez->failNext("StartNotify", {"org.bluez.Error.InProgress"});
  bluez->takeCalls();
  peripheral->setNotifyValue(true, target);
  peripheral->discoverServices();
  ASSERT_TRUE(until([&] { return answers->heard.size() == 1; }));  // the error was answered before
  peripheral->setNotifyValue(false, target);
  letAPausePass();
  peripheral->discoverServices();
  ASSERT_TRUE(until([&] { return answers->heard.size() == 3; }));
  EXPECT_THAT(answers->heard, ElementsAre("services FFB0", "FFB2 is quiet", "services FFB0"));
  EXPECT_EQ(bluez->count("StartNotify"), 1U);
}

TEST_F(BluezCentralTest, SubscribesAnewAfterALoss) {
  subscribe();
  const auto old = peripheral->services().front()->characteristics().front();
  bluez->setFlag(device, "ServicesResolved", false);
  bluez->setFlag(device, "Connected", false);
  ASSERT_TRUE(hears("disconnected unknown"));
  EXPECT_THAT(peripheral->services(), IsEmpty());
  bluez->takeCalls();
  // What belonged to the lost connection does nothing.
  peripheral->setNotifyValue(true, old);
  bluez->notify(characteristic, {1});

  central->connect(peripheral);
  ASSERT_TRUE(hears("connected"));
  EXPECT_EQ(bluez->count("StartNotify"), 0U);
  bluez->setFlag(device, "ServicesResolved", true);
  peripheral->discoverServices();
  ASSERT_TRUE(until([&] { return !peripheral->services().empty(); }));
  peripheral->discoverCharacteristics(peripheral->services().front());
  ASSERT_TRUE(until([&] { return !peripheral->services().front()->characteristics().empty(); }));
  peripheral->setNotifyValue(true, peripheral->services().front()->characteristics().front());
  ASSERT_TRUE(isCalled("StartNotify"));
  bluez->notify(characteristic, {2});
  EXPECT_TRUE(until([&] { return answers->heard.back() == "FFB2 = 02"; }));
}

// ---- whatever may come ----

TEST_F(BluezCentralTest, PropertiesOfTheWrongTypeAreNone) {
  subscribe();
  const sdbus::Variant text(std::string("yes"));
  bluez->announce(adapter, "org.bluez.Adapter1", {{"Powered", text}});
  bluez->announce(device, deviceInterface,
                  {{"Connected", text},
                   {"Name", sdbus::Variant(1.5)},
                   {"RSSI", text},
                   {"UUIDs", text},
                   {"Adapter", text},
                   {"Address", sdbus::Variant(true)},
                   {"ServicesResolved", text}});
  bluez->announce(characteristic, "org.bluez.GattCharacteristic1", {{"Value", text}});
  bluez->notify(characteristic, {7});
  ASSERT_TRUE(until([&] { return !answers->heard.empty(); }));
  EXPECT_THAT(answers->heard, ElementsAre("FFB2 = 07"));
  EXPECT_THAT(relay->heard, IsEmpty());
  EXPECT_EQ(central->state(), BluetoothState::poweredOn);
}

TEST_F(BluezCentralTest, TheCentralMayBeDroppedFromWithinACall) {
  subscribe();
  struct Dropper : BluetoothPeripheralDelegate {
    explicit Dropper(std::shared_ptr<BluetoothCentral>& dropped) : central(dropped) {}
    void peripheralDidUpdateValueForCharacteristic(const std::shared_ptr<BluetoothPeripheral>&,
                                                   const std::shared_ptr<BluetoothCharacteristic>&,
                                                   const std::optional<BluetoothError>&) override {
      central = nullptr;
    }
    std::shared_ptr<BluetoothCentral>& central;
  };
  const auto dropper = std::make_shared<Dropper>(central);
  peripheral->setDelegate(dropper);
  bluez->notify(characteristic, {1});
  bluez->notify(characteristic, {2});
  ASSERT_TRUE(until([&] { return central == nullptr; }));
  // Without its central a peripheral does nothing.
  peripheral->discoverServices();
  RunLoop::main().runFor(50ms);
}

TEST_F(BluezCentralTest, TheLoopMayRunWithinACall) {
  subscribe();
  struct Nester : RecordingPeripheralDelegate {
    void peripheralDidUpdateValueForCharacteristic(
        const std::shared_ptr<BluetoothPeripheral>& peripheral,
        const std::shared_ptr<BluetoothCharacteristic>& characteristic,
        const std::optional<BluetoothError>& error) override {
      RecordingPeripheralDelegate::peripheralDidUpdateValueForCharacteristic(peripheral, characteristic,
                                                                             error);
      if (heard.size() == 1) RunLoop::main().runUntil([this] { return heard.size() == 2; }, 10s);
    }
  };
  const auto nester = std::make_shared<Nester>();
  peripheral->setDelegate(nester);
  bluez->notify(characteristic, {1});
  bluez->notify(characteristic, {2});
  ASSERT_TRUE(until([&] { return nester->heard.size() == 2; }));
  EXPECT_THAT(nester->heard, ElementsAre("FFB2 = 01", "FFB2 = 02"));
}

/// An oximeter that looks for itself, as a host sets it up.
class BluezOximeterTest : public BluezCentralTest {
 protected:
  struct Host : KivStressPortDelegate {
    void onReceivedSpO2WithSpO2(float SpO2, std::int64_t) override { values.push_back(SpO2); }
    std::vector<float> values;
  };

  void makeOximeter() {
    oximeter->kiv_delegate = host;
    oximeter->handleDisconnect = false;
    central = makeBluezCentral();
    oximeter->btManager = central;
    central->setDelegate(oximeter);
  }

  void startBluez() {
    bluez = std::make_unique<FakeBluez>();
    plugIn();
  }

  void plugIn() {
    adapter = bluez->addAdapter("hci0", true);
    device = bluez->addDevice(adapter, {.name = "MEDXING-SpO2", .RSSI = {}});
    service = bluez->addService(device, "service0010", serviceUUID);
    characteristic = bluez->addCharacteristic(service, "char0011", characteristicUUID);
  }

  /// The oximeter advertises, is connected and subscribed to, and measures.
  void measures(std::uint8_t saturation) {
    ASSERT_TRUE(isCalled("StartDiscovery"));
    bluez->announce(device, deviceInterface, {{"RSSI", sdbus::Variant(std::int16_t{-50})}});
    ASSERT_TRUE(isCalled("Connect"));
    bluez->setFlag(device, "Connected", true);
    bluez->setFlag(device, "ServicesResolved", true);
    ASSERT_TRUE(isCalled("StartNotify"));
    bluez->notify(characteristic, {0, 0, 0, 0, 0x23, 0x95, 0, 0, saturation});
    ASSERT_TRUE(until(
        [&] { return !host->values.empty() && host->values.back() == static_cast<float>(saturation); }));
    bluez->announce(device, deviceInterface, {}, {"RSSI"});
    bluez->takeCalls();
  }

  std::shared_ptr<Host> host = std::make_shared<Host>();
  std::shared_ptr<MEDXINGSpO2> oximeter = std::make_shared<MEDXINGSpO2>();
};

TEST_F(BluezOximeterTest, ComesBackAfterALostLink) {
  startBluez();
  makeOximeter();
  for (const std::uint8_t saturation : Bytes{0x61, 0x62, 0x63}) {
    ASSERT_NO_FATAL_FAILURE(measures(saturation));
    bluez->setFlag(device, "ServicesResolved", false);
    bluez->setFlag(device, "Connected", false);
  }
  EXPECT_THAT(host->values, ElementsAre(97, 98, 99));
}

TEST_F(BluezOximeterTest, ComesBackWithTheAdapter) {
  startBluez();
  makeOximeter();
  for (const std::uint8_t saturation : Bytes{0x61, 0x62, 0x63}) {
    ASSERT_NO_FATAL_FAILURE(measures(saturation));
    bluez->remove(adapter);
    ASSERT_TRUE(until([&] { return central->state() == BluetoothState::unsupported; }));
    bluez->takeCalls();
    plugIn();
  }
  EXPECT_THAT(host->values, ElementsAre(97, 98, 99));
}

TEST_F(BluezOximeterTest, ComesBackWithTheDaemon) {
  startBluez();
  makeOximeter();
  for (const std::uint8_t saturation : Bytes{0x61, 0x62, 0x63}) {
    ASSERT_NO_FATAL_FAILURE(measures(saturation));
    bluez = nullptr;
    ASSERT_TRUE(until([&] { return central->state() == BluetoothState::resetting; }));
    startBluez();
  }
  EXPECT_THAT(host->values, ElementsAre(97, 98, 99));
}

TEST_F(BluezOximeterTest, TakesOverAConnectionThatAnEarlierProgramLeft) {
  startBluez();
  bluez->setFlag(device, "Connected", true);
  bluez->setFlag(device, "ServicesResolved", true);
  bluez->failNext("Connect", {"org.bluez.Error.AlreadyConnected"});
  makeOximeter();
  ASSERT_TRUE(isCalled("StartNotify"));
  bluez->notify(characteristic, {0, 0, 0, 0, 0x23, 0x95, 0, 0, 0x61});
  EXPECT_TRUE(until([&] { return !host->values.empty(); }));
  EXPECT_THAT(host->values, ElementsAre(97));
}

}  // namespace
}  // namespace tarsil
