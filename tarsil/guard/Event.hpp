#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

#include "tarsil/guard/Answer.hpp"
#include "tarsil/guard/Load.hpp"
#include "tarsil/guard/Readings.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Who an event is about.
enum class Source : std::uint8_t {
  /// The station as a whole, and the test that runs on it.
  station,
  exercise,
  monitor,
  oximeter,
};

/// What a station can be asked to do, by its host or by its own rules.
enum class Command : std::uint8_t {
  open,
  close,
  start,
  setLoad,
  stop,
  requestLoad,
  reset,
  initialiseMonitor,
  startPressure,
  requestPressure,
  abortPressure,
};

/// Why an alarm is on. Each kind is on at most once.
enum class AlarmKind : std::uint8_t {
  /// High. The stop was repeated for 15 s, and the device was not seen to stand.
  notSeenToStop,
  /// High. It reports more speed, or power, than it was asked for.
  fasterThanAsked,
  /// High. It stands, or refuses, although movement is expected: somebody stopped it at the machine.
  stoppedAtMachine,
  /// High. The exercise device's port has vanished.
  lineLost,
  /// High. The host did not say `alive()` in time.
  hostFrozen,
  /// High. The watcher process is gone: nobody would stop the belt if this process died.
  watcherLost,
  /// Medium. The exercise device has not answered for three polls.
  exerciseSilent,
  /// Medium. What it reports is not what it was asked for, for longer than its ramp needs.
  disagreement,
  /// Medium. It refuses commands.
  deviceRefuses,
  /// Medium. A port does not open.
  portNotOpened,
  /// Medium. What happens can no longer be written down.
  journalFailed,
  /// Medium. Nobody sees any longer what happens: the terminal, or whoever read the host's lines, is gone.
  /// The
  /// host's own, noted among the events.
  viewLost,
  /// Low. An auxiliary device has vanished or fallen silent.
  monitorLost,
  oximeterLost,
  /// Low. A blood pressure was asked for and did not come.
  pressureMissing,
  /// Low. This model reports nothing: nobody but the people in the room sees it stop.
  unseenStop,
};

enum class Priority : std::uint8_t { low, medium, high };

Priority priorityOf(AlarmKind kind);
/// "notSeenToStop" and so on.
const char* name(AlarmKind kind);
const char* name(Source source);
const char* name(Command command);
const char* name(Priority priority);

// What can happen. Every struct is a fact with its values; words for people are made of them by `textOf`.

/// A command went to a device.
struct Asked {
  Command command{};
  /// Of `setLoad`.
  Load load{};
};
/// A command of the host was refused.
struct Refused {
  Command command{};
  Answer::Code code{};
  std::string reason;
};
/// Bytes went over the line in one piece.
struct Sent {
  Bytes bytes;
};
struct Received {
  Bytes bytes;
};
/// What the line delivered and no reply contains, since the event before.
struct Discarded {
  std::uint64_t bytes = 0;
  /// Replies with a wrong check.
  std::uint64_t badChecks = 0;
};
/// A treadmill's speed and grade, or a bicycle's power.
struct LoadMeasured {
  Load load;
};
struct PedalRateMeasured {
  /// revolutions per minute
  float rate = 0;
};
struct PressureMeasured {
  Pressure pressure;
  /// As its driver reports it.
  std::int64_t status = 0;
};
struct SaturationMeasured {
  /// percent
  float saturation = 0;
};
/// A device reported what cannot have been measured.
struct Implausible {
  std::string what;
};
/// The device acknowledged a command.
struct Acknowledged {};
/// The monitor has initialised itself.
struct MonitorReady {};
/// The device refused a command, in its driver's words.
struct DeviceRefused {
  std::string code;
  std::string details;
};
struct LineOpened {
  std::string port;
};
struct LineClosed {
  std::string port;
};
/// A port did not open, or a call on it failed.
struct LineFailed {
  enum class Reason : std::uint8_t { missing, noRight, busy, badSetting, vanished, other };

  std::string port;
  Reason reason = Reason::other;
  /// errno
  int error = 0;
  /// A sentence without its full stop, with advice where there is one.
  std::string text;
};
struct LineVanished {
  std::string port;
};
/// The same adapter is back, perhaps under another name.
struct LineReturned {
  std::string port;
};
/// A reply would have stopped the process or blocked it for ever; a new driver took over.
struct DriverReplaced {
  std::string reason;
};
/// The library printed this text for whoever debugs.
struct Printed {
  std::string text;
};
struct AlarmRaised {
  AlarmKind kind{};
  std::string text;
};
struct AlarmCleared {
  AlarmKind kind{};
};
/// The exercise was stopped by the station itself. It is latched until `reset()`.
struct ProtectiveStop {
  AlarmKind cause{};
};
struct Started {};
/// The host asked for the stop; it is on its way.
struct Stopping {};
/// The device has reported that it stands.
struct StandstillSeen {};
/// This model cannot report it; its stop was sent as often as it helps.
struct StandstillUnseen {};
struct WasReset {};
/// The host said `alive()` again after it had been missed.
struct HostReturned {};
/// The watcher process of an earlier host, or of this one, sent the stop.
struct WatcherActed {
  std::string text;
};

// Steps of an exercise test; the test that walks through a protocol notes them.

struct PhaseBegan {
  std::size_t index = 0;
  std::string name;
  Load target;
};
struct PhaseHeld {
  bool held = false;
};
/// The person at the controls marked a moment.
struct Marked {
  std::string word;
};
/// What else a test has to say: "checked", "over".
struct Noted {
  std::string word;
  std::string text;
};

/// One thing that happened, when, and who it is about.
struct Event {
  using What = std::variant<Asked, Refused, Sent, Received, Discarded, LoadMeasured, PedalRateMeasured,
                            PressureMeasured, SaturationMeasured, Implausible, Acknowledged, MonitorReady,
                            DeviceRefused, LineOpened, LineClosed, LineFailed, LineVanished, LineReturned,
                            DriverReplaced, Printed, AlarmRaised, AlarmCleared, ProtectiveStop, Started,
                            Stopping, StandstillSeen, StandstillUnseen, WasReset, HostReturned, WatcherActed,
                            PhaseBegan, PhaseHeld, Marked, Noted>;

  Clock::Instant at{};
  Source source = Source::station;
  What what;
};

}  // namespace tarsil
