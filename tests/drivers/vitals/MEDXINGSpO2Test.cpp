#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "doubles/ScriptedCentral.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* switchedOff = "蓝牙关闭，请先打开蓝牙";
constexpr const char* switchedOn = "蓝牙已打开, 请扫描外设!";

Bytes frame(std::uint8_t saturation) {
  return {0xAA, 0x55, 0x0F, 0x07, 0x23, 0x95, 0x01, 0x48, saturation};
}

class MEDXINGSpO2Test : public testing::Test {
 protected:
  MEDXINGSpO2Test() {
    oximeter->kiv_delegate = host;
    oximeter->btManager = central;
    central->setDelegate(oximeter);
  }

  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  /// Up to the subscription, in the order in which a real session goes.
  void subscribe() {
    oximeter->handleDisconnect = false;
    central->discover("p1", "MEDXING-SpO2");
    central->didConnect("p1");
    central->peripheral("p1")->answerServices({"180A", "FFB0"});
    central->peripheral("p1")->answerCharacteristics("FFB0", {"FFB1", "FFB2"});
    takeCalls();
  }

  PrintedLines printed;
  RecordingHost host;
  std::vector<std::string> calls;
  std::shared_ptr<doubles::ScriptedCentral> central = std::make_shared<doubles::ScriptedCentral>(
      [this](const doubles::BluetoothCall& call) { calls.push_back(call.text()); });
  std::shared_ptr<MEDXINGSpO2> oximeter = std::make_shared<MEDXINGSpO2>();
};

TEST_F(MEDXINGSpO2Test, EveryInitialiserSetsTheSameFields) {
  const auto check = [](const MEDXINGSpO2& device) {
    EXPECT_EQ(device.peripheralName, "MEDXING-SpO2");
    EXPECT_EQ(device.btManager, nullptr);
    EXPECT_EQ(device.peripheral, nullptr);
    EXPECT_EQ(device.SpO2service, nullptr);
    EXPECT_EQ(device.serviceid, "FFB0");
    EXPECT_EQ(device.characteristicid, "FFB2");
    EXPECT_EQ(device.befoSpO2Value, "");
    EXPECT_EQ(device.handleDisconnect, std::nullopt);
  };
  check(MEDXINGSpO2());
  check(MEDXINGSpO2(ExerciseDeviceSettings{.Treadmill = 0,
                                           .name = "a",
                                           .baud = 9600,
                                           .databits = 8,
                                           .stopbits = 1,
                                           .parity = 0,
                                           .getWithBP_SpO2 = 0,
                                           .setWithBP_SpO2 = 0,
                                           .canStopBP = false,
                                           .autoSend = true,
                                           .actualLoad = true}));
  check(MEDXINGSpO2(BPDeviceSettings{
      .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = false}));
  const MEDXINGSpO2 named(
      SpO2DeviceSettings{.SpO2 = "MEDXING-SpO2", .baud = 0, .databits = 0, .stopbits = 0, .parity = 0});
  check(named);
  EXPECT_EQ(named.name, "MEDXING-SpO2");
}

TEST_F(MEDXINGSpO2Test, SwitchedOnStartsAScanAndSaysSo) {
  central->updateState(BluetoothState::poweredOn);
  EXPECT_THAT(calls, ElementsAre("central scan"));
  EXPECT_THAT(printed.fixed(), ElementsAre(switchedOn));
}

