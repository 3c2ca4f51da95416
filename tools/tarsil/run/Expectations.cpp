#include "tools/tarsil/run/Expectations.hpp"

#include <fmt/format.h>

#include <cmath>

namespace tarsil::cli {
namespace {

// A belt is read in tenths of km/h or of a mile per hour, a brake in watts; whole percents reach some grades
// only.
constexpr float speedTolerance = 0.25F;
constexpr float powerTolerance = 3;
constexpr float gradeTolerance = 1;

}  // namespace

void Expectations::hear(const Entry& entry) {
  if (entry.kind == Entry::Kind::answered) heard_.insert(entry.what);
  if (entry.kind == Entry::Kind::failure)
    failures_.push_back(fmt::format("{}: {}", nameOf(entry.role), entry.text));
}

void Expectations::stageEnds(const std::string& name, const Load& target) {
  if (!station_.traits().reportsFollow) return;
  const auto& load = station_.load();
  const bool isTreadmill = station_.traits().kind == StressDeviceType::Treadmill;
  const float tolerance = isTreadmill ? speedTolerance : powerTolerance;
  if (load && std::abs(load->value.load - target.load) <= tolerance &&
      std::abs(load->value.grade - target.grade) <= gradeTolerance) {
    return;
  }
  const auto text = [&](const Load& value) {
    return isTreadmill ? fmt::format("{:.2f} km/h and {:.1f} %", value.load, value.grade)
                       : fmt::format("{:.0f} W", value.load);
  };
  failures_.push_back(fmt::format("{}: the device was asked for {} and reported {}", name, text(target),
                                  load ? text(load->value) : "nothing"));
}

std::vector<std::string> Expectations::disappointments() const {
  std::vector<std::string> all = failures_;
  const bool isTreadmill = station_.traits().kind == StressDeviceType::Treadmill;
  if (station_.traits().reportsLoad && !heard_.contains(isTreadmill ? "load" : "power")) {
    all.emplace_back("exercise: no load was reported");
  }
  if (pressureExpected_ && !heard_.contains("pressure"))
    all.emplace_back("pressure: no blood pressure was reported");
  if (station_.hasOximeter() && !heard_.contains("saturation")) {
    all.emplace_back("oximeter: no oxygen saturation was reported");
  }
  return all;
}

}  // namespace tarsil::cli
