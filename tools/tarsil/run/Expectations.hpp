#pragma once

#include <set>
#include <string>
#include <vector>

#include "tools/tarsil/run/Journal.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/run/Station.hpp"

namespace tarsil::cli {

/// What the devices of a session owe their host, and whether it came.
class Expectations {
 public:
  explicit Expectations(const Station& station) : station_(station) {}

  /// Takes note of an answer or a failure.
  void hear(const Entry& entry);
  /// A stage ends that was not cut short: a device that follows must have reported its load.
  void stageEnds(const std::string& name, const Load& target);
  /// A measurement was started and had its time.
  void expectPressure() { pressureExpected_ = true; }

  /// One line for each thing that did not come, or came and should not have; empty when all is well.
  std::vector<std::string> disappointments() const;

 private:
  const Station& station_;
  bool pressureExpected_ = false;
  std::set<std::string> heard_;
  std::vector<std::string> failures_;
};

}  // namespace tarsil::cli