TEST_F(MEDXINGSpO2Test, SwitchedOffOnlySaysSo) {
  central->updateState(BluetoothState::poweredOff);
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(printed.fixed(), ElementsAre(switchedOff));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(MEDXINGSpO2Test, EveryOtherStateIsIgnored) {
  for (const auto state : {BluetoothState::unknown, BluetoothState::resetting, BluetoothState::unsupported,
                           BluetoothState::unauthorized}) {
    central->updateState(state);
  }
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(printed.fixed(), IsEmpty());
}

TEST_F(MEDXINGSpO2Test, SwitchedOnWithoutACentralOnlySaysSo) {
  oximeter->btManager = nullptr;
  central->updateState(BluetoothState::poweredOn);
  central->discover("p1", "MEDXING-SpO2");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(printed.fixed(), ElementsAre(switchedOn));
  EXPECT_EQ(oximeter->peripheral, central->peripheral("p1"));
}

TEST_F(MEDXINGSpO2Test, IgnoresEveryOtherName) {
  oximeter->handleDisconnect = false;
  central->discover("p1", std::nullopt);
  for (const char* name :
       {"", "MEDXING-SpO", "MEDXING-SpO2 ", "MEDXING-SpO2-B", "medxing-spo2", " MEDXING-SpO2"}) {
    central->discover("p1", name);
  }
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(oximeter->peripheral, nullptr);
}

TEST_F(MEDXINGSpO2Test, TheNameMayComeLate) {
  oximeter->handleDisconnect = false;
  central->discover("p1", std::nullopt);
  central->discover("p1", "MEDXING-SpO2");
  EXPECT_THAT(calls, ElementsAre("central connect p1", "central stopScan"));
}

TEST_F(MEDXINGSpO2Test, LooksForTheNameThatTheHostGives) {
  oximeter->handleDisconnect = false;
  oximeter->peripheralName = "MEDXING-SpO2-B";
  central->discover("p1", "MEDXING-SpO2");
  central->discover("p2", "MEDXING-SpO2-B");
  EXPECT_THAT(calls, ElementsAre("central connect p2", "central stopScan"));
}

TEST_F(MEDXINGSpO2Test, TheFirstDiscoveryOnlyStoresUnlessDisconnectsAreHandledHere) {
  for (const std::optional<bool> choice : {std::optional<bool>(), std::optional(true)}) {
    oximeter->peripheral = nullptr;
    oximeter->handleDisconnect = choice;
    central->discover("p1", "MEDXING-SpO2");
    EXPECT_THAT(takeCalls(), ElementsAre("central stopScan"));
    EXPECT_EQ(oximeter->peripheral, central->peripheral("p1"));

    central->discover("p1", "MEDXING-SpO2");
    EXPECT_THAT(takeCalls(), ElementsAre("central connect p1", "central stopScan"));
  }
}

TEST_F(MEDXINGSpO2Test, ALaterDiscoveryConnectsToTheStoredOximeterWhicheverOneIsSeen) {
  central->discover("p1", "MEDXING-SpO2");
  takeCalls();
  central->discover("p2", "MEDXING-SpO2");
  EXPECT_THAT(calls, ElementsAre("central connect p1", "central stopScan"));
  EXPECT_EQ(oximeter->peripheral, central->peripheral("p1"));
}

TEST_F(MEDXINGSpO2Test, AConnectionAsksTheStoredOximeterForItsServices) {
  central->discover("p1", "MEDXING-SpO2");
  takeCalls();
  central->didConnect("p1");
  EXPECT_THAT(calls, ElementsAre("peripheral setDelegate p1", "peripheral discoverServices p1"));
  EXPECT_EQ(central->peripheral("p1")->delegate(), oximeter);
}

TEST_F(MEDXINGSpO2Test, TheStoredOximeterIsAskedWhicheverPeripheralConnected) {
  central->discover("p1", "MEDXING-SpO2");
  takeCalls();
  central->didConnect("p2");
  EXPECT_THAT(calls, ElementsAre("peripheral setDelegate p1", "peripheral discoverServices p1"));
}

TEST_F(MEDXINGSpO2Test, AConnectionWithNothingStoredDoesNothing) {
  central->didConnect("p1");
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(central->peripheral("p1")->delegate(), nullptr);
}

TEST_F(MEDXINGSpO2Test, AFailedConnectionDoesNothing) {
  oximeter->handleDisconnect = false;
  central->discover("p1", "MEDXING-SpO2");
  takeCalls();
  central->didFailToConnect("p1", BluetoothError{BluetoothError::Code::connectionFailed, "refused"});
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MEDXINGSpO2Test, FindsItsServiceAndItsCharacteristic) {
  central->discover("p1", "MEDXING-SpO2");
  central->didConnect("p1");
  takeCalls();
  central->peripheral("p1")->answerServices({"180A", "FFB0", "ffb0", "FFB00"});
  EXPECT_THAT(takeCalls(), ElementsAre("peripheral discoverCharacteristics FFB0"));
  EXPECT_EQ(oximeter->SpO2service->UUID(), "FFB0");

  central->peripheral("p1")->answerCharacteristics("FFB0", {"FFB1", "FFB2", "ffb2"});
  EXPECT_THAT(takeCalls(), ElementsAre("peripheral setNotify FFB2"));

  central->peripheral("p1")->answerNotificationState("FFB2", true);
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MEDXINGSpO2Test, TakesItsNameFromTheOximeterThatItFound) {
  oximeter->peripheralName = "MEDXING-2";
  central->discover("p1", "MEDXING-SpO2");
  EXPECT_EQ(oximeter->name, std::nullopt);
  central->discover("p2", "MEDXING-2");
  EXPECT_EQ(oximeter->name, "MEDXING-2");
}

TEST_F(MEDXINGSpO2Test, AsksEveryServiceOfThatUUID) {
  central->discover("p1", "MEDXING-SpO2");
  central->didConnect("p1");
  takeCalls();
  central->peripheral("p1")->answerServices({"FFB0", "FFB0"});
  EXPECT_THAT(calls, ElementsAre("peripheral discoverCharacteristics FFB0",
                                 "peripheral discoverCharacteristics FFB0"));
}

TEST_F(MEDXINGSpO2Test, WithoutTheServiceOrTheCharacteristicNothingIsAsked) {
  central->discover("p1", "MEDXING-SpO2");
  central->didConnect("p1");
  takeCalls();
  central->peripheral("p1")->answerServices({"180A"});
  central->peripheral("p1")->answerCharacteristics("FFB0", {"FFB1"});
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(oximeter->SpO2service, nullptr);
}

TEST_F(MEDXINGSpO2Test, LooksAtWhatThereIsEvenWithAnError) {
  const BluetoothError error{BluetoothError::Code::unknown, "half of it"};
  central->discover("p1", "MEDXING-SpO2");
  central->didConnect("p1");
  takeCalls();
  central->peripheral("p1")->answerServices({"FFB0"}, error);
  central->peripheral("p1")->answerCharacteristics("FFB0", {"FFB2"}, error);
  EXPECT_THAT(calls, ElementsAre("peripheral discoverCharacteristics FFB0", "peripheral setNotify FFB2"));
  central->peripheral("p1")->notify("FFB2", frame(0x61), error);
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(97, 1)));
}

