// The words for programs: what a journal and a test compare.

#include "tarsil/guard/Event.hpp"
#include "tarsil/guard/GuardedStation.hpp"

namespace tarsil {

const char* name(Answer::Code code) {
  using enum Answer::Code;
  switch (code) {
    case accepted:
      return "accepted";
    case noSuchModel:
      return "noSuchModel";
    case noSuchPort:
      return "noSuchPort";
    case portTwice:
      return "portTwice";
    case badPlan:
      return "badPlan";
    case noJournal:
      return "noJournal";
    case notDrivable:
      return "notDrivable";
    case badValue:
      return "badValue";
    case notCarried:
      return "notCarried";
    case aboveLimit:
      return "aboveLimit";
    case notOpen:
      return "notOpen";
    case notHeard:
      return "notHeard";
    case notSeenToStand:
      return "notSeenToStand";
    case alarmActive:
      return "alarmActive";
    case latched:
      return "latched";
    case notLatched:
      return "notLatched";
    case causeRemains:
      return "causeRemains";
    case notRunning:
      return "notRunning";
    case alreadyRunning:
      return "alreadyRunning";
    case noMonitor:
      return "noMonitor";
    case alreadyMeasuring:
      return "alreadyMeasuring";
    case noWatcher:
      return "noWatcher";
    case closed:
      return "closed";
  }
  return "";
}

const char* name(AlarmKind kind) {
  using enum AlarmKind;
  switch (kind) {
    case notSeenToStop:
      return "notSeenToStop";
    case fasterThanAsked:
      return "fasterThanAsked";
    case stoppedAtMachine:
      return "stoppedAtMachine";
    case lineLost:
      return "lineLost";
    case hostFrozen:
      return "hostFrozen";
    case watcherLost:
      return "watcherLost";
    case exerciseSilent:
      return "exerciseSilent";
    case disagreement:
      return "disagreement";
    case deviceRefuses:
      return "deviceRefuses";
    case portNotOpened:
      return "portNotOpened";
    case journalFailed:
      return "journalFailed";
    case viewLost:
      return "viewLost";
    case monitorLost:
      return "monitorLost";
    case oximeterLost:
      return "oximeterLost";
    case pressureMissing:
      return "pressureMissing";
    case unseenStop:
      return "unseenStop";
  }
  return "";
}

Priority priorityOf(AlarmKind kind) {
  using enum AlarmKind;
  switch (kind) {
    case notSeenToStop:
    case fasterThanAsked:
    case stoppedAtMachine:
    case lineLost:
    case hostFrozen:
    case watcherLost:
      return Priority::high;
    case exerciseSilent:
    case disagreement:
    case deviceRefuses:
    case portNotOpened:
    case journalFailed:
    case viewLost:
      return Priority::medium;
    case monitorLost:
    case oximeterLost:
    case pressureMissing:
    case unseenStop:
      return Priority::low;
  }
  return Priority::high;
}

const char* name(Priority priority) {
  switch (priority) {
    case Priority::low:
      return "low";
    case Priority::medium:
      return "medium";
    case Priority::high:
      return "high";
  }
  return "";
}

const char* name(Source source) {
  switch (source) {
    case Source::station:
      return "station";
    case Source::exercise:
      return "exercise";
    case Source::monitor:
      return "monitor";
    case Source::oximeter:
      return "oximeter";
  }
  return "";
}

const char* name(Command command) {
  using enum Command;
  switch (command) {
    case open:
      return "open";
    case close:
      return "close";
    case start:
      return "start";
    case setLoad:
      return "setLoad";
    case stop:
      return "stop";
    case requestLoad:
      return "requestLoad";
    case reset:
      return "reset";
    case initialiseMonitor:
      return "initialiseMonitor";
    case startPressure:
      return "startPressure";
    case requestPressure:
      return "requestPressure";
    case abortPressure:
      return "abortPressure";
  }
  return "";
}

const char* name(GuardedStation::State state) {
  using enum GuardedStation::State;
  switch (state) {
    case opening:
      return "opening";
    case ready:
      return "ready";
    case running:
      return "running";
    case stopping:
      return "stopping";
    case closing:
      return "closing";
    case closed:
      return "closed";
  }
  return "";
}

}  // namespace tarsil
