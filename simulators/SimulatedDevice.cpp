#include "simulators/SimulatedDevice.hpp"

#include <utility>

namespace tarsil::simulators {

SimulatedDevice::SimulatedDevice(std::string model, std::uint64_t baudRate, Patient& patient)
    : model_(std::move(model)), baudRate_(baudRate), patient_(patient) {}

void SimulatedDevice::receive(ByteView bytes) {
  for (const std::uint8_t byte : bytes) onByte(byte);
}

void SimulatedDevice::advance(Duration duration) {
  onTime(duration);
}

std::vector<Bytes> SimulatedDevice::takeOutput() {
  return std::exchange(output_, {});
}

void SimulatedDevice::send(ByteView message) {
  for (const std::uint8_t byte : afterFaults(message)) output_.push_back({byte});
}

void SimulatedDevice::send(std::string_view message) {
  send(Bytes(message.begin(), message.end()));
}

void SimulatedDevice::sendInOnePiece(ByteView message) {
  Bytes bytes = afterFaults(message);
  if (!bytes.empty()) output_.push_back(std::move(bytes));
}

Bytes SimulatedDevice::afterFaults(ByteView message) {
  if (silent_) return {};
  Bytes bytes(message.begin(), message.end());
  if (std::exchange(dropAByte_, false))
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2));
  if (noisy_ && random() % 4 == 0) bytes.insert(bytes.begin(), static_cast<std::uint8_t>(random()));
  return bytes;
}

std::uint32_t SimulatedDevice::random() {
  // xorshift32: repeatable everywhere, which the standard's distributions are not.
  randomState_ ^= randomState_ << 13;
  randomState_ ^= randomState_ >> 17;
  randomState_ ^= randomState_ << 5;
  return randomState_;
}

}  // namespace tarsil::simulators
