#include "tarsil/core/KivStressDevice.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
                                      .parity = 1,
                                      .getWithBP_SpO2 = 3,
                                      .setWithBP_SpO2 = 2,
                                      .canStopBP = true,
                                      .autoSend = false,
                                      .actualLoad = true};
const BPDeviceSettings monitor{
    .BP = 4800, .databits = 7, .stopbits = 2, .parity = 1, .autoSend = true, .canStopBP = false};
const SpO2DeviceSettings oximeter{.SpO2 = "Finger", .baud = 1200, .databits = 7, .stopbits = 2, .parity = 2};

TEST(KivStressDeviceTest, StartsWithEveryFieldAtItsDefault) {
  const KivStressDevice device;
  EXPECT_EQ(&device.fm, &FileManagerTool::share());
  EXPECT_FALSE(device.kiv_delegate);
  EXPECT_EQ(device.Treadmill_or_Ergometer, 0);
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_EQ(device.getWithBP_SpO2, 0);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.port, std::nullopt);
  EXPECT_EQ(device.canStopBP, std::nullopt);
  EXPECT_EQ(device.actualLoad, std::nullopt);
  EXPECT_EQ(device.databits, std::nullopt);
  EXPECT_EQ(device.stopbits, std::nullopt);
  EXPECT_EQ(device.parity, std::nullopt);
  EXPECT_EQ(device.baud, 0);
  EXPECT_EQ(device.setWithBP_SpO2, 0);
  EXPECT_EQ(device.protPath, std::nullopt);
  EXPECT_FALSE(device.isState);
  EXPECT_EQ(device.requestGrade, -1.0F);
  EXPECT_EQ(device.requestSpeed, -1.0F);
  EXPECT_EQ(device.serialPort(), nullptr);
}

TEST(KivStressDeviceTest, StoresWhatAnExerciseDeviceIsMadeFrom) {
  const KivStressDevice device(exercise);
  EXPECT_EQ(device.Treadmill_or_Ergometer, 1);
  EXPECT_EQ(device.name, "Walker");
  EXPECT_EQ(device.baud, 9600);
  EXPECT_EQ(device.databits, 7);
  EXPECT_EQ(device.stopbits, 2);
  EXPECT_EQ(device.parity, 1);
  EXPECT_EQ(device.getWithBP_SpO2, 3);
  EXPECT_EQ(device.setWithBP_SpO2, 2);
  EXPECT_EQ(device.canStopBP, true);
  EXPECT_FALSE(device.autoSend);
  EXPECT_EQ(device.actualLoad, true);
  EXPECT_EQ(device.requestSpeed, -1.0F);
  EXPECT_EQ(device.requestGrade, -1.0F);
}

TEST(KivStressDeviceTest, StoresWhatABloodPressureMonitorIsMadeFrom) {
  const KivStressDevice device(monitor);
  EXPECT_EQ(device.name, std::nullopt);
  EXPECT_EQ(device.baud, 4800);
  EXPECT_EQ(device.databits, 7);
  EXPECT_EQ(device.stopbits, 2);
  EXPECT_EQ(device.parity, 1);
  EXPECT_EQ(device.canStopBP, false);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.actualLoad, std::nullopt);
  EXPECT_EQ(device.requestSpeed, -1.0F);
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
  EXPECT_EQ(device.parity, 2);
  EXPECT_TRUE(device.autoSend);
  EXPECT_EQ(device.canStopBP, std::nullopt);
  EXPECT_EQ(device.actualLoad, std::nullopt);
  EXPECT_EQ(device.requestGrade, -1.0F);
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

  EXPECT_THAT(port.sent(), IsEmpty());
  EXPECT_THAT(host.calls(), IsEmpty());
  EXPECT_EQ(port->delegate().lock(), nullptr);
}

TEST(KivBicycleTest, CanBeMadeInAllThreeWays) {
  EXPECT_EQ(KivBicycle(exercise).name, "Walker");
  EXPECT_EQ(KivBicycle(monitor).baud, 4800);
  EXPECT_EQ(KivBicycle(oximeter).name, "Finger");
}

}  // namespace
}  // namespace tarsil
