#include "tests/guest/serial/SerialGuest.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

// The guest's files are those of a changed root, where the daemon's tools would do nothing.
int run(const std::vector<std::string>& command) {
  std::vector<std::string> all{"env", "SYSTEMD_IGNORE_CHROOT=1"};
  all.insert(all.end(), command.begin(), command.end());
  return ChildProcess(all).wait();
}

PortType roleOf(const DeviceModel& model) {
  if (model.kind == DeviceKind::oximeter) return PortType::SpO2;
  return model.kind == DeviceKind::bloodPressureMonitor ? PortType::BP : PortType::device;
}

/// The port, open as the model wants it; null where it is not.
std::shared_ptr<ORSSerialPort> openedAs(const DeviceModel& model, const std::string& portName,
                                        ORSSerialPortManager& ports) {
  const PortType role = roleOf(model);
  const auto manager =
      std::make_shared<StressECGDeviceManager>(standardCatalogue(), SharedByManagers{.portManager = &ports});
  if (role == PortType::SpO2) manager->getSpO2Devices();
  if (role == PortType::device) manager->getDeviceByType(std::string(kindName(model.kind)));
  manager->getPort(false);
  manager->getSelected(model.name, role);
  manager->selectedPort(portName, role);
  if (!manager->openPort(role)) return nullptr;
  if (role == PortType::device) return manager->devicePort;
  return role == PortType::BP ? manager->BPPort : manager->SpO2Port;
}

}  // namespace

SerialPrograms& serialPrograms() {
  static SerialPrograms programs;
  return programs;
}

bool until(const std::function<bool()>& condition, Duration timeout) {
  const auto look = Timer::scheduled(10ms, true, [](Timer&) {});
  const bool holds = RunLoop::main().runUntil(condition, timeout);
  look->invalidate();
  return holds;
}

void expectLineSettingsOfEveryModel(const std::string& port, const std::function<std::string()>& settings) {
  const std::map<std::string, std::string> expected{
      {"TM-400V2", "4800 8N1"},        {"LodeOEMTreadmill", "19200 8N1"}, {"LodeTreadmill", "38400 8N1"},
      {"TrackMaster", "4800 8N1"},     {"KivBicycle", "38400 8N1"},       {"Ergometer38K4", "38400 8N1"},
      {"ErgolineK2.4P10", "4800 8N1"}, {"ErgosanaK4.8P10", "4800 8N1"},   {"ErgometricsK2.4P3", "4800 8N1"},
      {"Tango", "9600 8N1"},           {"MEDXINGPort", "9600 8N1"}};
  std::size_t seen = 0;
  for (const DeviceModel& model : standardCatalogue().models()) {
    if (!model.makeFraming) continue;  // it has no line
    ++seen;
    SCOPED_TRACE(model.name);
    ORSSerialPortManager ports(systemSerialDeviceRegistry());
    const auto opened = openedAs(model, port, ports);
    ASSERT_TRUE(opened && opened->isOpen());
    EXPECT_TRUE(until([&] { return settings() == expected.at(model.name); })) << settings();
    opened->close();
    EXPECT_TRUE(until([&] { return !opened->isOpen(); }));
    EXPECT_TRUE(until([&] { return settings() == "9600 8N1"; })) << settings();
  }
  EXPECT_EQ(seen, expected.size());
}

DeviceDaemon::DeviceDaemon() {
  run({"/usr/lib/systemd/systemd-udevd", "--daemon"});
  run({"udevadm", "trigger", "--action=add", "--subsystem-match=tty"});
  run({"udevadm", "settle"});
}

DeviceDaemon::~DeviceDaemon() {
  run({"udevadm", "control", "--exit"});
  // Workers that have not ended yet take their own files away meanwhile.
  EXPECT_TRUE(until([] {
    std::error_code error;
    std::filesystem::remove_all("/run/udev", error);
    return !error;
  }));
}

std::vector<std::string> otherProgram(const std::string& path, const std::string& user,
                                      const std::string& way) {
  return {serialPrograms().otherProgram, path, user, way};
}

}  // namespace tarsil