TEST_F(MEDXINGSpO2Test, ReportsEachChangedSaturation) {
  subscribe();
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  central->peripheral("p1")->notify("FFB2", frame(0x60));
  central->peripheral("p1")->notify("FFB2", frame(0x7F));
  EXPECT_THAT(host.calls(),
              ElementsAre(oxygenSaturation(97, 1), oxygenSaturation(96, 1), oxygenSaturation(-1, 1)));
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MEDXINGSpO2Test, IgnoresOtherCharacteristicsMissingValuesAndOtherFrames) {
  subscribe();
  central->peripheral("p1")->notify("FFB1", frame(0x61));
  central->peripheral("p1")->notify("ffb2", frame(0x61));
  central->peripheral("p1")->notify("FFB2", std::nullopt);
  central->peripheral("p1")->notify("FFB2", Bytes{});
  central->peripheral("p1")->notify("FFB2", Bytes{1, 2, 3, 4, 0x23, 0x96, 0, 0, 0x61});
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(oximeter->befoSpO2Value, "");
}

TEST_F(MEDXINGSpO2Test, TheFilterComparesTheByteNotTheReportedValue) {
  subscribe();
  central->peripheral("p1")->notify("FFB2", frame(0x65));
  central->peripheral("p1")->notify("FFB2", frame(0x66));
  central->peripheral("p1")->notify("FFB2", frame(0x64));
  EXPECT_THAT(host.calls(),
              ElementsAre(oxygenSaturation(-1, 1), oxygenSaturation(-1, 1), oxygenSaturation(100, 1)));
  EXPECT_EQ(oximeter->befoSpO2Value, "64");
}

TEST_F(MEDXINGSpO2Test, AFrameThatEndsBeforeTheSaturationIsNoneOnce) {
  subscribe();
  central->peripheral("p1")->notify("FFB2", Bytes{1, 2, 3, 4, 0x23, 0x95, 0, 0});
  central->peripheral("p1")->notify("FFB2", Bytes{1, 2, 3, 4, 0x23, 0x95});
  central->peripheral("p1")->notify("FFB2", Bytes{1, 2, 3, 4, 0x23});
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(-1, 1)));
  EXPECT_EQ(oximeter->befoSpO2Value, "范围越界");
}

