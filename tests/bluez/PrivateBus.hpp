#pragma once

#include <string>

#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {

/// A message bus of the test's own, which is the system bus of whoever opens one from now on.
class PrivateBus {
 public:
  /// `configuration`: "open", where everybody may do everything, or "closed", where nobody may call BlueZ.
  explicit PrivateBus(const std::string& configuration = "open");

  /// All its connections are lost.
  void kill() const;

 private:
  ChildProcess daemon_;
};

}  // namespace tarsil
