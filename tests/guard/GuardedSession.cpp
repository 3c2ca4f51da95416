#include "tests/guard/GuardedSession.hpp"

#include <algorithm>
#include <utility>

#include "tarsil/platform/VirtualDeviceRegistry.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// How often the host comes round.
constexpr Duration round = 100ms;

}  // namespace

VirtualTime& GuardedSession::time() {
  static VirtualTime& time = *new VirtualTime;
  // The machine's own ports are none of a simulated station, and take their time to look for.
  static const auto system = SerialDeviceRegistry::exchangeShared(VirtualDeviceRegistry::shared());
  return time;
}

GuardedSession::GuardedSession(Setting setting) : setting_(std::move(setting)) {
  time();
  simulated_ = std::make_unique<simulators::SimulatedStation>();
  exercise_ = &simulated_->add(setting_.exercise, "exercise", setting_.cable);
  if (setting_.monitor) simulated_->add("Tango", "bp", setting_.cable);
  if (setting_.oximeter) simulated_->add("MEDXINGPort", "spo2", setting_.cable);
  openAgain();
}

void GuardedSession::openAgain() {
  time().settle();
  station_.reset();
  run(200ms);
  auto opening = GuardedStation::open({.exercise = {setting_.exercise, line().path()},
                                       .monitor = setting_.monitor ? line("bp").path() : "",
                                       .oximeter = setting_.oximeter ? line("spo2").path() : "",
                                       .limits = setting_.limits,
                                       .auxiliariesAreVital = setting_.auxiliariesAreVital,
                                       .watcher = std::nullopt,
                                       .journal = setting_.journal});
  if (!opening) throw std::logic_error(opening.answer().reason());
  station_ = opening.station();
  station_->onEvent([this](const Event& event) { events_.push_back(event); });
}

GuardedSession::~GuardedSession() {
  station_.reset();
  time().advance(200ms);
  simulated_.reset();
  time().settle();
}

void GuardedSession::run(Duration duration) {
  for (Duration passed{}; passed < duration; passed += round) {
    if (station_ && !hostIsFrozen_) station_->alive();
    time().advance(std::min(round, duration - passed));
  }
}

void GuardedSession::begin(const Load& load) {
  run(6s);
  if (const Answer answer = station_->start(); !answer.isAccepted()) throw std::logic_error(answer.reason());
  if (load == Load{}) return;
  if (const Answer answer = station_->setLoad(load); !answer.isAccepted())
    throw std::logic_error(answer.reason());
}

Load GuardedSession::truth() const {
  const auto actual = exercise_->truth().actual;
  return {.speed = static_cast<float>(actual.speed),
          .grade = static_cast<float>(actual.grade),
          .power = static_cast<float>(actual.power)};
}

bool GuardedSession::hasAlarm(AlarmKind kind) const {
  const auto alarms = station_->alarms();
  return std::find(alarms.begin(), alarms.end(), kind) != alarms.end();
}

Bytes GuardedSession::sent() const {
  Bytes all;
  for (const Event& event : events_) {
    const auto* chunk = std::get_if<Sent>(&event.what);
    if (event.source == Source::exercise && chunk)
      all.insert(all.end(), chunk->bytes.begin(), chunk->bytes.end());
  }
  return all;
}

}  // namespace tarsil
