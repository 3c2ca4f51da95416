// Managers whose devices never stop sending, come and go meanwhile, and whose host never stops asking. On the
// machine's own clock and threads.

#include <gtest/gtest.h>

#include <any>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "simulators/devices/medxingFrame.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/process.hpp"
#include "tests/faults/StreamingDevice.hpp"
#include "tests/faults/runUntil.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// Plugs adapters in and out, from a thread of its own, until it ends.
class RestlessHand {
 public:
  RestlessHand(std::shared_ptr<VirtualDeviceRegistry> registry, std::vector<std::string> paths)
      : registry_(std::move(registry)), paths_(std::move(paths)), hand_([this] { plug(); }) {}
  ~RestlessHand() {
    ends_ = true;
    hand_.join();
  }
  RestlessHand(const RestlessHand&) = delete;
  RestlessHand& operator=(const RestlessHand&) = delete;

 private:
  void plug() {
    std::mt19937 random(1);
    while (!ends_) {
      const std::string& path = paths_[random() % paths_.size()];
      if (!registry_->remove(path)) registry_->add(path, path);
      std::this_thread::yield();
    }
    for (const std::string& path : paths_) registry_->remove(path);
  }

  const std::shared_ptr<VirtualDeviceRegistry> registry_;
  const std::vector<std::string> paths_;
  std::atomic<bool> ends_ = false;
  std::thread hand_;
};

TEST(HammeredManagerTest, ThePortListIsReadOnEachThreadWhileDevicesComeAndGo) {
  const auto registry = std::make_shared<VirtualDeviceRegistry>();
  ORSSerialPortManager manager(registry);
  long listed = 0;
  const auto count = [&](const char* key, long sign) {
    return [&, key, sign](const Notification& notification) {
      EXPECT_TRUE(RunLoop::isMainThread());
      EXPECT_EQ(notification.object, &manager);
      const auto ports = std::any_cast<ORSSerialPortManager::Ports>(notification.userInfo.at(key));
      listed += sign * static_cast<long>(ports.size());
    };
  };
  auto& center = NotificationCenter::defaultCenter();
  const auto connected = center.addObserver(ORSSerialPortManager::wasConnectedNotification,
                                            count(ORSSerialPortManager::connectedPortsKey, 1));
  const auto disconnected = center.addObserver(ORSSerialPortManager::wasDisconnectedNotification,
                                               count(ORSSerialPortManager::disconnectedPortsKey, -1));
  std::atomic<bool> isOver = false;
  std::thread reader([&] {
    while (!isOver) {
      for (const auto& port : manager.availablePorts()) EXPECT_FALSE(port->path().empty());
    }
  });
  int changes = 0;
  {
    const auto observation = manager.observe("availablePorts", [&](const KeyChange&) { ++changes; });
    const RestlessHand hand(registry, {"/dev/one", "/dev/two", "/dev/three"});
    EXPECT_TRUE(runUntil([&] {
      EXPECT_EQ(listed, static_cast<long>(manager.countOfAvailablePorts()));
      return changes > 2000;
    }));
  }
  EXPECT_TRUE(runUntil([&] { return manager.countOfAvailablePorts() == 0; }));
  EXPECT_EQ(listed, 0);
  isOver = true;
  reader.join();
}

/// A treadmill, a monitor and an oximeter that send all the time, and a host that does everything.
class HammeredStation {
 public:
  explicit HammeredStation(std::uint32_t seed) : random_(seed) {
    for (const auto& device : devices_) registry_->add(device.path(), device.path());
    station_->delegate = host_;
  }

  void hit() {
    switch (random_() % 16) {
      case 0:
        station_->getDeviceByType("Treadmill");
        station_->getSelected("LodeTreadmill", PortType::device);
        return answerTo(station_->currentDevice);
      case 1:
        station_->getSpO2Devices();
        station_->getSelected("MEDXINGPort", PortType::SpO2);
        return answerTo(station_->SpO2D);
      case 2:
        return station_->port();
      case 3:
        station_->getPort(true);
        return station_->selectedPort(devices_[0].path(), PortType::device);
      case 4:
        station_->selectedPort(devices_[1].path(), PortType::BP);
        return answerTo(station_->BPD);
      case 5:
        return station_->selectedPort(devices_[2].path(), PortType::SpO2);
      case 6:
        station_->openPort(PortType::device);
        return;
      case 7:
        station_->openPort(PortType::BP);
        return;
      case 8:
        station_->openPort(PortType::SpO2);
        return;
      case 9:
        return station_->closePort();
      case 10:
        return station_->startStressDevice();
      case 11:
        return station_->setLoad(2, 3);
      case 12:
        return station_->requestLoad();
      case 13:
        return station_->startBP(true);
      case 14:
        return station_->requestBP(true);
      default:
        RunLoop::main().runUntil([] { return false; }, 1ms);
    }
  }

  /// What it heard of its devices.
  std::size_t heard() const { return host_.calls().size(); }

  /// Lets go of the manager, and tells of each port whether it lives.
  std::vector<std::weak_ptr<ORSSerialPort>> drop() {
    std::vector<std::weak_ptr<ORSSerialPort>> ports;
    for (const auto& port : portManager_->availablePorts()) {
      port->close();
      ports.push_back(port);
    }
    station_.reset();
    portManager_.reset();
    return ports;
  }

 private:
  void answerTo(const std::shared_ptr<KivStressDevice>& device) {
    if (device) device->kiv_delegate = host_;
  }

  std::mt19937 random_;
  RecordingHost host_;
  std::array<StreamingDevice, 3> devices_{StreamingDevice(text("\x06")), StreamingDevice(text("R 120/80\r")),
                                          StreamingDevice(simulators::medxingFrame(97))};
  const std::shared_ptr<VirtualDeviceRegistry> registry_ = std::make_shared<VirtualDeviceRegistry>();
  std::unique_ptr<ORSSerialPortManager> portManager_ = std::make_unique<ORSSerialPortManager>(registry_);
  FileManagerTool log_;
  std::shared_ptr<StressECGDeviceManager> station_ = std::make_shared<StressECGDeviceManager>(
      standardCatalogue(), SharedByManagers{.portManager = portManager_.get(), .log = &log_});
};

TEST(HammeredManagerTest, StandsWhateverItsHostDoesWhileDataStreamsIn) {
  const TemporaryUserFolders folders;
  const ScopedProcessHooks hooks({.print = [](std::string_view, PrintedText) {}});
  std::size_t heard = 0;
  for (std::uint32_t round = 0; round < 8; ++round) {
    HammeredStation station(round);
    for (int hits = 0; hits < 1000; ++hits) station.hit();
    heard += station.heard();
    const auto ports = station.drop();
    for (const auto& port : ports) EXPECT_TRUE(runUntil([&] { return port.expired(); }));
  }
  EXPECT_GT(heard, 100U);
}

}  // namespace
}  // namespace tarsil
