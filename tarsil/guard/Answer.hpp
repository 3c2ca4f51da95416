#pragma once

#include <string>
#include <utility>

namespace tarsil {

/// What the guarded station says to a command: accepted, or refused with a code for programs and a reason for
/// people. A refused command has sent nothing and changed nothing.
class [[nodiscard]] Answer {
 public:
  enum class Code {
    accepted,
    /// The plan names a model that the catalogue does not have, or one of another kind.
    noSuchModel,
    /// The plan names a port that is not there.
    noSuchPort,
    /// The plan gives one port to two devices.
    portTwice,
    /// The plan's numbers contradict themselves: a limit or heartbeat that is not above zero, or no number.
    badPlan,
    /// The plan's journal cannot be made.
    noJournal,
    /// No frame of this model carries any load.
    notDrivable,
    /// Not a number, or below zero.
    badValue,
    /// The model's frames cannot carry this load.
    notCarried,
    /// Above the limits of the plan.
    aboveLimit,
    /// A port of the station is not open; or the process can open nothing more.
    notOpen,
    /// The exercise device has not answered lately.
    notHeard,
    /// The exercise device moves, or has not been seen to stand.
    notSeenToStand,
    /// An alarm is active.
    alarmActive,
    /// A protective stop is latched: `reset()` first.
    latched,
    /// There is no protective stop to reset.
    notLatched,
    /// The cause of the protective stop is still there.
    causeRemains,
    /// The exercise does not run, or stops just now.
    notRunning,
    /// The exercise runs, or stops just now.
    alreadyRunning,
    /// Nothing of this station measures blood pressure and hands the result over.
    noMonitor,
    /// A blood-pressure measurement is under way.
    alreadyMeasuring,
    /// Nobody would stop the belt if this process died: the watcher process did not start.
    noWatcher,
    /// The station is closed.
    closed,
  };

  static Answer accepted() { return Answer(Code::accepted, {}); }
  static Answer refused(Code code, std::string reason) { return Answer(code, std::move(reason)); }

  bool isAccepted() const { return code_ == Code::accepted; }
  Code code() const { return code_; }
  /// A sentence without its full stop; empty when accepted.
  const std::string& reason() const { return reason_; }

 private:
  Answer(Code code, std::string reason) : code_(code), reason_(std::move(reason)) {}

  Code code_;
  std::string reason_;
};

/// "notCarried" and so on.
const char* name(Answer::Code code);

}  // namespace tarsil
