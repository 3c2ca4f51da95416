#pragma once

#include <string>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/guard/Readings.hpp"
#include "tarsil/guard/eventText.hpp"

namespace tarsil::cli {

/// What goes on while no phase runs; empty in a phase.
std::string stateText(ExerciseTest::State state);

/// What comes after this phase: "the end", or the load, and before it where wanted the phase's name.
std::string nextText(const ExerciseTest& test, bool withName);

/// Worth a line of its own; what happens every second would hide the rest.
bool isNews(const EventText& told);

/// A device's words without what would steer a terminal.
std::string harmless(std::string text);

/// It was heard, however long ago.
template <class Value>
bool isKnown(const Reading<Value>& reading) {
  return reading.state == Reading<Value>::State::fresh || reading.state == Reading<Value>::State::stale;
}

}  // namespace tarsil::cli
