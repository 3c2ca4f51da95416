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
    : SimulatedDevice("TM-400V2", 4800, patient),
      belt_({.least = 0, .most = 300, .perSecond = 10}, {.least = -30, .most = 30, .perSecond = 1}) {}

std::string SimulatedTM400::status() const {
  std::array<char, 100> text{};
  std::snprintf(text.data(), text.size(), "belt %s, %.1f km/h, grade %.0f %%, unreadable bytes %d",
                belt_.isRunning() ? "running" : "stopped", belt_.speed() / 10, belt_.grade(),
                unreadableBytes_);
  return text.data();
}

Truth SimulatedTM400::truth() const {
  return {.exercise = Truth::Exercise::treadmill,
          .actual = {.speed = belt_.speed() / 10, .grade = belt_.grade()},
          .asked = {.speed = belt_.wantedSpeed() / 10, .grade = belt_.wantedGrade()},
          .isRunning = belt_.isRunning()};
}

bool SimulatedTM400::press(Button button) {
  if (button == Button::emergency) return false;
  if (button == Button::start) belt_.pressStart();
  if (button == Button::stop) belt_.pressStop();
  return true;
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
  if (isSwitch && frame_[4] == 0x10) belt_.start();
  if (isSwitch && frame_[4] != 0x10) belt_.stop();
  if (frame_[1] == 0xE3 && frame_[3] == 0x61) belt_.setSpeed(frame_[4]);
  if (frame_[1] == 0xE4) belt_.setGrade(frame_[5]);
}

void SimulatedTM400::onTime(Duration duration) {
  sinceLastByte_ += duration;
  if (sinceLastByte_ > longestPause && !frame_.empty()) {
    unreadableBytes_ += static_cast<int>(frame_.size());
    frame_.clear();
  }
  belt_.advance(duration);
  patient().walk(belt_.speed() / 10, belt_.grade());
}

}  // namespace tarsil::simulators
