#include "simulators/devices/SimulatedLodeTreadmill.hpp"

#include <chrono>
#include <cmath>
#include <cstdio>

#include "simulators/devices/acceptedReply.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t STX = 0x02;
constexpr std::uint8_t ETX = 0x03;
constexpr std::uint8_t accepted = 0x80;
constexpr std::uint8_t noStartInEmergency = 0x02;
constexpr std::uint8_t noTargetInEmergency = 0x08;
/// How long the machine waits for a command when it is set to stop without.
constexpr Duration longestSilence = 500ms;
constexpr std::size_t headerSize = 3;   // STX, command, data length
constexpr std::size_t trailerSize = 3;  // CRC low, CRC high, ETX

enum Command : std::uint8_t {
  start = 0x01,
  stop = 0x03,
  setSpeed = 0x05,
  setElevation = 0x07,
  realSpeed = 0x08,
  realElevation = 0x0A
};

bool crcIsRight(ByteView frame) {
  Crc16Register crc;
  for (const std::uint8_t byte : frame.first(frame.size() - trailerSize)) crc.add(byte);
  return frame[frame.size() - 3] == (crc.value() & 0xFF) && frame[frame.size() - 2] == (crc.value() >> 8);
}

std::uint8_t rounded(double tenths) {
  return static_cast<std::uint8_t>(std::lround(tenths));
}

}  // namespace

SimulatedLodeTreadmill::SimulatedLodeTreadmill(Patient& patient)
    : SimulatedDevice("LodeTreadmill", 38400, patient),
      belt_({.least = 0, .most = 300, .perSecond = 10}, {.least = -300, .most = 300, .perSecond = 10}) {}

std::string SimulatedLodeTreadmill::status() const {
  char text[80];
  std::snprintf(text, sizeof text, "belt %s, %.1f km/h, grade %.1f %%",
                belt_.isRunning() ? "running" : "stopped", belt_.speed() / 10, belt_.grade() / 10);
  return text;
}

Truth SimulatedLodeTreadmill::truth() const {
  return {.exercise = Truth::Exercise::treadmill,
          .actual = {.speed = belt_.speed() / 10, .grade = belt_.grade() / 10},
          .asked = {.speed = belt_.wantedSpeed() / 10, .grade = belt_.wantedGrade() / 10},
          .isRunning = belt_.isRunning()};
}

bool SimulatedLodeTreadmill::press(Button button) {
  if (button == Button::start) belt_.pressStart();
  if (button == Button::stop) belt_.pressStop();
  if (button == Button::emergency) belt_.pressEmergency();
  return true;
}

bool SimulatedLodeTreadmill::release(Button button) {
  if (button != Button::emergency) return false;
  belt_.releaseEmergency();
  return true;
}

bool SimulatedLodeTreadmill::stopWhenUnheard(bool stops) {
  stopsWhenUnheard_ = stops;
  sinceLastCommand_ = {};
  return true;
}

void SimulatedLodeTreadmill::onByte(std::uint8_t byte) {
  if (frame_.empty() && byte != STX) return;
  frame_.push_back(byte);
  if (!frameIsComplete()) return;
  onFrame();
  frame_.clear();
}

bool SimulatedLodeTreadmill::frameIsComplete() const {
  return frame_.size() >= headerSize && frame_.size() == headerSize + frame_[2] + trailerSize;
}

void SimulatedLodeTreadmill::onFrame() {
  // A machine of this kind does not answer what it cannot read.
  if (frame_.back() != ETX || !crcIsRight(frame_)) return;

  sinceLastCommand_ = {};
  const std::uint8_t command = frame_[1];
  if (refusal()) {
    answerWith(command, static_cast<std::uint8_t>(std::stoi(*refusal(), nullptr, 16)), {});
    return;
  }
  // Values are two bytes, high byte first; the driver only ever sets the low one.
  if (obey(command, frame_[2] >= 2 ? frame_[4] : std::uint8_t{0})) return answer(command);
  answerWith(command, command == start ? noStartInEmergency : noTargetInEmergency, {});
}

bool SimulatedLodeTreadmill::obey(std::uint8_t command, std::uint8_t value) {
  if (command == start) return belt_.start();
  if (command == setSpeed) return belt_.setSpeed(value);
  if (command == setElevation) return belt_.setGrade(value);
  if (command == stop) belt_.stop();
  return true;
}

void SimulatedLodeTreadmill::answer(std::uint8_t command) {
  if (command == realSpeed) return answerWith(command, accepted, Bytes{0, rounded(belt_.speed())});
  if (command == realElevation) return answerWith(command, accepted, Bytes{0, rounded(belt_.grade())});
  answerWith(command, accepted, {});
}

void SimulatedLodeTreadmill::answerWith(std::uint8_t command, std::uint8_t status, ByteView data) {
  send(acceptedReply(command, status, data));
}

void SimulatedLodeTreadmill::onTime(Duration duration) {
  sinceLastCommand_ += duration;
  if (stopsWhenUnheard_ && sinceLastCommand_ > longestSilence) belt_.stop();
  belt_.advance(duration);
  patient().walk(belt_.speed() / 10, belt_.grade() / 10);
}

}  // namespace tarsil::simulators
