#include "simulators/SimulatedDevice.hpp"

#include <utility>

namespace tarsil::simulators {

SimulatedDevice::SimulatedDevice(std::string model, std::uint64_t baudRate, Patient& patient)
    : model_(std::move(model)), baudRate_(baudRate), patient_(patient) {}

void SimulatedDevice::receive(ByteView bytes) {
  noteBeginning();
  for (const std::uint8_t byte : bytes) onByte(byte);
  history_.note(age_, truth());
}

void SimulatedDevice::advance(Duration duration) {
  noteBeginning();
  age_ += duration;
  onTime(duration);
  history_.note(age_, truth());
}

void SimulatedDevice::noteBeginning() {
  // Not when it is made: what it does in truth is told by a class that does not exist by then.
  if (history_.entries().empty()) history_.note(age_, truth());
}

std::vector<SimulatedDevice::Message> SimulatedDevice::takeOutput() {
  return std::exchange(output_, {});
}

void SimulatedDevice::send(ByteView message) {
  put(message, false);
}

void SimulatedDevice::send(std::string_view message) {
  send(Bytes(message.begin(), message.end()));
}

void SimulatedDevice::sendInOnePiece(ByteView message) {
  put(message, true);
}

void SimulatedDevice::put(ByteView message, bool inOnePiece) {
  Bytes bytes = afterFaults(message);
  if (!bytes.empty()) output_.push_back({std::move(bytes), inOnePiece});
}

Bytes SimulatedDevice::afterFaults(ByteView message) {
  if (silent_) return {};
  Bytes bytes(message.begin(), message.end());
  if (std::exchange(dropAByte_, false))
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2));
  if (noisy_ && random() % 4 == 0) bytes.insert(bytes.begin(), static_cast<std::uint8_t>(random()));
  return bytes;
}

}  // namespace tarsil::simulators
