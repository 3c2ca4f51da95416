// From `openPort` until the host hears `portWasOpened`, on a pseudo-terminal, beside the system's bare calls
// that lock the line, set it up and look at its modem lines, made in the port's order. Each has every other
// opening. Times are medians, in microseconds.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/median.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace {

using namespace std::chrono_literals;
using namespace tarsil;

struct Host final : KivStressPortDelegate {
  void portWasOpened() override { isOpen = true; }
  bool isOpen = false;
};

/// A host that has chosen a treadmill on a terminal.
class Station {
 public:
  Station() {
    VirtualDeviceRegistry::shared()->add(terminal_.path(), "belt");
    manager_.getDeviceByType("Treadmill");
    RunLoop::main().runFor(200ms);  // the news of the port
    manager_.getPort(false);
    manager_.port();
    manager_.getSelected("LodeTreadmill", PortType::device)->kiv_delegate = host_;
    manager_.selectedPort("belt", PortType::device);
  }
  ~Station() { VirtualDeviceRegistry::shared()->remove(terminal_.path()); }
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  bool open() {
    host_->isOpen = false;
    return manager_.openPort(PortType::device) &&
           RunLoop::main().runUntil([this] { return host_->isOpen; }, 5s);
  }
  void close() {
    const auto port = manager_.devicePort;
    manager_.closePort();
    while (port->isOpen()) RunLoop::main().runFor(1ms);
  }

 private:
  simulators::PseudoTerminal terminal_;
  std::shared_ptr<Host> host_ = std::make_shared<Host>();
  StressECGDeviceManager& manager_ = StressECGDeviceManager::share();
};

int openBarely(const std::string& path) {
  const int line = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  flock(line, LOCK_EX | LOCK_NB);
  int isMarked = 0;
  ioctl(line, TIOCGEXCL, &isMarked);
  ioctl(line, TIOCEXCL);
  fcntl(line, F_SETFL, 0);
  termios modes{};
  tcgetattr(line, &modes);
  cfmakeraw(&modes);
  cfsetspeed(&modes, B115200);
  tcsetattr(line, TCSANOW, &modes);  // which asks what is set before and after, as the port does
  int modemLines = 0;
  ioctl(line, TIOCMGET, &modemLines);
  ioctl(line, TIOCMSET, &modemLines);
  return line;
}

void closeBarely(int line) {
  ioctl(line, TIOCNXCL);
  close(line);
}

double microsecondsOf(const std::function<void()>& call) {
  const auto begin = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

void opening(benchmark::State& state) {
  Station station;
  const simulators::PseudoTerminal terminal;
  bool isOpen = true;
  std::vector<double> bareTimes;
  std::vector<double> times;
  for (auto _ : state) {
    int line = -1;
    bareTimes.push_back(microsecondsOf([&] { line = openBarely(terminal.path()); }));
    closeBarely(line);
    times.push_back(microsecondsOf([&] { isOpen = station.open() && isOpen; }));
    station.close();
  }
  if (!isOpen) state.SkipWithError("the port does not open");
  state.counters["bare"] = bench::median(bareTimes);
  state.counters["openPort"] = bench::median(times);
  state.counters["ratio"] = bench::median(times) / bench::median(bareTimes);
}

BENCHMARK(opening)->Iterations(300);

}  // namespace
