#include "simulators/lines/InProcessLine.hpp"

#include <utility>

#include "doubles/scriptedDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::simulators {

InProcessLine::InProcessLine(SimulatedDevice& device, const std::string& terminalName,
                             const CableBehaviour& behaviour)
    : device_(device, behaviour,
              [this](const Bytes& bytes) {
                terminal_->deliver(bytes);
                forgetThePast();
              }),
      identity_{.vendorId = "0403",
                .productId = "6001",
                .serialNumber = "SIM-" + terminalName,
                .manufacturer = "Tarsil",
                .product = "simulated " + device.model()} {
  appear(terminalName);
}

InProcessLine::~InProcessLine() {
  *alive_ = false;
  unplug();
}

void InProcessLine::unplug() {
  if (!cable().isPluggedIn()) return;
  cable().unplug();
  terminal_->vanish();
  VirtualDeviceRegistry::shared()->remove(path_);
}

void InProcessLine::plugIn(const std::string& terminalName) {
  if (cable().isPluggedIn()) return;
  appear(terminalName);
  cable().plugIn();
}

// Nobody asks this terminal what was done with it, and a day of that would fill the memory.
void InProcessLine::forgetThePast() {
  terminal_->forgetCalls();
  terminal_->forgetWritten();
}

void InProcessLine::appear(const std::string& terminalName) {
  auto terminal = std::make_shared<doubles::ScriptedTerminal>();
  auto port = std::make_shared<SerialDevice>(*doubles::scriptedDevice(terminalName, terminal));
  port->usb = identity_;
  port->stablePath = "/dev/serial/by-id/" + identity_.serialNumber;
  VirtualDeviceRegistry::shared()->add(port);
  // A port may write on any thread; the device lives on the main one.
  terminal->onWrite([this, alive = alive_](const Bytes& bytes) {
    DispatchQueue::main().async([this, alive, bytes] {
      if (!*alive) return;
      device_.write(bytes);
      forgetThePast();
    });
  });
  terminal_ = std::move(terminal);
  path_ = *port->calloutPath;
}

}  // namespace tarsil::simulators
