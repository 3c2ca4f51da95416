#include "tarsil/guard/GuardedStation.hpp"

#include <cmath>
#include <utility>

#include "tarsil/guard/detail/GuardedStationImplementation.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Code = Answer::Code;

constexpr const char* monitorModel = "Tango";
constexpr const char* oximeterModel = "MEDXINGPort";

bool isLimit(const Limit& limit) {
  for (const float value : {limit.highest, limit.step, limit.perSecond}) {
    if (!std::isfinite(value) || value <= 0) return false;
  }
  return true;
}

Answer checkNumbers(const GuardedStation::Plan& plan) {
  if (!isLimit(plan.limits.speed) || !isLimit(plan.limits.grade) || !isLimit(plan.limits.power)) {
    return Answer::refused(Code::badPlan, "a limit has to be a number above zero");
  }
  if (plan.heartbeat < 100ms || plan.heartbeat > 10s) {
    return Answer::refused(Code::badPlan, "the heartbeat has to be from 100 ms to 10 s");
  }
  if (!plan.oximeter.empty() && plan.makeCentral) {
    return Answer::refused(Code::badPlan, "one oximeter only: on a port, or over Bluetooth");
  }
  return Answer::accepted();
}

struct Port {
  std::shared_ptr<const SerialDevice> device;
  Answer answer = Answer::accepted();
};

/// No port when `name` is empty.
Port portNamed(const std::string& name) {
  if (name.empty()) return {};
  auto device = detail::Line::deviceNamed(name);
  if (!device) return {nullptr, Answer::refused(Code::noSuchPort, "there is no port \"" + name + "\"")};
  return {std::move(device)};
}

}  // namespace

GuardedStation::Opening GuardedStation::open(Plan plan) {
  if (Answer numbers = checkNumbers(plan); !numbers.isAccepted()) return Opening(std::move(numbers));
  const DeviceCatalogue catalogue = standardCatalogue();
  const auto model = catalogue.modelNamed(plan.exercise.model);
  if (!model || !model->exercise) {
    return Opening(
        Answer::refused(Code::noSuchModel, "no exercise device is called \"" + plan.exercise.model + "\""));
  }
  if (plan.exercise.port.empty()) {
    return Opening(Answer::refused(Code::noSuchPort, "the exercise device has no port"));
  }
  Implementation::Found found;
  for (const auto& [name, device] :
       {std::pair{&plan.exercise.port, &found.exercise}, std::pair{&plan.monitor, &found.monitor},
        std::pair{&plan.oximeter, &found.oximeter}}) {
    Port port = portNamed(*name);
    if (!port.answer.isAccepted()) return Opening(std::move(port.answer));
    *device = std::move(port.device);
  }
  const auto isTwice = [](const auto& one, const auto& other) {
    return one && other && one->calloutPath == other->calloutPath;
  };
  if (isTwice(found.exercise, found.monitor) || isTwice(found.exercise, found.oximeter) ||
      isTwice(found.monitor, found.oximeter)) {
    return Opening(Answer::refused(Code::portTwice, "one port cannot serve two devices"));
  }

  auto implementation = std::make_shared<Implementation>(
      std::move(plan), *model, catalogue.modelNamed(monitorModel), catalogue.modelNamed(oximeterModel));
  implementation->begin(found);
  return Opening(std::shared_ptr<GuardedStation>(new GuardedStation(std::move(implementation))));
}

GuardedStation::GuardedStation(std::shared_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

GuardedStation::~GuardedStation() {
  implementation_->abandon();
}

// A listener may drop the station within a command, which then goes on with what it holds.

void GuardedStation::onEvent(std::function<void(const Event&)> listener) {
  implementation_->onEvent(std::move(listener));
}

void GuardedStation::note(Event::What what) {
  const auto held = implementation_;
  held->emit(Source::station, std::move(what));
}

Answer GuardedStation::start() {
  const auto held = implementation_;
  return held->start();
}

Answer GuardedStation::setLoad(const Load& load) {
  const auto held = implementation_;
  return held->setLoad(load);
}

Answer GuardedStation::check(const Load& load) const {
  return implementation_->check(load);
}

Answer GuardedStation::stop() {
  const auto held = implementation_;
  return held->stop();
}

Answer GuardedStation::reset() {
  const auto held = implementation_;
  return held->reset();
}

void GuardedStation::stopNow() {
  implementation_->stopNow();
}

void GuardedStation::alive() {
  implementation_->alive();
}

Answer GuardedStation::measurePressure() {
  const auto held = implementation_;
  return held->measurePressure();
}

Answer GuardedStation::abortPressure() {
  const auto held = implementation_;
  return held->abortPressure();
}

bool GuardedStation::isMeasuringPressure() const {
  return implementation_->isMeasuringPressure();
}

void GuardedStation::close() {
  const auto held = implementation_;
  held->close();
}

bool GuardedStation::isClosed() const {
  return state() == State::closed;
}

GuardedStation::State GuardedStation::state() const {
  return implementation_->state();
}

bool GuardedStation::isLatched() const {
  return implementation_->isLatched();
}

std::vector<AlarmKind> GuardedStation::alarms() const {
  return implementation_->alarms();
}

Answer GuardedStation::readiness() const {
  return implementation_->readiness();
}

Readings GuardedStation::readings() const {
  return implementation_->readings();
}

Load GuardedStation::target() const {
  return implementation_->target();
}

Load GuardedStation::commanded() const {
  return implementation_->commanded();
}

bool GuardedStation::reportsLoad() const {
  return implementation_->reportsLoad();
}

bool GuardedStation::hasMonitor() const {
  return implementation_->hasMonitor();
}

bool GuardedStation::hasOximeter() const {
  return implementation_->hasOximeter();
}

bool GuardedStation::measuresPressure() const {
  return implementation_->measuresPressure();
}

}  // namespace tarsil
