#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/guard/Answer.hpp"
#include "tarsil/guard/Event.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tarsil/guard/Limits.hpp"
#include "tarsil/guard/Load.hpp"
#include "tarsil/guard/Readings.hpp"

namespace tarsil {

class BluetoothCentral;

/// A station that an engineer may put a patient on: an exercise device, and where wanted a blood-pressure
/// monitor and an oximeter, guarded against cables, devices and hosts that fail.
///
///     const auto opened = GuardedStation::open({.exercise = {"LodeTreadmill", "ttyUSB0"}});
///     if (!opened) return complain(opened.answer());
///     auto station = opened.station();
///     station->onEvent([](const Event& event) { show(event); });
///     ...
///     const Answer answer = station->start();   // refused, with its reason, until the station is ready
///     station->setLoad({.speed = 2.7F, .grade = 10});
///
/// What it asks, hears, refuses and alarms becomes an event, and stands in its journal. It polls the exercise
/// device once a second from its opening to its end. It starts nothing by itself, ever.
///
/// Main thread, but for `alive()` and `stopNow()`; the host runs `RunLoop::main()`, or pumps it.
class GuardedStation : public std::enable_shared_from_this<GuardedStation> {
 public:
  struct Place {
    /// Of the catalogue.
    std::string model;
    /// Name, path or stable path of the port.
    std::string port;
  };

  struct Plan {
    Place exercise;
    /// Port of a Tango monitor; empty: none.
    std::string monitor = {};
    /// Port of a MEDXING oximeter; empty: none.
    std::string oximeter = {};
    /// Makes the central of a Bluetooth oximeter, used instead of `oximeter`; empty: none.
    std::function<std::shared_ptr<BluetoothCentral>()> makeCentral = {};
    Limits limits = {};
    /// From `start()` on the host says `alive()` at least this often, or the exercise is stopped. 100 ms to
    /// 10 s.
    Duration heartbeat = std::chrono::milliseconds(500);
    /// A monitor or an oximeter that is lost stops the exercise, too.
    bool auxiliariesAreVital = false;
    /// The watcher program; empty: the installed one. None: without a watcher, for a process that moves
    /// nothing real (simulated devices on the virtual clock).
    std::optional<std::string> watcher = std::string();
    /// Where everything that happens is written down, from the opening on. None: nowhere, for a process that
    /// moves nothing real.
    std::optional<JournalFile> journal = JournalFile();
  };

  /// What `open` hands back: a station whose ports are being opened, or every reason why there is none.
  class Opening {
   public:
    /// At least one.
    explicit Opening(std::vector<Answer> refusals);
    explicit Opening(std::shared_ptr<GuardedStation> station)
        : answer_(Answer::accepted()), station_(std::move(station)) {}

    explicit operator bool() const { return station_ != nullptr; }
    /// Accepted; or the first reason's code, and all their sentences.
    const Answer& answer() const { return answer_; }
    /// One by one; none when accepted.
    const std::vector<Answer>& refusals() const { return refusals_; }
    const std::shared_ptr<GuardedStation>& station() const { return station_; }
    GuardedStation* operator->() const { return station_.get(); }

   private:
    Answer answer_;
    std::vector<Answer> refusals_;
    std::shared_ptr<GuardedStation> station_;
  };

  /// Refuses a model or a port that is not there, one port for two devices, numbers that contradict
  /// themselves, and a journal that cannot be made, with every reason at once and before any port is opened.
  /// Ports open some moments later; a port that does not is an event, and is tried again until the station is
  /// closed.
  static Opening open(Plan plan);

  /// A station that is dropped while its exercise runs leaves the belt to its watcher, which stops it.
  ~GuardedStation();
  GuardedStation(const GuardedStation&) = delete;
  GuardedStation& operator=(const GuardedStation&) = delete;

  /// Hears every event from now on, in order; those of the opening, too, within this call, when it joins in
  /// the station's first second. Several listeners are called in the order of joining. A listener may call
  /// every method here, and drop the station.
  void onEvent(std::function<void(const Event&)> listener);
  /// Puts an event of a layer above (a step of an exercise test) among the station's own.
  void note(Event::What what);

  /// Starts the belt, or the exercise. Needs every port open, the exercise device heard and seen to stand
  /// (where its model reports), no alarm above low, and `reset()` after a protective stop.
  Answer start();
  /// The load to go to, in steps within the limits. One that is not carried, not allowed, or no number is
  /// refused as a whole. While the device is not heard, or does not follow, it is not raised.
  Answer setLoad(const Load& load);
  /// What `setLoad` would say to this load at any time: only about the model and the limits.
  Answer check(const Load& load) const;
  /// Stops, and repeats it until the device reports that it stands. Always accepted on an open station, also
  /// when nothing runs.
  Answer stop();
  /// After a protective stop, once its cause is gone and the device stands: allows `start()` again.
  Answer reset();

  /// Any thread, while the main thread is blocked, too: sends the stop at once. The station takes it up as
  /// `stop()` when its main thread runs again.
  void stopNow();
  /// The host lives: from its own loop, at least once a heartbeat from `start()` until the device was seen to
  /// stand. Any thread, but call it where a frozen host would not; never waits.
  void alive();

  /// Starts a blood-pressure measurement, on the monitor where there is one, else with the exercise device's
  /// cuff. Its result comes as an event, or `pressureMissing` as an alarm. Without an exercise that cuff has
  /// the load taken away, and the device stopped afterwards; while a stop is under way it waits.
  Answer measurePressure();
  /// Aborts it where the model can.
  Answer abortPressure();
  bool isMeasuringPressure() const;

  /// Stops where something moves, and closes the ports when the device stands; where it is not seen to stand,
  /// the watcher keeps the line. `isClosed()` says when.
  void close();
  bool isClosed() const;

  enum class State {
    /// Ports are being opened, or one is missing.
    opening,
    /// Nothing runs; the devices are polled.
    ready,
    running,
    /// The stop is repeated until the device stands.
    stopping,
    closing,
    closed,
  };
  State state() const;
  bool isLatched() const;
  /// Active alarms, highest priority first.
  std::vector<AlarmKind> alarms() const;
  /// What holds `start()` back now; accepted when nothing does.
  Answer readiness() const;
  Readings readings() const;
  /// The file; empty: none. It stays whole lines, whatever ends the process. That it cannot be written any
  /// more is an alarm.
  std::filesystem::path journal() const;
  /// Where the host wants to go, and what the device was last told.
  Load target() const;
  Load commanded() const;
  /// Whether this model reports its load at all.
  bool reportsLoad() const;
  bool hasMonitor() const;
  bool hasOximeter() const;
  bool measuresPressure() const;

 private:
  class Implementation;
  explicit GuardedStation(std::shared_ptr<Implementation> implementation);
  std::shared_ptr<Implementation> implementation_;
};

const char* name(GuardedStation::State state);

}  // namespace tarsil
