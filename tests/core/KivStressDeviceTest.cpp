#include "tarsil/core/KivStressDevice.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "tarsil/core/KivBicycle.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/core/sharedTime.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const ExerciseDeviceSettings exercise{.Treadmill = 1,
                                      .name = "Walker",
                                      .baud = 9600,
                                      .databits = 7,
                                      .stopbits = 2,
                                      .parity = 5,
                                      .getWithBP_SpO2 = 3,
                                      .setWithBP_SpO2 = 4,
                                      .canStopBP = true,
                                      .autoSend = false,
                                      .actualLoad = true};
const BPDeviceSettings monitor{
    .BP = 4800, .databits = 7, .stopbits = 2, .parity = 5, .autoSend = true, .canStopBP = false};
const SpO2DeviceSettings oximeter{.SpO2 = "Finger", .baud = 1200, .databits = 7, .stopbits = 2, .parity = 5};

/// What no way of making a device stores.
void expectUntouched(const KivStressDevice& device) {
  EXPECT_EQ(&device.fm.get(), &FileManagerTool::share());
  EXPECT_FALSE(device.kiv_delegate);
  EXPECT_EQ(device.port, std::nullopt);
  EXPECT_EQ(device.protPath, std::nullopt);
  EXPECT_FALSE(device.isState);
  EXPECT_EQ(device.requestGrade, -1.0F);
  EXPECT_EQ(device.requestSpeed, -1.0F);
  EXPECT_EQ(device.serialPort(), nullptr);
}

/// What only an exercise device is given.
void expectNoKindAndNoBuiltInUnit(const KivStressDevice& device) {
  EXPECT_EQ(device.Treadmill_or_Ergometer, 0);
  EXPECT_EQ(device.getWithBP_SpO2, 0);
  EXPECT_EQ(device.setWithBP_SpO2, 0);
  EXPECT_EQ(device.actualLoad, std::nullopt);
}

TEST(KivStressDeviceTest, StartsWithEveryFieldAtItsDefault) {
  const KivStressDevice device;
  expectUntouched(device);
  expectNoKindAndNoBuiltInUnit(device);
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.canStopBP, std::nullopt);
  EXPECT_EQ(device.databits, std::nullopt);
  EXPECT_EQ(device.stopbits, std::nullopt);
  EXPECT_EQ(device.parity, std::nullopt);
  EXPECT_EQ(device.baud, 0);
}

TEST(KivStressDeviceTest, StoresWhatAnExerciseDeviceIsMadeFrom) {
  const KivStressDevice device(exercise);
  EXPECT_EQ(device.Treadmill_or_Ergometer, 1);
  EXPECT_EQ(device.name, "Walker");
  EXPECT_EQ(device.baud, 9600);
  EXPECT_EQ(device.databits, 7);
  EXPECT_EQ(device.stopbits, 2);
  EXPECT_EQ(device.parity, 5);
  EXPECT_EQ(device.getWithBP_SpO2, 3);
  EXPECT_EQ(device.setWithBP_SpO2, 4);
  EXPECT_EQ(device.canStopBP, true);
  EXPECT_FALSE(device.autoSend);
  EXPECT_EQ(device.actualLoad, true);
  expectUntouched(device);
}

TEST(KivStressDeviceTest, StoresEachFlagOfAnExerciseDeviceInItsOwnField) {
  for (const bool flag : {false, true}) {
    ExerciseDeviceSettings settings = exercise;
    settings.canStopBP = flag;
    settings.autoSend = !flag;
    settings.actualLoad = !flag;
    const KivStressDevice device(settings);
    EXPECT_EQ(device.canStopBP, flag);
    EXPECT_EQ(device.autoSend, !flag);
    EXPECT_EQ(device.actualLoad, !flag);
  }
}

TEST(KivStressDeviceTest, StoresWhatABloodPressureMonitorIsMadeFrom) {
  const KivStressDevice device(monitor);
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_EQ(device.baud, 4800);
  EXPECT_EQ(device.databits, 7);
  EXPECT_EQ(device.stopbits, 2);
  EXPECT_EQ(device.parity, 5);
  EXPECT_EQ(device.canStopBP, false);
  EXPECT_TRUE(device.autoSend);
  expectUntouched(device);
  expectNoKindAndNoBuiltInUnit(device);
}

