// Does what the guide says, with the guide's own code, on pseudo-terminals.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <tarsil/core/StressECGDeviceManager.hpp>
#include <tarsil/guard/GuardedStation.hpp>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>
#include <tarsil/runtime/DispatchQueue.hpp>
#include <tarsil/runtime/RunLoop.hpp>
#include <tarsil/serial/ORSSerialPort.hpp>
#include <tarsil/serial/ORSSerialPortManager.hpp>
#include <tarsil/support/process.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "printedInTheGuide.inc"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

struct Host : KivStressPortDelegate {
  void portWasOpened() override { ++openings; }
  void portWasRemovedFromSystem() override { ++removals; }
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    std::printf("%s: %s\n", code.c_str(), details.c_str());
  }
  int openings = 0;
  int removals = 0;
};

/// A terminal that is plugged in and out under a name, and always has the same stable path.
class Adapter {
 public:
  void plugIn(const std::string& name) {
    line_ = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(line_);
    unlockpt(line_);
    path_ = ptsname(line_);
    VirtualDeviceRegistry::shared()->add(path_, name);
  }
  void plugOut() {
    VirtualDeviceRegistry::shared()->remove(path_);
    close(line_);
  }
  const std::string& path() const { return path_; }

 private:
  int line_ = -1;
  std::string path_;
};

bool waitFor(const std::function<bool()>& condition) {
  return RunLoop::main().runUntil(condition, 60s);
}

bool hasPort(const std::string& name) {
  for (const auto& port : ORSSerialPortManager::sharedSerialPortManager().availablePorts()) {
    if (port->name() == name) return true;
  }
  return false;
}

}  // namespace

int main() {
  if (openStation("4711")) return 1;
  auto& station = StressECGDeviceManager::share();
  const auto host = std::make_shared<Host>();
  Adapter treadmill;
  Adapter monitor;
  treadmill.plugIn("treadmill");
  monitor.plugIn("monitor");
  station.getPort(false);

  reconnectTreadmill("treadmill", host);
  reconnectMonitor("monitor", host);
  waitFor([&] { return host->openings == 2; });
  std::printf("%d openings\n", host->openings);

  for (int i = 0; i < 20; ++i) {
    reopen();
    waitFor([&] { return host->openings == 3 + i; });
  }
  std::printf("%d openings\n", host->openings);

  const auto old = station.currentDevice;
  treadmill.plugOut();
  std::puts(waitFor([&] { return host->removals == 1; }) ? "unplugged" : "not unplugged");
  treadmill.plugIn("treadmill-again");
  waitFor([&] { return hasPort("treadmill-again"); });
  reconnectTreadmill("treadmill-again", host);
  waitFor([&] { return host->openings == 23; });
  std::printf("%d openings, a new driver: %s\n", host->openings, station.currentDevice != old ? "yes" : "no");

  std::printf("an unknown adapter is at \"%s\"\n", portAt("/dev/serial/by-id/none").c_str());

  goOnAfterFatalErrors();
  DispatchQueue::main().async([&] { station.setLoad(NAN, 0.0F); });
  processDueAndSurvive(*host);
  return 0;
}
