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

Bytes SimulatedDevice::takeOutput() {
  return std::exchange(output_, {});
}

void SimulatedDevice::send(ByteView message) {
  if (silent_) return;
  if (noisy_ && random() % 4 == 0) output_.push_back(static_cast<std::uint8_t>(random()));
  const std::size_t dropped = std::exchange(dropAByte_, false) ? message.size() / 2 : message.size();
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (i != dropped) output_.push_back(message[i]);
  }
}

std::uint32_t SimulatedDevice::random() {
  // xorshift32: repeatable everywhere, which the standard's distributions are not.
  randomState_ ^= randomState_ << 13;
  randomState_ ^= randomState_ >> 17;
  randomState_ ^= randomState_ << 5;
  return randomState_;
}

}  // namespace tarsil::simulators
