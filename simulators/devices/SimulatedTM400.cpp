#include "simulators/devices/SimulatedTM400.hpp"

#include <array>
#include <chrono>
#include <cstdio>
#include <numeric>

#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t frameStart = 0x23;
constexpr std::size_t frameSize = 7;
/// A frame that pauses this long is over.
constexpr Duration longestPause = 100ms;

bool checkByteIsRight(ByteView frame) {
  return std::accumulate(frame.begin() + 1, frame.end(), 0) % 0x100 == 0;
}

}  // namespace

SimulatedTM400::SimulatedTM400(Patient& patient)
    : SimulatedDevice("TM-400V2", 4800, patient), speed_(10.0), grade_(1.0) {}

std::string SimulatedTM400::status() const {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "belt %s, %.1f km/h, grade %.0f %%, unreadable bytes %d",
                running_ ? "running" : "stopped", speed_.value() / 10, grade_.value(), unreadableBytes_);
  return text.data();
}

void SimulatedTM400::onByte(std::uint8_t byte) {
  sinceLastByte_ = Duration::zero();
  if (frame_.empty() && byte != frameStart) {
    ++unreadableBytes_;
    return;
  }
  frame_.push_back(byte);
  if (frame_.size() < frameSize) return;
  if (checkByteIsRight(frame_)) {
    onFrame();
  } else {
    unreadableBytes_ += static_cast<int>(frameSize);
  }
  frame_.clear();
}

void SimulatedTM400::onFrame() {
  const bool isSwitch = frame_[1] == 0xE3 && frame_[2] == 0x10;
  if (isSwitch) running_ = frame_[4] == 0x10;
  if (frame_[1] == 0xE3 && frame_[3] == 0x61) wantedSpeed_ = frame_[4];
  if (frame_[1] == 0xE4) grade_.setTarget(frame_[5]);
  speed_.setTarget(running_ ? wantedSpeed_ : 0);
}

void SimulatedTM400::onTime(Duration duration) {
  sinceLastByte_ += duration;
  if (sinceLastByte_ > longestPause && !frame_.empty()) {
    unreadableBytes_ += static_cast<int>(frame_.size());
    frame_.clear();
  }
  speed_.advance(duration);
  grade_.advance(duration);
  patient().walk(speed_.value() / 10, grade_.value());
}

}  // namespace tarsil::simulators
