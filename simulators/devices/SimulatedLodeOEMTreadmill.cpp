#include "simulators/devices/SimulatedLodeOEMTreadmill.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {
namespace {

constexpr std::array<std::uint8_t, 2> preamble{0xAC, 0x01};
constexpr std::size_t codePosition = 2;
constexpr std::size_t shortSize = 7;
constexpr std::size_t loadSize = 20;
constexpr std::size_t speedPosition = 9;
constexpr std::size_t gradePosition = 11;

enum Code : std::uint8_t { load = 0x09, request = 0x0A, start = 0x0B, stop = 0x0C, refused = 0xEF };

}  // namespace

SimulatedLodeOEMTreadmill::SimulatedLodeOEMTreadmill(Patient& patient)
    : SimulatedDevice("LodeOEMTreadmill", 19200, patient), speed_(10.0), grade_(1.0) {}

std::string SimulatedLodeOEMTreadmill::status() const {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "belt %s, %.1f km/h, grade %.0f %%, unreadable bytes %d",
                running_ ? "running" : "stopped", speed_.value() / 10, grade_.value(), unreadableBytes_);
  return text.data();
}

void SimulatedLodeOEMTreadmill::onByte(std::uint8_t byte) {
  const std::size_t position = frame_.size();
  if (position < preamble.size() && byte != preamble.at(position)) {
    unreadableBytes_ += static_cast<int>(position) + 1;
    frame_.clear();
    return;
  }
  frame_.push_back(byte);
  if (frame_.size() != expectedSize()) return;
  onFrame();
  frame_.clear();
}

std::size_t SimulatedLodeOEMTreadmill::expectedSize() const {
  return frame_.size() > codePosition && frame_[codePosition] == load ? loadSize : shortSize;
}

void SimulatedLodeOEMTreadmill::onFrame() {
  if (refusal()) return answer(refused);

  const std::uint8_t code = frame_[codePosition];
  if (code == start) running_ = true;
  if (code == stop) running_ = false;
  if (code == load) {
    wantedSpeed_ = frame_[speedPosition];
    grade_.setTarget(frame_[gradePosition]);
  }
  speed_.setTarget(running_ ? wantedSpeed_ : 0);
  if (code == request) answer(request);
}

void SimulatedLodeOEMTreadmill::answer(std::uint8_t code) {
  const auto speed = static_cast<std::uint8_t>(std::max(1L, std::lround(speed_.value())));
  const auto grade = static_cast<std::uint8_t>(std::lround(grade_.value()));
  send(Bytes{0xAC, 0x01, code, 0x0E, 0x0D, 0x01, 0x01, 0x01, 0x00, speed, 0x00, grade, 0x00, 0x00});
}

void SimulatedLodeOEMTreadmill::onTime(Duration duration) {
  speed_.advance(duration);
  grade_.advance(duration);
  patient().walk(speed_.value() / 10, grade_.value());
}

}  // namespace tarsil::simulators
