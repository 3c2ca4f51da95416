#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/guard/GuardedStation.hpp"

namespace tarsil {

/// What a station may never do, whatever its cable, its machine and its host do, as far as its own events
/// tell it; what only the machine itself knows is held against it elsewhere. Main thread.
class StationRules {
 public:
  using Violate = std::function<void(const std::string& what)>;

  StationRules(const DeviceModel& model, const Limits& limits, Violate violate);

  void hear(const Event& event);
  /// To be asked at any time.
  void check(const GuardedStation& station);
  /// Another station begins.
  void beginAnew();

  /// How often a rule was held against something.
  std::uint64_t checks() const { return checks_; }

 private:
  void hearAsked(const Asked& asked);

  const bool reportsLoad_;
  const Limits limits_;
  const Violate violate_;
  std::uint64_t checks_ = 0;
  Load told_;
  int pollsSinceReport_ = 0;
  bool isLatched_ = false;
  std::set<AlarmKind> alarms_;
};

}  // namespace tarsil
