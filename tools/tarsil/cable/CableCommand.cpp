#include "tools/tarsil/cable/CableCommand.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <memory>
#include <optional>

#include "simulators/lines/Cable.hpp"
#include "simulators/lines/Orders.hpp"
#include "simulators/lines/PseudoTerminalEnd.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/cableOption.hpp"
#include "tools/tarsil/run/chosenPort.hpp"

namespace tarsil::cli {
namespace {

using simulators::Cable;
using simulators::CableBehaviour;
using simulators::PseudoTerminalEnd;

/// Bit/s. The bytes have come along the device's own line already: the cable adds no time of a line's.
constexpr std::uint64_t withoutDelay = 1'000'000'000;

std::shared_ptr<ORSSerialPort> portNamed(const std::string& name) {
  for (const auto& device : SerialDeviceRegistry::shared()->devices()) {
    if (device->terminalName == name) return ORSSerialPort::serialPortWithDevice(device);
  }
  throw CommandFailure(portNotOpened, fmt::format("there is no port \"{}\"", name));
}

/// A port in the settings of its device, and the cable from it to the host.
class Relay final : public ORSSerialPortDelegate, public std::enable_shared_from_this<Relay> {
 public:
  Relay(std::shared_ptr<ORSSerialPort> port, const CableBehaviour& behaviour)
      : port_(std::move(port)),
        cable_(
            behaviour, withoutDelay, [this](const Bytes& bytes) { hostEnd_.deliver(bytes); },
            [this](const Bytes& bytes) { port_->sendData(bytes); }) {}
  ~Relay() override { port_->setDelegate(nullptr); }

  PseudoTerminalEnd& hostEnd() { return hostEnd_; }

  void open(const DeviceModel& model) {
    const auto device = model.makeDevice();
    port_->setBaudRate(static_cast<std::uint64_t>(device->baud));
    port_->setNumberOfStopBits(static_cast<std::uint64_t>(device->stopbits.value_or(1)));
    port_->setDelegate(shared_from_this());
    port_->open();
    if (port_->isOpen()) return;
    throw CommandFailure(portNotOpened, fmt::format("cannot open {}: {}", port_->path(), failure_));
  }
  void close() {
    port_->close();
    RunLoop::main().runUntil([this] { return !port_->isOpen(); }, std::chrono::seconds(5));
  }

  bool hasVanished() const { return hasVanished_; }

  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override {
    cable_.putReply(data, false);
  }
  void serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) override {
    hasVanished_ = true;
    hostEnd_.unplug();
    RunLoop::main().stop();
  }
  void serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& error) override {
    failure_ = error.localizedDescription;
    // Of an open port the person at the terminal hears; flow control was not asked for.
    if (port_->isOpen() && error.code != ENOTSUP) std::cerr << "tarsil: " << failure_ << std::endl;
  }

 private:
  const std::shared_ptr<ORSSerialPort> port_;
  Cable cable_;
  PseudoTerminalEnd hostEnd_{cable_};
  std::string failure_;
  bool hasVanished_ = false;
};

}  // namespace

void CableCommand::declare(CLI::App& command) {
  command.add_option("DEVICE", device_, "MODEL@PORT: its port is opened in the settings of the model")
      ->required();
  addCableOption(command, cable_);
  command.add_flag("--orders", orders_, "Obey orders on standard input, and end with it");
}

ExitCode CableCommand::run() {
  const CableBehaviour behaviour = cableBehaviour(cable_);
  const std::size_t at = device_.find('@');
  if (at == std::string::npos) throw CommandFailure(badInput, "name the device and its port: MODEL@PORT");
  const auto model = standardCatalogue().modelNamed(device_.substr(0, at));
  if (!model || !model->makeFraming) {
    throw CommandFailure(badInput, fmt::format("no model with a line is called \"{}\"; see `tarsil devices`",
                                               device_.substr(0, at)));
  }

  const Interruption interruption([] { RunLoop::main().stop(); });
  const auto relay = std::make_shared<Relay>(portNamed(chosenPort(device_.substr(at + 1))), behaviour);
  relay->open(*model);
  std::optional<simulators::Orders> orders;
  if (orders_) orders.emplace(STDIN_FILENO, relay->hostEnd());
  std::cout << relay->hostEnd().path() << std::endl;
  RunLoop::main().run();
  relay->close();
  if (relay->hasVanished()) throw CommandFailure(portVanished, "the device's port has vanished");
  return succeeded;
}

}  // namespace tarsil::cli
