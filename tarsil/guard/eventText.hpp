#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarsil/core/StressDeviceType.hpp"
#include "tarsil/guard/Event.hpp"

namespace tarsil {

/// What sort of thing an event is, for those who sort, colour or leave out.
enum class EventKind : std::uint8_t {
  /// A device was asked for something.
  asked,
  /// A device reported something.
  answered,
  /// The station or its test moved on, or something is worth a look.
  notice,
  /// Something went wrong.
  failure,
  /// Bytes on a line.
  traffic,
};

/// The same event as people and tables have it.
struct EventText {
  EventKind kind = EventKind::notice;
  /// For tables: what was asked for in the facade's own names ("setLoad", "stopStressDevice"), or what it is
  /// about ("load", "alarm").
  std::string word;
  /// In the interface's units: km/h and percent, watts, revolutions per minute, mmHg, percent.
  std::vector<float> values = {};
  /// A sentence without its full stop, or a value with its unit.
  std::string text;
};

/// Every event's words are made here and nowhere else. `kind` says which part of a load there is to tell. Any
/// thread.
EventText textOf(const Event& event, StressDeviceType kind);

/// "2.70 km/h, 10.0 %" or "50 W".
std::string textOf(const Load& load, StressDeviceType kind);

/// "not seen to stop": the alarm in a few words for a screen.
const char* shortText(AlarmKind kind);

/// Who an event is about, for people: "session", "exercise", "pressure", "oximeter".
const char* roleOf(Source source);

/// "1:05", and "61:05" beyond an hour: minutes and whole seconds that have passed.
std::string clockText(Duration duration);

}  // namespace tarsil
