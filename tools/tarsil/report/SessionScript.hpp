#pragma once

#include <string>
#include <vector>

#include "tarsil/core/StressDeviceType.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/Station.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// Turns what happens in a session into the lines of a script that `tarsil replay` runs again. Every text
/// ends with a line end.
class SessionScript {
 public:
  SessionScript(Station::Plan plan, StressDeviceType kind);

  /// What happens before the first entry: a station with its ports, devices chosen, host bound.
  std::string beginning() const;
  /// The operation that an entry stands for, after the time that has passed; empty when it stands for none.
  std::string lines(const Entry& entry);
  /// Received bytes. Sent ones are what the replay gives, so they are left out.
  std::string lines(const Chunk& chunk, Duration at, Role role);
  /// The time from the last operation to the session's end.
  std::string ending(Duration at);

 private:
  std::string advanceTo(Duration at);
  std::string removal(Role role);

  const Station::Plan plan_;
  const StressDeviceType kind_;
  std::vector<std::string> ports_;
  Duration now_{};
};

}  // namespace tarsil::cli
