#pragma once

#include <optional>

namespace tarsil {

/// What a load demands of a patient in a steady state.
struct MetabolicCost {
  /// Metabolic equivalents: multiples of an oxygen uptake of 3.5 ml a minute and kilogram at rest.
  double equivalents = 1;
  /// The equation was published for such a load. Outside it the figure is a continuation, no measured
  /// relation.
  bool isWithinValidity = false;
};

/// The cost of walking or running on a belt, after the equations of the American College of Sports Medicine.
/// `speed` in km/h, `grade` in percent. Walking: 0.1 v + 1.8 v g + 3.5 ml a minute and kilogram, valid from
/// 50 to 100 m a minute (3.0 to 6.0 km/h); running: 0.2 v + 0.9 v g + 3.5, valid above 134 m a minute (8.04
/// km/h), with v in m a minute and g as a fraction. Between the two people do either, and the walking
/// equation is continued. A belt that stands costs 1. None for what is not finite or below zero. Any thread.
std::optional<MetabolicCost> costOnTreadmill(double speed, double grade);

/// The cost of cycling after the equation of the same college: 10.8 P / m + 7 ml a minute and kilogram, valid
/// from 50 to 200 W, with the power P in watts and the patient's mass m in kilograms. No power costs as much
/// as sitting, 1. None for what is not finite, a power below zero and a mass of zero or less. Any thread.
std::optional<MetabolicCost> costOnErgometer(double power, double mass);

}  // namespace tarsil
