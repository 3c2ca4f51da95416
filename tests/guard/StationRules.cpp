#include "tests/guard/StationRules.hpp"

#include <utility>

namespace tarsil {

StationRules::StationRules(const DeviceModel& model, const Limits& limits, Violate violate)
    : reportsLoad_(model.exercise->loadReport != LoadReport::none),
      limits_(limits),
      violate_(std::move(violate)) {}

void StationRules::beginAnew() {
  told_ = {};
  pollsSinceReport_ = 0;
  isLatched_ = false;
  alarms_.clear();
}

void StationRules::hear(const Event& event) {
  if (const auto* asked = std::get_if<Asked>(&event.what)) return hearAsked(*asked);
  if (std::holds_alternative<LoadMeasured>(event.what)) pollsSinceReport_ = 0;
  if (std::holds_alternative<ProtectiveStop>(event.what)) isLatched_ = true;
  if (std::holds_alternative<WasReset>(event.what)) isLatched_ = false;
  if (const auto* alarm = std::get_if<AlarmRaised>(&event.what)) alarms_.insert(alarm->kind);
  if (const auto* alarm = std::get_if<AlarmCleared>(&event.what)) alarms_.erase(alarm->kind);
  if (!std::holds_alternative<Started>(event.what)) return;
  ++checks_;
  if (isLatched_) violate_("the exercise began without a reset");
}

void StationRules::hearAsked(const Asked& asked) {
  if (asked.command == Command::requestLoad) ++pollsSinceReport_;
  if (asked.command == Command::start || asked.command == Command::stop) told_ = {};
  if (asked.command != Command::setLoad) return;
  ++checks_;
  if (asked.load.speed > limits_.speed.highest || asked.load.grade > limits_.grade.highest ||
      asked.load.power > limits_.power.highest) {
    violate_("the device is asked for more than the limits allow");
  }
  const bool raises =
      asked.load.speed > told_.speed || asked.load.grade > told_.grade || asked.load.power > told_.power;
  if (raises && reportsLoad_ && pollsSinceReport_ > 3)
    violate_("the load is raised while the device is not heard");
  if (raises && isLatched_) violate_("the load is raised after a protective stop");
  told_ = asked.load;
}

void StationRules::check(const GuardedStation& station) {
  ++checks_;
  for (const AlarmKind kind : station.alarms()) {
    if (!alarms_.contains(kind)) violate_(std::string("an alarm that nobody was told of: ") + name(kind));
  }
}

}  // namespace tarsil
