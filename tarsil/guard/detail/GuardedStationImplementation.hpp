#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tarsil/core/DeviceCatalogue.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/detail/BluetoothOximeter.hpp"
#include "tarsil/guard/detail/Containment.hpp"
#include "tarsil/guard/detail/GuardedDriver.hpp"
#include "tarsil/guard/detail/HostWatch.hpp"
#include "tarsil/guard/detail/Line.hpp"
#include "tarsil/guard/detail/LoadJudge.hpp"
#include "tarsil/guard/detail/LoadRules.hpp"
#include "tarsil/guard/detail/Pressures.hpp"
#include "tarsil/guard/detail/StopFrames.hpp"
#include "tarsil/guard/watch/lastWatch.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil {

/// The rules of the station. A beat each second drives it: it looks for lost ports, judges silence, walks the
/// load one step on, repeats a stop that was not seen yet, and asks the exercise device.
///
/// Every function that tells a listener something goes on after it only with what it holds itself: the
/// listener may have dropped the station.
class GuardedStation::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(Plan plan, const DeviceModel& exercise, std::optional<DeviceModel> monitor,
                 std::optional<DeviceModel> oximeter, detail::StopFrames stop,
                 std::shared_ptr<JournalWriter> journal);
  ~Implementation();

  /// The devices behind the ports, found by `GuardedStation::open`.
  struct Found {
    std::shared_ptr<const SerialDevice> exercise;
    std::shared_ptr<const SerialDevice> monitor;
    std::shared_ptr<const SerialDevice> oximeter;
  };
  void begin(const Found& found);
  /// The host lets go.
  void abandon();

  void onEvent(std::function<void(const Event&)> listener);
  void emit(Source source, Event::What what) { emitAt(Clock::now(), source, std::move(what)); }

  Answer start();
  Answer setLoad(const Load& load);
  Answer check(const Load& load) const { return rules_.check(load); }
  Answer stop();
  Answer reset();
  void stopNow();
  void alive() { hostWatch_->alive(); }
  Answer measurePressure();
  Answer abortPressure();
  bool isMeasuringPressure() const { return pressures_ && pressures_->isMeasuring(); }
  void close();

  State state() const { return state_; }
  bool isLatched() const { return cause_.has_value(); }
  std::vector<AlarmKind> alarms() const { return {alarms_.begin(), alarms_.end()}; }
  Answer readiness() const;
  Readings readings() const;
  std::filesystem::path journal() const { return journal_ ? journal_->path() : std::filesystem::path(); }
  Load target() const { return target_; }
  Load commanded() const { return commanded_; }
  /// Every driver that decodes a load reports the current one when its replies are framed.
  bool reportsLoad() const { return facts_.loadReport != LoadReport::none; }
  bool hasMonitor() const { return monitorLine_ != nullptr; }
  bool hasOximeter() const { return oximeterLine_ || bluetooth_; }
  bool measuresPressure() const { return pressures_.has_value(); }

 private:
  /// Kinds by priority, the highest first.
  struct HighestFirst {
    bool operator()(AlarmKind one, AlarmKind other) const { return one < other; }
  };

  // Opening, and the beat.
  void beat();
  void lookAfterJournal();
  void lookAfterHost();
  void updateOpening();
  void lineFailed(Source source, const LineFailed& failure);
  void leave();
  void closeLines();
  void finishClosing();

  // The exercise device.
  void openExercise(const std::shared_ptr<const SerialDevice>& device);
  void exerciseOpened(const std::shared_ptr<ORSSerialPort>& port);
  void exerciseLost();
  void takeLineOver();
  void poll();
  void loadReported(const Load& load);
  void judge(const Load& load);
  void judgeSilence();
  void walk();
  void command(const Load& load);
  bool mayRaise() const;
  void refused(const DeviceRefused& refusal, bool atMachine);
  bool isSeenStanding() const;

  // Stopping.
  void protectiveStop(AlarmKind cause);
  void beginStop();
  void sendStop();
  /// The command to stop may only leave when the belt stands.
  bool slowsDownFirst() const { return !stopFrames_.standing.empty(); }
  void continueStop();
  void judgeStop();
  void standstillSeen();
  void exerciseIsOver();
  std::unique_ptr<Watcher> startWatcher(Answer& answer);

  // The monitor, pressures and the oximeter.
  void lookAfterAuxiliaries();
  void openMonitor(const std::shared_ptr<const SerialDevice>& device);
  void openOximeter(const std::shared_ptr<const SerialDevice>& device);
  void preparePressures();
  /// With the exercise device's own cuff.
  bool isCuffBuiltIn() const { return pressures_ && !monitorLine_; }
  void startBuiltInCuff();
  void builtInCuffIsDone();
  void fetchBuiltInPressure();
  void pressureReported(Pressure pressure, std::int64_t status);
  void saturationReported(float saturation);
  void monitorOpened(const std::shared_ptr<ORSSerialPort>& port);
  void monitorReady();
  void initialiseMonitor();
  void commandMonitor(Command command, void (KivStressDevice::*call)());

  // Telling.
  void emitAt(Clock::Instant at, Source source, Event::What what);
  void asked(Source source, Command command, const Load& load = {});
  Answer refuse(Command command, Answer answer);
  void raise(AlarmKind kind, std::string text);
  void clear(AlarmKind kind);
  bool isOn(AlarmKind kind) const { return alarms_.contains(kind); }
  detail::Line::Listener lineListener(Source source);
  detail::GuardedDriver::Listener driverListener(Source source);

  template <class Value>
  struct Heard {
    Value value;
    Clock::Instant at;
  };
  template <class Value>
  static Reading<Value> readingOf(bool isReported, const std::optional<Heard<Value>>& heard, Duration rhythm,
                                  const std::string& source);

  const Plan plan_;
  const DeviceModel model_;
  const ExerciseFacts facts_;
  const std::optional<DeviceModel> monitorModel_;
  const std::optional<DeviceModel> oximeterModel_;
  /// Null: none.
  const std::shared_ptr<JournalWriter> journal_;
  const detail::LoadRules rules_;
  detail::Containment containment_;
  using Listener = std::function<void(const Event&)>;
  std::vector<std::shared_ptr<const Listener>> listeners_;
  /// What happened before the first beat, for those who join until then.
  std::vector<Event> early_;
  std::shared_ptr<Timer> beat_;
  bool hasBeaten_ = false;
  State state_ = State::opening;
  bool wantsToClose_ = false;
  std::set<AlarmKind, HighestFirst> alarms_;
  /// Of the latched protective stop.
  std::optional<AlarmKind> cause_;

  std::shared_ptr<detail::Line> line_;
  std::optional<detail::GuardedDriver> driver_;
  const detail::StopFrames stopFrames_;
  detail::LoadJudge judge_;
  /// Its host died: whether the device stands has to be seen first.
  bool earlierHostDied_ = false;
  /// Begin of the earlier watch that was told.
  std::optional<WatchReport::Time> toldWatch_;
  std::shared_ptr<detail::HostWatch> hostWatch_ = std::make_shared<detail::HostWatch>();
  /// Where other threads send the stop; its own mutex, its own references.
  struct StopLine;
  std::shared_ptr<StopLine> stopLine_;

  Load target_;
  Load commanded_;
  Clock::Instant lastStep_{};
  Clock::Instant lastTold_{};
  std::optional<Clock::Instant> stopAskedAt_;
  int stopsSent_ = 0;
  /// When the polls were sent that no report has answered yet.
  std::deque<Clock::Instant> polls_;
  int unanswered_ = 0;
  std::optional<Clock::Instant> silentSince_;
  Load lastJudged_;
  int zeros_ = 0;
  int exceeding_ = 0;
  int standing_ = 0;
  int differing_ = 0;
  std::optional<Clock::Instant> refusedAt_;
  std::optional<Heard<Load>> load_;
  std::optional<Heard<float>> pedalRate_;

  std::shared_ptr<detail::Line> monitorLine_;
  std::optional<detail::GuardedDriver> monitor_;
  std::optional<detail::Pressures> pressures_;
  std::optional<Heard<Pressure>> pressure_;
  bool monitorIsReady_ = false;
  std::optional<Clock::Instant> monitorAskedAt_;

  std::shared_ptr<detail::Line> oximeterLine_;
  std::optional<detail::GuardedDriver> oximeter_;
  std::optional<detail::BluetoothOximeter> bluetooth_;
  std::optional<Heard<float>> saturation_;
  /// When the oximeter was last heard at all.
  std::optional<Clock::Instant> oximeterHeardAt_;
  Clock::Instant openedAt_ = Clock::now();
};

}  // namespace tarsil
