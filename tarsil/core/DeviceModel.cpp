#include "tarsil/core/DeviceModel.hpp"

#include "tarsil/support/numberText.hpp"

namespace tarsil {
namespace {

std::string shortText(float value) {
  std::string text = decimalText(value);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

}  // namespace

bool CarriedRange::carries(float value) const {
  if (value == 0.0F) return carriesZero();
  return bounds_ && value >= bounds_->lowest && value <= bounds_->highest;
}

std::string CarriedRange::text(const std::string& unit) const {
  if (!bounds_) return "nothing";
  std::string range = shortText(lowest()) + " to " + shortText(highest()) + " " + unit;
  if (!carriesZero()) return range;
  if (lowest() <= step()) return "0 to " + shortText(highest()) + " " + unit;
  return "0 and " + range;
}

std::string_view kindName(DeviceKind kind) {
  switch (kind) {
    case DeviceKind::treadmill:
      return "Treadmill";
    case DeviceKind::ergometer:
      return "Ergometer";
    case DeviceKind::bloodPressureMonitor:
      return "BP";
    case DeviceKind::oximeter:
      break;
  }
  return "SpO2";
}

std::string DeviceModel::unseen() const {
  if (!exercise || exercise->loadReport != LoadReport::none) return "";
  const std::string moves =
      kind == DeviceKind::treadmill ? "the belt moves" : "there is a load on the pedals";
  return name + " reports nothing: nobody but the people in the room sees whether " + moves;
}

}  // namespace tarsil