TEST(KivStressDeviceTest, StoresTheAutoSendThatAMonitorIsGiven) {
  BPDeviceSettings quiet = monitor;
  quiet.autoSend = false;
  EXPECT_FALSE(KivStressDevice(quiet).autoSend);
}

TEST(KivStressDeviceTest, StoresWhatAnOximeterIsMadeFrom) {
  const KivStressDevice device(oximeter);
  EXPECT_EQ(device.name, "Finger");
  EXPECT_EQ(device.baud, 1200);
  EXPECT_EQ(device.databits, 7);
  EXPECT_EQ(device.stopbits, 2);
  EXPECT_EQ(device.parity, 5);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.canStopBP, std::nullopt);
  expectUntouched(device);
  expectNoKindAndNoBuiltInUnit(device);
}

TEST(KivStressDeviceTest, KeepsThePathOfItsPort) {
  ScriptedPort port(sharedTime());
  KivStressDevice device;
  device.setSerialPort(port);
  EXPECT_EQ(device.serialPort(), port.port());
  EXPECT_EQ(device.protPath, port->path());
  device.setSerialPort(nullptr);
  EXPECT_EQ(device.serialPort(), nullptr);
  EXPECT_EQ(device.protPath, std::nullopt);
}

/// Keeps its port to itself, and counts how often it is bound.
class SecretiveDevice : public KivStressDevice {
 public:
  int bindings = 0;

  const std::shared_ptr<ORSSerialPort>& serialPort() const override { return none_; }
  void setSerialPort(std::shared_ptr<ORSSerialPort> newPort) override {
    ++bindings;
    KivStressDevice::setSerialPort(std::move(newPort));
  }

 private:
  std::shared_ptr<ORSSerialPort> none_;
};

TEST(KivStressDeviceTest, LetsADriverOverrideBothWaysToItsPort) {
  ScriptedPort port(sharedTime());
  SecretiveDevice secretive;
  KivStressDevice& device = secretive;
  device.setSerialPort(port);
  EXPECT_EQ(secretive.bindings, 1);
  EXPECT_EQ(device.serialPort(), nullptr);
  EXPECT_EQ(device.protPath, port->path()) << "the path of the port that was stored";
}

TEST(KivStressDeviceTest, HasItsCommandTypesInOrder) {
  using enum KivStressDevice::CommandType;
  constexpr std::array inOrder = {none, setLoad, requestPower, grade, startBP, breakBP, requestBP};
  for (std::size_t i = 0; i < inOrder.size(); ++i) EXPECT_EQ(static_cast<std::size_t>(inOrder[i]), i);
}

TEST(KivBicycleTest, IgnoresEveryOperation) {
  ScriptedPort port(sharedTime());
  RecordingHost host;
  const auto bicycle = std::make_shared<KivBicycle>(exercise);
  bicycle->kiv_delegate = host;
  bicycle->setSerialPort(port);

  bicycle->setDeviceFunction(true, true);
  bicycle->setLoad(100.0F, 0.0F);
  bicycle->requestLoad();
  bicycle->startDeivce();
  bicycle->stopStressDevice();
  bicycle->startBP();
  bicycle->breakBP();
  bicycle->requestBP();
  bicycle->clearBP();
  bicycle->startSpO2();
  bicycle->stopSpO2();
  bicycle->requestSpO2();
  bicycle->emergencyStop();
  bicycle->emergencyStopRecover();
  bicycle->requestStatus();
  bicycle->deviceState();
  port.deliver(Bytes{1, 2, 3});
  port.close();
  port.open();
  port.remove();

  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(port->delegate().lock(), nullptr);
  EXPECT_EQ(bicycle->protPath, port->path());
  EXPECT_EQ(bicycle->requestSpeed, -1.0F) << "not even noted";
  EXPECT_EQ(bicycle->requestGrade, -1.0F);
  EXPECT_FALSE(bicycle->isState);
}

TEST(KivBicycleTest, CanBeMadeInAllThreeWays) {
  EXPECT_EQ(KivBicycle(exercise).name, "Walker");
  EXPECT_EQ(KivBicycle(monitor).baud, 4800);
  EXPECT_EQ(KivBicycle(oximeter).name, "Finger");
  EXPECT_EQ(KivBicycle().name, std::nullopt);
  static_assert(sizeof(KivBicycle) == sizeof(KivStressDevice), "adds no fields");
}

}  // namespace
}  // namespace tarsil
