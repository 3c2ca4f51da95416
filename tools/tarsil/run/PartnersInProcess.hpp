#pragma once

#include "simulators/lines/SimulatedStation.hpp"
#include "tools/tarsil/run/Partners.hpp"

namespace tarsil::cli {

/// Simulated devices in this process, each behind a USB adapter of the usual kind, in the
/// library's time: virtual, as a rule.
class PartnersInProcess final : public Partners {
 public:
  void add(const std::string& model, const std::string& portName) override {
    station_.add(model, portName, simulators::CableBehaviour::adapter());
  }
  void demand(double /*effort*/) override {}  // they share the patient

 private:
  simulators::SimulatedStation station_;
};

}  // namespace tarsil::cli