TEST_F(MEDXINGSpO2Test, EachValueIsLookedAtByItself) {
  subscribe();
  const Bytes whole = frame(0x61);
  central->peripheral("p1")->notify("FFB2", Bytes(whole.begin(), whole.begin() + 5));
  central->peripheral("p1")->notify("FFB2", Bytes(whole.begin() + 5, whole.end()));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(MEDXINGSpO2Test, AHostThatDoesNotListenStillMovesTheFilter) {
  subscribe();
  host.answerOnly({});
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  host.answerAllBut({});
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(oximeter->befoSpO2Value, "61");
}

TEST_F(MEDXINGSpO2Test, ADisconnectStartsANewScanOnlyWhenItIsHandledHere) {
  subscribe();
  central->didDisconnect("p1", BluetoothError{BluetoothError::Code::connectionTimeout, "silence"});
  EXPECT_THAT(takeCalls(), ElementsAre("central scan"));
  for (const std::optional<bool> choice : {std::optional<bool>(), std::optional(true)}) {
    oximeter->handleDisconnect = choice;
    central->didDisconnect("p1");
    EXPECT_THAT(takeCalls(), IsEmpty());
  }
}

TEST_F(MEDXINGSpO2Test, TheLastSaturationSurvivesADisconnect) {
  subscribe();
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  central->didDisconnect("p1");
  EXPECT_EQ(oximeter->befoSpO2Value, "61");

  central->discover("p1", "MEDXING-SpO2");
  central->didConnect("p1");
  central->peripheral("p1")->answerServices({"FFB0"});
  central->peripheral("p1")->answerCharacteristics("FFB0", {"FFB2"});
  EXPECT_THAT(takeCalls(),
              ElementsAre("central scan", "central connect p1", "central stopScan",
                          "peripheral setDelegate p1", "peripheral discoverServices p1",
                          "peripheral discoverCharacteristics FFB0", "peripheral setNotify FFB2"));
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  EXPECT_THAT(host.takeCalls(), ElementsAre(oxygenSaturation(97, 1)));
  central->peripheral("p1")->notify("FFB2", frame(0x62));
  EXPECT_THAT(host.calls(), ElementsAre(oxygenSaturation(98, 1)));
}

TEST_F(MEDXINGSpO2Test, EveryOperationOfADeviceIsSilent) {
  subscribe();
  oximeter->setDeviceFunction(true, true);
  oximeter->setLoad(5, 1);
  oximeter->requestLoad();
  oximeter->startDeivce();
  oximeter->stopStressDevice();
  oximeter->startBP();
  oximeter->breakBP();
  oximeter->requestBP();
  oximeter->clearBP();
  oximeter->startSpO2();
  oximeter->stopSpO2();
  oximeter->requestSpO2();
  oximeter->emergencyStop();
  oximeter->emergencyStopRecover();
  oximeter->requestStatus();
  oximeter->deviceState();
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(MEDXINGSpO2Test, APortIsOnlyStored) {
  ScriptedPort port;
  oximeter->setSerialPort(port);
  EXPECT_EQ(oximeter->serialPort()->path(), port->path());
  EXPECT_EQ(oximeter->protPath, port->path());
  EXPECT_EQ(port->delegate().lock(), nullptr);
  port.deliver(frame(0x61));
  EXPECT_THAT(host.calls(), IsEmpty());
  oximeter->setSerialPort(nullptr);
  EXPECT_EQ(oximeter->protPath, std::nullopt);
}

TEST_F(MEDXINGSpO2Test, TheCentralAndThePeripheralDoNotKeepItAlive) {
  subscribe();
  const std::weak_ptr<MEDXINGSpO2> watched = oximeter;
  oximeter.reset();
  EXPECT_TRUE(watched.expired());
  central->updateState(BluetoothState::poweredOn);
  central->peripheral("p1")->notify("FFB2", frame(0x61));
  EXPECT_THAT(calls, IsEmpty());
}

}  // namespace
}  // namespace tarsil
