#include "tarsil/guard/detail/LoadRules.hpp"

#include <algorithm>
#include <cmath>

#include "tarsil/support/numberText.hpp"

namespace tarsil::detail {
namespace {

float stepped(float from, float to, const Limit& limit, const CarriedRange& carried) {
  if (!carried.carriesAnything()) return 0;
  const float most = std::min(limit.step, limit.perSecond);
  const float next = from + std::clamp(to - from, -most, most);
  if (carried.carries(next)) return next;
  // What is below its lowest value a machine can only jump over, whatever the step.
  return to < carried.lowest() ? to : carried.lowest();
}

}  // namespace

LoadRules::LoadRules(const DeviceModel& model, const Limits& limits)
    : model_(model.name), facts_(*model.exercise), limits_(limits) {}

Answer LoadRules::check(const Load& load) const {
  if (!facts_.canBeDriven()) {
    return Answer::refused(Answer::Code::notDrivable,
                           model_ + " cannot be driven: none of its frames carries a load");
  }
  for (const Answer& answer : {checkValue("speed", "km/h", load.speed, facts_.speed, limits_.speed),
                               checkValue("grade", "%", load.grade, facts_.grade, limits_.grade),
                               checkValue("power", "W", load.power, facts_.power, limits_.power)}) {
    if (!answer.isAccepted()) return answer;
  }
  return Answer::accepted();
}

Answer LoadRules::checkValue(const char* quantity, const char* unit, float value, const CarriedRange& carried,
                             const Limit& limit) const {
  const std::string what = std::string(quantity) + " " + decimalText(value) + " " + unit;
  if (!std::isfinite(value) || value < 0) {
    return Answer::refused(Answer::Code::badValue, what + " is no load");
  }
  // A quantity that the device does not have stays 0, which sends nothing.
  if (!carried.carriesAnything() && value == 0) return Answer::accepted();
  if (!carried.carries(value)) {
    return Answer::refused(Answer::Code::notCarried, what + ": " + model_ + " carries " + carried.text(unit));
  }
  if (value > limit.highest) {
    return Answer::refused(Answer::Code::aboveLimit,
                           what + " is above the limit of " + decimalText(limit.highest) + " " + unit);
  }
  return Answer::accepted();
}

Load LoadRules::step(const Load& from, const Load& to) const {
  return {.speed = stepped(from.speed, to.speed, limits_.speed, facts_.speed),
          .grade = stepped(from.grade, to.grade, limits_.grade, facts_.grade),
          .power = stepped(from.power, to.power, limits_.power, facts_.power)};
}

bool LoadRules::raises(const Load& load, const Load& than) {
  return load.speed > than.speed || load.grade > than.grade || load.power > than.power;
}

Load LoadRules::onlyLower(const Load& from, const Load& to) {
  return {.speed = std::min(from.speed, to.speed),
          .grade = std::min(from.grade, to.grade),
          .power = std::min(from.power, to.power)};
}

}  // namespace tarsil::detail
