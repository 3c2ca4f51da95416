#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/tarsil/run/Partners.hpp"

namespace tarsil::cli {

/// Simulated devices, each a process of its own (this program's `simulate`) on a pseudo-terminal. They end
/// with this object.
class PartnerProcesses final : public Partners {
 public:
  PartnerProcesses() = default;
  ~PartnerProcesses() override;
  PartnerProcesses(const PartnerProcesses&) = delete;
  PartnerProcesses& operator=(const PartnerProcesses&) = delete;

  /// Throws CommandFailure when the process does not start.
  void add(const std::string& model, const std::string& portName) override;
  void demand(double effort) override;

 private:
  struct Partner {
    pid_t process;
    int orders;
    int answers;
  };

  std::vector<Partner> partners_;
};

}  // namespace tarsil::cli
