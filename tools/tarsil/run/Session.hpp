#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/exitCodes.hpp"
#include "tools/tarsil/run/Expectations.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/run/Station.hpp"

namespace tarsil::cli {

/// One exercise test: connection check, warm-up, stages with one blood pressure each, recovery, stop, ports
/// closed. It lives on the main run loop and asks the devices once a second. The belt is started once, and
/// never again after a stop.
class Session {
 public:
  enum class State { connecting, exercising, stopping, closing, over };

  Session(Protocol protocol, Station& station, Journal& journal);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Throws CommandFailure when a model or port is not there; nothing has moved then.
  void begin();

  /// @name What the person at the controls can do
  /// @{

  /// The stage goes on until it is released.
  void hold(bool held);
  bool isHeld() const { return held_; }
  /// The next phase begins now.
  void advance();
  void measurePressure();
  /// Ends the exercise; the session goes on to its end by itself.
  void stop(ExitCode code, const std::string& reason);
  /// Ends the session now: stop, close, wait for nothing.
  void abandon(ExitCode code, const std::string& reason);

  /// @}

  State state() const { return state_; }
  bool isOver() const { return state_ == State::over; }
  /// How it ended; what was expected and did not come counts.
  ExitCode result() const { return result_; }
  /// Why it is not `succeeded`; empty when it is.
  const std::string& reason() const { return reason_; }

  const Protocol& protocol() const { return protocol_; }
  /// The phase of the exercise, counted from 0.
  std::size_t phaseIndex() const { return phase_; }
  /// Time left in this phase and in the whole exercise.
  Duration phaseLeft() const;
  Duration exerciseLeft() const;
  Load target() const;
  /// What the device was last told.
  Load commanded() const { return commanded_; }

 private:
  void tick();
  void connectingTick();
  void exerciseTick();
  void stoppingTick();
  void closingTick();

  void startExercise();
  void beginPhase(std::size_t index);
  void finishExercise();
  void moveLoad();
  bool pressureIsDue() const;
  void askForPressureResult();
  void closePorts();
  void end();
  void fail(ExitCode code, const std::string& reason);
  /// The first reason counts.
  void setResult(ExitCode code, const std::string& reason);
  Duration inState() const { return Clock::now() - stateSince_; }
  void enter(State state);

  const Protocol protocol_;
  Station& station_;
  Journal& journal_;
  Expectations expectations_;
  std::shared_ptr<Timer> timer_;

  State state_ = State::connecting;
  Clock::Instant stateSince_ = Clock::now();
  ExitCode result_ = succeeded;
  std::string reason_;

  bool checksBegun_ = false;
  std::size_t phase_ = 0;
  /// Time of the phase that has passed, without the time it was held.
  Duration phasePassed_{};
  Clock::Instant lastTick_ = Clock::now();
  bool held_ = false;
  Load commanded_;
  bool pressureTaken_ = false;
  std::optional<Clock::Instant> pressureStarted_;
};

}  // namespace tarsil::cli
