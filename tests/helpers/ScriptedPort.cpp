#include "tests/helpers/ScriptedPort.hpp"

#include <chrono>

#include "doubles/scriptedDevice.hpp"

namespace tarsil {
namespace {

constexpr const char* usualName = "ttyScripted0";

std::shared_ptr<ORSSerialPort> portOf(const std::string& terminalName,
                                      const std::shared_ptr<doubles::ScriptedTerminal>& terminal) {
  return ORSSerialPort::serialPortWithDevice(doubles::scriptedDevice(terminalName, terminal));
}

}  // namespace

ScriptedPort::ScriptedPort(Start start)
    : ownTime_(std::in_place),
      time_(&*ownTime_),
      terminal_(std::make_shared<doubles::ScriptedTerminal>()),
      port_(portOf(usualName, terminal_)) {
  if (start == Start::open) open();
}

ScriptedPort::ScriptedPort(VirtualTime& time, const std::string& terminalName, Start start)
    : time_(&time),
      terminal_(std::make_shared<doubles::ScriptedTerminal>()),
      port_(portOf(terminalName, terminal_)) {
  if (start == Start::open) open();
}

ScriptedPort::~ScriptedPort() {
  // Whoever else holds the port may not reach into a time that is gone.
  port_->close();
  port_.reset();
  time_->settle();
}

std::vector<Bytes> ScriptedPort::sent() const {
  return terminal_->written();
}

std::vector<Bytes> ScriptedPort::takeSent() {
  auto sent = terminal_->written();
  terminal_->forgetWritten();
  return sent;
}

void ScriptedPort::deliver(ByteView chunk) {
  terminal_->deliver(chunk);
  time_->settle();
}

void ScriptedPort::deliverByteByByte(ByteView bytes) {
  for (std::size_t at = 0; at < bytes.size(); ++at) deliver(bytes.subspan(at, 1));
}

void ScriptedPort::open() {
  port_->open();
  time_->settle();
}

void ScriptedPort::close() {
  port_->close();
  time_->settle();
}

void ScriptedPort::remove() {
  terminal_->vanish();
  time_->advance(std::chrono::milliseconds(10));
}

void ScriptedPort::advance(Duration duration) {
  time_->advance(duration);
}

}  // namespace tarsil
