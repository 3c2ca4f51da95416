#include "simulators/devices/SimulatedTrackMaster.hpp"

#include <array>
#include <cmath>
#include <cstdio>

#include "simulators/physics/Patient.hpp"

namespace tarsil::simulators {
namespace {

constexpr double kilometresPerMile = 1.609344;

enum Command : std::uint8_t {
  start = 0xA1,
  stop = 0xA2,
  setSpeed = 0xA3,
  setGrade = 0xA4,
  requestSpeed = 0xC1,
  requestGrade = 0xC2,
};

constexpr std::uint8_t beyondLimit = 0xBE;
constexpr std::uint8_t disabled = 0xBF;

bool isCommand(std::uint8_t byte) {
  return (byte >= start && byte <= setGrade) || byte == requestSpeed || byte == requestGrade;
}

std::size_t sizeOf(std::uint8_t command) {
  if (command == setSpeed) return 4;
  if (command == setGrade) return 5;
  return 1;
}

/// The acknowledgement B1 to B4 of command A1 to A4.
std::uint8_t acknowledgement(std::uint8_t command) {
  return static_cast<std::uint8_t>(command + 0x10);
}

}  // namespace

SimulatedTrackMaster::SimulatedTrackMaster(Patient& patient)
    : SimulatedDevice("TrackMaster", 4800, patient),
      belt_({.least = 0, .most = 186, .perSecond = 6}, {.least = -300, .most = 300, .perSecond = 10}) {}

std::string SimulatedTrackMaster::status() const {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "belt %s, %.1f km/h, grade %.1f %%",
                belt_.isRunning() ? "running" : "stopped", belt_.speed() / 10 * kilometresPerMile,
                belt_.grade() / 10);
  return text.data();
}

Truth SimulatedTrackMaster::truth() const {
  return {.exercise = Truth::Exercise::treadmill,
          .actual = {.speed = belt_.speed() / 10 * kilometresPerMile, .grade = belt_.grade() / 10},
          .asked = {.speed = belt_.wantedSpeed() / 10 * kilometresPerMile, .grade = belt_.wantedGrade() / 10},
          .isRunning = belt_.isRunning()};
}

bool SimulatedTrackMaster::press(Button button) {
  if (button == Button::emergency) return false;
  if (button == Button::start) belt_.pressStart();
  if (button == Button::stop) belt_.pressStop();
  return true;
}

void SimulatedTrackMaster::onByte(std::uint8_t byte) {
  if (command_.empty() && !isCommand(byte)) return;
  command_.push_back(byte);
  if (command_.size() < sizeOf(command_.front())) return;
  onCommand();
  command_.clear();
}

void SimulatedTrackMaster::onCommand() {
  if (refusal()) return send(Bytes{static_cast<std::uint8_t>(*refusal() == "BE" ? beyondLimit : disabled)});

  int value = 0;
  for (std::size_t i = 1; i < command_.size(); ++i) {
    const int digit = command_[i] - '0';
    if (digit < 0 || digit > 9) return send(Bytes{beyondLimit});
    value = value * 10 + digit;
  }
  const std::uint8_t command = command_.front();
  if (command == requestSpeed) return report(0xD1, belt_.speed());
  if (command == requestGrade) return report(0xD2, belt_.grade());
  send(Bytes{obey(command, value) ? acknowledgement(command) : disabled});
}

bool SimulatedTrackMaster::obey(std::uint8_t command, int value) {
  if (command == start) return belt_.start();
  if (command == setSpeed) return belt_.setSpeed(value);
  if (command == setGrade) return belt_.setGrade(value);
  belt_.stop();
  return true;
}

void SimulatedTrackMaster::report(std::uint8_t code, double tenths) {
  std::array<char, 8> digits{};
  std::snprintf(digits.data(), digits.size(), "%04ld", std::lround(tenths));
  Bytes reply{code};
  for (std::size_t i = 0; i < 4; ++i) reply.push_back(static_cast<std::uint8_t>(digits.at(i)));
  send(reply);
}

void SimulatedTrackMaster::onTime(Duration duration) {
  belt_.advance(duration);
  patient().walk(belt_.speed() / 10 * kilometresPerMile, belt_.grade() / 10);
}

}  // namespace tarsil::simulators
