// A Bluetooth adapter in software with a MEDXING oximeter in reach, for the kernel's /dev/vhci; beside the
// oximeter advertises one that only begins with its name. Obeys one order a line on standard input and says
// on standard output what happens on the radio; ends with its input.
//
//   advertise on|off    the oximeter is seen, or not
//   name on|off         its advertising tells its name, or not
//   power on|off        off: not seen, and a connection dies of its silence
//   interval MS         time between two measurements
//   repeat N            each saturation is measured N times in a row
//   measure N           measures N times over the connection ("measured" follows), -1 for ever
//   lose                the link is lost
//   bye                 the oximeter ends the connection
//   silent on|off       nothing comes through the air; a connection dies after the supervision time-out
//   unreachable on|off  connection attempts stay unanswered
//   eject, insert       the adapter is pulled out and put back

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

#include "simulators/radio/SimulatedOximeter.hpp"
#include "simulators/radio/VirtualController.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"

namespace {

using namespace tarsil;
using namespace tarsil::simulators;

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

class Simulation {
 public:
  Simulation() {
    decoy_->address = {0x66, 0x44, 0x33, 0x22, 0x11, 0xC0};
    decoy_->name = "MEDXING-SpO2-B";
    decoy_->service = oximeter_.radio()->service;
    decoy_->advertises = true;
    insert();
  }

  bool hasAdapter() const { return controller_ != nullptr; }

  void obey(const std::string& line) {
    std::istringstream words(line);
    std::string order;
    std::string argument;
    words >> order >> argument;
    const bool on = argument == "on";
    if (order == "advertise") return void(oximeter_.radio()->advertises = on);
    if (order == "name") return void(oximeter_.radio()->tellsName = on);
    if (order == "interval") return oximeter_.setInterval(std::chrono::milliseconds(std::stoi(argument)));
    if (order == "repeat") return oximeter_.setRepetitions(std::stoi(argument));
    if (order == "measure") return oximeter_.measure(std::stoi(argument));
    if (order == "insert") return insert();
    if (!hasAdapter()) return say("there is no adapter");
    if (order == "eject") return eject();
    if (order == "power") return setPower(on);
    if (order == "lose") return controller_->endLink(VirtualController::supervisionTimeout);
    if (order == "bye") return controller_->endLink(VirtualController::endedByPeripheral);
    if (order == "silent") return controller_->setSilent(on);
    if (order == "unreachable") return controller_->setUnreachable(on);
    say("what is \"" + line + "\"?");
  }

 private:
  void insert() {
    const int descriptor = open("/dev/vhci", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return say(std::string("/dev/vhci: ") + std::generic_category().message(errno));
    controller_ = std::make_unique<VirtualController>(descriptor, std::vector{oximeter_.radio(), decoy_},
                                                      [](const std::string& line) { say(line); });
    oximeter_.setController(controller_.get());
  }

  void eject() {
    oximeter_.setController(nullptr);
    controller_ = nullptr;
    say("pulled out");
  }

  void setPower(bool on) {
    oximeter_.radio()->advertises = on;
    controller_->setSilent(!on);
  }

  SimulatedOximeter oximeter_{[](const std::string& line) { say(line); }};
  std::shared_ptr<RadioPeripheral> decoy_ = std::make_shared<RadioPeripheral>();
  std::unique_ptr<VirtualController> controller_;
};

}  // namespace

int main() {
  Simulation simulation;
  if (!simulation.hasAdapter()) return 1;
  std::string pending;
  const auto orders = DispatchSource::read(STDIN_FILENO, DispatchQueue::main());
  orders->setEventHandler([&] {
    std::array<char, 512> buffer;
    const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count <= 0) return RunLoop::main().stop();
    pending.append(buffer.data(), static_cast<std::size_t>(count));
    for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
      simulation.obey(pending.substr(0, end));
    }
  });
  orders->resume();
  RunLoop::main().run();
  orders->cancel();
  return 0;
}
