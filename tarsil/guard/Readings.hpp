#pragma once

#include <cstdint>
#include <string>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// A value that a device measured, with its age. What could not have been measured (a saturation of 0 % or
/// -1, a pressure with a zero in it) never becomes one.
template <class Value>
struct Reading {
  enum class State : std::uint8_t {
    /// This station has no device that reports it.
    notReported,
    /// It was not heard yet.
    never,
    fresh,
    /// Its device has been silent for longer than its rhythm; `value` is the last one heard.
    stale,
  };

  State state = State::notReported;
  Value value{};
  /// When the device last said it, also where it said the same as before.
  Clock::Instant at{};
  /// Model that reported it.
  std::string source;

  bool isFresh() const { return state == State::fresh; }
};

/// mmHg
struct Pressure {
  float systolic = 0;
  float diastolic = 0;

  bool operator==(const Pressure&) const = default;
};

/// What the devices of a station measure, at one moment.
struct Readings {
  /// km/h
  Reading<float> speed;
  /// percent
  Reading<float> grade;
  /// watts
  Reading<float> power;
  /// revolutions per minute
  Reading<float> pedalRate;
  Reading<Pressure> pressure;
  /// percent
  Reading<float> saturation;
};

}  // namespace tarsil
