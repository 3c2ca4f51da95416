// A USB serial adapter in software, for the kernel's virtual host controller, with a simulated device or
// nothing at the far end of its line. Obeys one order a line on standard input; ends with its input.
// usage: usb-adapter SOCKET SERIAL-NUMBER [MODEL]
//
//   plug, pull         it is plugged in, or pulled out; pulled out at first
//   inputs [WORD...]   of its modem lines these are on: cts, dsr, ri, dcd; "inputs are set" follows
//   hold on|off        nothing leaves it any more, or again
//   stumble            the next question for the modem lines fails
//   send HEX           the far end sends bytes
//   spoil FAULT HEX    the same, spoiled: "parity", "framing" or "overrun"
//   break              the far end breaks
//
// and with a device its own orders. Standard output gets what the driver sets, as FtdiAdapter tells it, and
// without a device what leaves the adapter: "sent 01 02".

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/CabledDevice.hpp"
#include "simulators/lines/deviceOrders.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tests/guest/serial/FtdiAdapter.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

/// What it becomes between two ends that disagree about the line's speed: no byte is what was sent.
Bytes garbled(Bytes bytes) {
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(~byte);
  return bytes;
}

class Setup {
 public:
  Setup(unsigned socket, const std::string& serialNumber, const std::string& model)
      : adapter_(socket, serialNumber,
                 {.sent = [this](const Bytes& bytes) { takeOutput(bytes); },
                  .told = [](const std::string& line) { say(line); }}) {
    if (model.empty()) return;
    device_ = simulators::makeSimulatedDevice(model, patient_);
    line_.emplace(*device_, simulators::CableBehaviour::wire(),
                  [this](const Bytes& bytes) { takeReply(bytes); });
  }

  void obey(const std::string& line) {
    const std::size_t blank = line.find(' ');
    const std::string order = line.substr(0, blank);
    const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
    if (order == "plug") return adapter_.plugIn();
    if (order == "pull") return adapter_.pullOut();
    if (order == "inputs") return setInputs(argument);
    if (order == "hold") return adapter_.holdOutput(argument == "on");
    if (order == "stumble") return adapter_.stumble();
    if (order == "send") return adapter_.receive(hex(argument));
    if (order == "break") return adapter_.receive(Bytes{0}, FtdiAdapter::Fault::breaks);
    if (order == "spoil") return spoil(argument);
    if (device_ && simulators::obeyDeviceOrder(*device_, patient_, order, argument)) return;
    std::fprintf(stderr, "not an order: %s\n", line.c_str());
  }

 private:
  void takeOutput(const Bytes& bytes) {
    if (line_) return line_->write(endsAgree() ? bytes : garbled(bytes));
    say("sent " + hexText(bytes));
  }

  void takeReply(const Bytes& bytes) {
    if (endsAgree()) return adapter_.receive(bytes);
    adapter_.receive(garbled(bytes), FtdiAdapter::Fault::framing);
  }

  /// A receiver bears less than half a bit in a character of ten.
  bool endsAgree() const {
    const auto devices = static_cast<double>(device_->baudRate());
    return std::abs(adapter_.speed() - devices) < 0.05 * devices;
  }

  void setInputs(const std::string& words) {
    FtdiAdapter::Inputs inputs;
    std::istringstream all(words);
    for (std::string word; all >> word;) {
      if (word == "cts") inputs.cts = true;
      if (word == "dsr") inputs.dsr = true;
      if (word == "ri") inputs.ri = true;
      if (word == "dcd") inputs.dcd = true;
    }
    adapter_.setInputs(inputs);
    say("inputs are set");
  }

  void spoil(const std::string& argument) {
    const std::size_t blank = argument.find(' ');
    const std::string word = argument.substr(0, blank);
    const auto fault = word == "parity"    ? FtdiAdapter::Fault::parity
                       : word == "framing" ? FtdiAdapter::Fault::framing
                                           : FtdiAdapter::Fault::overrun;
    adapter_.receive(hex(argument.substr(blank)), fault);
  }

  simulators::Patient patient_;
  std::unique_ptr<simulators::SimulatedDevice> device_;
  std::optional<simulators::CabledDevice> line_;
  FtdiAdapter adapter_;
};

void run(unsigned socket, const std::string& serialNumber, const std::string& model) {
  Setup setup(socket, serialNumber, model);
  std::string pending;
  const auto orders = DispatchSource::read(STDIN_FILENO, DispatchQueue::main());
  orders->setEventHandler([&] {
    std::array<char, 4096> buffer;
    const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count <= 0) return RunLoop::main().stop();
    pending.append(buffer.data(), static_cast<std::size_t>(count));
    for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
      setup.obey(pending.substr(0, end));
    }
  });
  orders->resume();
  RunLoop::main().run();
  orders->cancel();
}

}  // namespace
}  // namespace tarsil

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    std::fputs("usage: usb-adapter SOCKET SERIAL-NUMBER [MODEL]\n", stderr);
    return 2;
  }
  tarsil::run(static_cast<unsigned>(std::stoul(argv[1])), argv[2], argc == 4 ? argv[3] : "");
  return 0;
}
