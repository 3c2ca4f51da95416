#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/exercise/PressureSchedule.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil {

/// Walks a patient through a protocol on a guarded station: connection check, pressure at rest, warm-up,
/// stages and recovery with their pressures, down to level, stop, ports closed. It says which load is wanted
/// when; whatever keeps the patient safe is the station's, `alive()` the host's. The exercise is started once
/// and never again. Its steps are noted among the station's events. It lives on the main run loop; main
/// thread.
class ExerciseTest {
 public:
  enum class State : std::uint8_t {
    /// Ports open, and every device has to answer.
    checking,
    /// The pressure at rest is taken.
    resting,
    exercising,
    /// The belt is brought down to level.
    levelling,
    /// The stop is on its way.
    stopping,
    /// Ports are being closed.
    closing,
    over,
  };

  /// How a test ended: the first of these that happened.
  enum class Outcome : std::uint8_t {
    completed,
    /// It ran to its end, but something that the devices owed did not come, or an error came.
    incomplete,
    /// The connection check failed. Nothing was moved.
    notBegun,
    /// `stop` or `abandon`.
    stopped,
    /// A port vanished, and the station stopped the exercise.
    lineLost,
    /// The station stopped the exercise for another reason, or the device was not seen to stop.
    protectiveStop,
  };

  ExerciseTest(std::shared_ptr<GuardedStation> station, Protocol protocol);
  ~ExerciseTest();
  ExerciseTest(const ExerciseTest&) = delete;
  ExerciseTest& operator=(const ExerciseTest&) = delete;

  /// What speaks against this protocol on this station: a line for each load that its model does not carry or
  /// its limits forbid, with the load's line in the protocol's text where it has one. Empty: nothing.
  std::vector<std::string> objections() const;
  /// Begins with the connection check. With objections it is over at once and not begun.
  void begin();

  /// @name What the person at the controls can do. Nothing of it has an effect when the exercise does not
  /// run.
  /// @{

  /// The phase goes on until it is released.
  void hold(bool held);
  bool isHeld() const { return heldSince_.has_value(); }
  /// How long the phase has been held; zero when it is not.
  Duration heldFor() const;
  /// The next phase begins now.
  void advance();
  /// A blood pressure outside the protocol's times.
  void measurePressure();
  /// Marks this moment with a word, a symptom say; before and after the exercise as well.
  void mark(const std::string& word);
  /// Ends the exercise; the test goes on to its end by itself.
  void stop(const std::string& reason);
  /// Ends it and closes the ports without waiting for anything; what still moves is the watcher's.
  void abandon(const std::string& reason);

  /// @}

  State state() const { return state_; }
  bool isOver() const { return state_ == State::over; }
  Outcome outcome() const { return outcome_; }
  /// Why it is not `completed`; empty when it is.
  const std::string& reason() const { return reason_; }
  /// What was expected and did not come, or came and should not have, a line each. Complete when it is over.
  const std::vector<std::string>& missing() const { return missing_; }

  const Protocol& protocol() const { return protocol_; }
  /// The phase of the exercise, counted from 0.
  std::size_t phaseIndex() const { return phase_; }
  /// Time left in this phase and in the whole exercise, were nothing held; whole seconds.
  Duration phaseLeft() const;
  Duration exerciseLeft() const;
  /// Since the exercise began, held phases included; zero before. It stands still from the stop on.
  Duration exerciseTime() const;
  /// What the protocol wants at this moment.
  Load target() const;

 private:
  void hear(const Event& event);
  void hearAlarm(const AlarmRaised& alarm);
  void hearProtectiveStop(AlarmKind cause);
  void tick();
  void checkingTick();
  void restingTick();
  void exercisingTick();
  void levellingTick();
  void stoppingTick();
  void closingTick();

  std::string silentDevices() const;
  void startExercise();
  void beginPhase(std::size_t index);
  void moveLoad();
  void takePressures(Duration passed);
  void startPressure();
  void endPressure();
  void checkStage();
  void level();
  bool isLevel() const;
  void requestStop();
  void close();
  void end();
  void fail(const std::string& reason);
  /// The first reason counts.
  void setOutcome(Outcome outcome, const std::string& reason);
  void miss(const std::string& line);
  Duration inState() const { return Clock::now() - stateSince_; }
  void enter(State state);
  bool isTreadmill() const { return protocol_.device == StressDeviceType::Treadmill; }

  const std::shared_ptr<GuardedStation> station_;
  const Protocol protocol_;
  PressureSchedule schedule_;
  std::shared_ptr<Timer> timer_;
  /// The station keeps its listeners for good.
  const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);

  State state_ = State::checking;
  Clock::Instant stateSince_ = Clock::now();
  Outcome outcome_ = Outcome::completed;
  std::string reason_;
  std::vector<std::string> missing_;

  /// All ports have been open at once.
  bool wasOpen_ = false;
  /// Why a port did not open, at last.
  std::optional<std::string> lineFailure_;
  bool monitorIsReady_ = false;
  bool loadWasHeard_ = false;
  bool saturationWasHeard_ = false;
  bool standstillIsSettled_ = false;
  /// Whose port vanished last.
  std::optional<Source> vanished_;
  /// The words of the last alarm of high priority.
  std::string alarmText_;

  std::size_t phase_ = 0;
  /// Time of the phase that has passed, without the time it was held.
  Duration phasePassed_{};
  Clock::Instant lastTick_ = Clock::now();
  std::optional<Clock::Instant> heldSince_;
  std::optional<Clock::Instant> exerciseBegan_;
  std::optional<Clock::Instant> exerciseEnded_;
  std::optional<Load> wanted_;
  /// When the measurement under way was asked for; its result is owed.
  std::optional<Clock::Instant> pressureAsked_;
};

/// What speaks against a protocol on a station that this plan describes, before a port of it is opened: as
/// `ExerciseTest::objections`. One line for a model that is no exercise device. Any thread.
std::vector<std::string> objectionsTo(const Protocol& protocol, const GuardedStation::Plan& plan);

/// "completed" and so on; noted among the events when a test is over.
const char* name(ExerciseTest::Outcome outcome);

}  // namespace tarsil
