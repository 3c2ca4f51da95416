// A console program that closes its port and returns from main; what it hears it writes to an object of
// main's own, which is gone when the process's exit handlers run.

#include <tarsil/core/StressECGDeviceManager.hpp>
#include <tarsil/runtime/RunLoop.hpp>
#include <tarsil/serial/ORSSerialPort.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "TerminalPort.hpp"

using namespace std::chrono_literals;
using namespace tarsil;

namespace {

/// Says whether it is still there, so that a call after its end shows without a sanitizer, too.
struct Diary {
  Diary() { exists = true; }
  ~Diary() { exists = false; }
  Diary(const Diary&) = delete;
  Diary& operator=(const Diary&) = delete;

  void write(const char* line) {
    if (!exists) return void(std::puts("the diary is gone"));
    lines += line;
    std::puts(line);
  }

  static inline bool exists = false;
  std::string lines;
};

struct Host : KivStressPortDelegate {
  explicit Host(Diary& own) : diary(own) {}
  void portWasOpened() override { diary.write("opened"); }
  void portWasRemovedFromSystem() override { diary.write("unplugged"); }

  Diary& diary;
};

}  // namespace

int main() {
  const TerminalPort terminal("treadmill");
  Diary diary;

  auto& station = StressECGDeviceManager::share();
  station.getDeviceByType("Treadmill");
  station.getPort(false);
  const auto host = std::make_shared<Host>(diary);
  station.delegate = host;
  station.getSelected("TM-400V2", PortType::device)->kiv_delegate = host;
  station.selectedPort("treadmill", PortType::device);
  station.openPort(PortType::device);
  RunLoop::main().runUntil([&] { return !diary.lines.empty(); }, 60s);
  station.closePort();
  RunLoop::main().runUntil([&] { return !station.devicePort->isOpen(); }, 60s);
  std::puts(station.devicePort->isOpen() ? "still open" : "closed");
  return 0;
}
