#include "simulators/devices/SimulatedLodeOEMTreadmill.hpp"

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
    : SimulatedDevice("LodeOEMTreadmill", 19200, patient),
      belt_({.least = 0, .most = 300, .perSecond = 10}, {.least = -30, .most = 30, .perSecond = 1}) {}

std::string SimulatedLodeOEMTreadmill::status() const {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "belt %s, %.1f km/h, grade %.0f %%, unreadable bytes %d",
                belt_.isRunning() ? "running" : "stopped", belt_.speed() / 10, belt_.grade(),
                unreadableBytes_);
  return text.data();
}

Truth SimulatedLodeOEMTreadmill::truth() const {
  return {.exercise = Truth::Exercise::treadmill,
          .actual = {.speed = belt_.speed() / 10, .grade = belt_.grade()},
          .asked = {.speed = belt_.wantedSpeed() / 10, .grade = belt_.wantedGrade()},
          .isRunning = belt_.isRunning()};
}

bool SimulatedLodeOEMTreadmill::press(Button button) {
  if (button == Button::emergency) return false;
  if (button == Button::start) belt_.pressStart();
  if (button == Button::stop) belt_.pressStop();
  return true;
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
  if (belt_.isHeld() && (code == start || code == load)) return answer(refused);
  if (code == start) belt_.start();
  if (code == stop) belt_.stop();
  if (code == load) {
    belt_.setSpeed(frame_[speedPosition]);
    belt_.setGrade(frame_[gradePosition]);
  }
  if (code == request) answer(request);
}

void SimulatedLodeOEMTreadmill::answer(std::uint8_t code) {
  const auto speed = static_cast<std::uint8_t>(std::lround(belt_.speed()));
  const auto grade = static_cast<std::uint8_t>(std::lround(belt_.grade()));
  send(Bytes{0xAC, 0x01, code, 0x0E, 0x0D, 0x01, 0x01, 0x01, 0x00, speed, 0x00, grade, 0x00, 0x00});
}

void SimulatedLodeOEMTreadmill::onTime(Duration duration) {
  belt_.advance(duration);
  patient().walk(belt_.speed() / 10, belt_.grade());
}

}  // namespace tarsil::simulators
