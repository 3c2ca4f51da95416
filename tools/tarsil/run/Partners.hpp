#pragma once

#include <string>

namespace tarsil::cli {

/// The simulated devices of a session.
class Partners {
 public:
  virtual ~Partners() = default;

  /// Adds a device as a port with this name.
  virtual void add(const std::string& model, const std::string& portName) = 0;
  /// The load on the exercise device has changed: what it demands of the patient, in metabolic equivalents.
  virtual void demand(double effort) = 0;
};

}  // namespace tarsil::cli
