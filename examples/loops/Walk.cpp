#include "Walk.hpp"

#include <tarsil/core/StressECGDeviceManager.hpp>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>
#include <tarsil/runtime/Timer.hpp>

#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;
using namespace tarsil;

/// Hears what the treadmill answers. It overrides three methods, so it is called for exactly these three.
struct Walk::Host : KivStressPortDelegate {
  void portWasOpened() override {
    auto& station = StressECGDeviceManager::share();
    station.startStressDevice();
    station.setLoad(2.7F, 10.0F);
    ask = Timer::scheduled(500ms, true, [](Timer&) { StressECGDeviceManager::share().requestLoad(); });
  }

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    // This treadmill reports tenths.
    std::printf("%.1f km/h, %.1f %%\n", static_cast<double>(speed) / 10, static_cast<double>(grade) / 10);
    if (speed > 0) end(0);
  }

  void onErrorWithCode(const std::string& code, const std::string& details) override {
    std::printf("error %s: %s\n", code.c_str(), details.c_str());
    end(1);
  }

  void end(int code) {
    if (isOver) return;
    isOver = true;
    exitCode = code;
    if (ask) ask->invalidate();
    StressECGDeviceManager::share().stopStressDevice();
    StressECGDeviceManager::share().closePort();
  }

  bool isOver = false;
  int exitCode = 1;
  std::shared_ptr<Timer> ask;
  std::shared_ptr<Timer> patience = Timer::scheduled(20s, false, [this](Timer&) {
    std::puts("the belt did not move");
    end(1);
  });
};

Walk::Walk(const std::string& path) : host_(std::make_shared<Host>()) {
  // A real adapter is found by itself; this makes any terminal a port.
  VirtualDeviceRegistry::shared()->add(path, "treadmill");

  auto& station = StressECGDeviceManager::share();
  station.getDeviceByType("Treadmill");
  station.getPort(false);
  const auto treadmill = station.getSelected("LodeTreadmill", PortType::device);
  treadmill->kiv_delegate = host_;
  station.selectedPort("treadmill", PortType::device);
  station.openPort(PortType::device);
}

bool Walk::isOver() const {
  return host_->isOver;
}
int Walk::exitCode() const {
  return host_->exitCode;
}
