#include "tarsil/exercise/ExerciseTest.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <numeric>
#include <utility>
#include <variant>

#include "tarsil/guard/detail/LoadRules.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr Duration beat = 1s;

constexpr Duration openingTime = 3s;
constexpr Duration checkingTime = 6s;
/// An oximeter over the air has to be found first.
constexpr Duration oximeterTime = 20s;
constexpr Duration levellingTime = 30s;
/// The station needs half of it to say that a device is not seen to stop.
constexpr Duration stoppingTime = 30s;
/// The station waits for a standstill for 20 s before it closes a line that it has stopped through.
constexpr Duration closingTime = 8s;

// A belt is read in tenths of km/h or of a mile per hour, a brake in watts; whole percents reach some grades
// only.
constexpr float speedTolerance = 0.25F;
constexpr float gradeTolerance = 1;
constexpr float powerTolerance = 3;

/// A belt that is read as less steep than this is level.
constexpr float levelGrade = 0.5F;

using Check = std::function<Answer(const Load&)>;

std::vector<std::string> objectionsOf(const Protocol& protocol, const Check& check) {
  const bool isTreadmill = protocol.device == StressDeviceType::Treadmill;
  std::vector<std::string> all;
  for (std::size_t i = 0; i < protocol.phases.size(); ++i) {
    const Phase& phase = protocol.phases[i];
    for (const float load : {phase.load, phase.endLoad}) {
      const Answer answer =
          check(isTreadmill ? Load{.speed = load, .grade = phase.grade} : Load{.power = load});
      if (answer.isAccepted()) continue;
      const std::string line =
          i < protocol.lines.size() ? "line " + std::to_string(protocol.lines[i]) + ", " : "";
      all.push_back(line + protocol.phaseName(i) + ": " + answer.reason());
      break;
    }
  }
  return all;
}

}  // namespace

ExerciseTest::ExerciseTest(std::shared_ptr<GuardedStation> station, Protocol protocol)
    : station_(std::move(station)), protocol_(std::move(protocol)), schedule_(protocol_) {
  station_->onEvent([this, isAlive = std::weak_ptr(isAlive_)](const Event& event) {
    if (!isAlive.expired()) hear(event);
  });
}

ExerciseTest::~ExerciseTest() {
  if (timer_) timer_->invalidate();
}

std::vector<std::string> ExerciseTest::objections() const {
  return objectionsOf(protocol_, [this](const Load& load) { return station_->check(load); });
}

std::vector<std::string> objectionsTo(const Protocol& protocol, const GuardedStation::Plan& plan) {
  const auto model = standardCatalogue().modelNamed(plan.exercise.model);
  if (!model || !model->exercise) return {"no exercise device is called \"" + plan.exercise.model + "\""};
  const detail::LoadRules rules(*model, plan.limits);
  return objectionsOf(protocol, [&rules](const Load& load) { return rules.check(load); });
}

void ExerciseTest::begin() {
  enter(State::checking);
  if (const auto all = objections(); !all.empty()) {
    missing_ = all;
    setOutcome(Outcome::notBegun, all.front());
    station_->close();
    return enter(State::over);
  }
  timer_ = Timer::scheduled(beat, true, [this](Timer&) { tick(); });
}

void ExerciseTest::enter(State state) {
  state_ = state;
  stateSince_ = Clock::now();
}

void ExerciseTest::tick() {
  switch (state_) {
    case State::checking:
      return checkingTick();
    case State::resting:
      return restingTick();
    case State::exercising:
      return exercisingTick();
    case State::levelling:
      return levellingTick();
    case State::stopping:
      return stoppingTick();
    case State::closing:
      return closingTick();
    case State::over:
      return;
  }
}

// What the station tells. It may be in the middle of something, so that nothing is asked of it here.

void ExerciseTest::hear(const Event& event) {
  if (state_ == State::over) return;
  if (const auto* alarm = std::get_if<AlarmRaised>(&event.what)) return hearAlarm(*alarm);
  if (std::holds_alternative<MonitorReady>(event.what)) monitorIsReady_ = true;
  if (std::holds_alternative<LoadMeasured>(event.what)) loadWasHeard_ = true;
  if (std::holds_alternative<SaturationMeasured>(event.what)) saturationWasHeard_ = true;
  if (std::holds_alternative<PressureMeasured>(event.what)) pressureAsked_.reset();
  if (std::holds_alternative<LineVanished>(event.what)) vanished_ = event.source;
  if (const auto* line = std::get_if<LineFailed>(&event.what)) {
    // It is told before the vanished line itself.
    if (line->reason == LineFailed::Reason::vanished) vanished_ = event.source;
    // Its text begins with the port as well.
    std::string reason = line->text;
    if (reason.starts_with(line->port + ": ")) reason.erase(0, line->port.size() + 2);
    lineFailure_ = "cannot open " + line->port + " (" + roleOf(event.source) + "): " + reason;
  }
  if (std::holds_alternative<StandstillSeen>(event.what) ||
      std::holds_alternative<StandstillUnseen>(event.what)) {
    standstillIsSettled_ = true;
  }
  if (std::holds_alternative<DeviceRefused>(event.what)) {
    miss(std::string(roleOf(event.source)) + ": " + textOf(event, protocol_.device).text);
  }
  if (const auto* stop = std::get_if<ProtectiveStop>(&event.what)) hearProtectiveStop(stop->cause);
}

void ExerciseTest::hearProtectiveStop(AlarmKind cause) {
  const bool isLost =
      cause == AlarmKind::lineLost || cause == AlarmKind::monitorLost || cause == AlarmKind::oximeterLost;
  if (isLost && vanished_) {
    setOutcome(Outcome::lineLost, std::string("the ") + roleOf(*vanished_) + "'s port has vanished");
  } else {
    setOutcome(Outcome::protectiveStop,
               std::string("protective stop: ") + (alarmText_.empty() ? shortText(cause) : alarmText_));
  }
  standstillIsSettled_ = false;
  if (state_ != State::resting && state_ != State::exercising && state_ != State::levelling) return;
  exerciseEnded_ = Clock::now();
  enter(State::stopping);
}

void ExerciseTest::hearAlarm(const AlarmRaised& alarm) {
  if (alarm.kind == AlarmKind::pressureMissing) return endPressure();
  // That nobody sees it stop is a property of the model.
  if (alarm.kind == AlarmKind::unseenStop) return;
  const std::string text = alarm.text.empty() ? shortText(alarm.kind) : alarm.text;
  if (priorityOf(alarm.kind) == Priority::high) alarmText_ = text;
  if (alarm.kind == AlarmKind::notSeenToStop) {
    setOutcome(Outcome::protectiveStop, text);
    standstillIsSettled_ = true;
  }
  miss(text);
}

// Connection check: every device must answer before a patient stands on it.

void ExerciseTest::checkingTick() {
  const Answer readiness = station_->readiness();
  const std::string silent = silentDevices();
  if (readiness.isAccepted() && silent.empty()) {
    if (!protocol_.pressures.atRest || !station_->measuresPressure()) return startExercise();
    startPressure();
    return enter(State::resting);
  }
  const bool isOpen = readiness.code() != Answer::Code::notOpen;
  // A line that is opened anew belongs to a device that does not answer.
  if (isOpen) wasOpen_ = true;
  if (!wasOpen_) {
    if (inState() >= openingTime) fail(lineFailure_.value_or(readiness.reason()));
    return;
  }
  if (readiness.code() == Answer::Code::alreadyRunning) {
    // A belt that an earlier host left is stopped first; `reason_` tells when it was not seen to stop.
    if (standstillIsSettled_) fail(reason_);
    return;
  }
  if (isOpen && !readiness.isAccepted() && readiness.code() != Answer::Code::notHeard) {
    if (inState() >= openingTime + checkingTime) fail(readiness.reason());
    return;
  }
  const bool onlyOximeter = silent == " oximeter";
  if (inState() >= openingTime + (onlyOximeter ? oximeterTime : checkingTime))
    fail("no answer from:" + silent);
}

std::string ExerciseTest::silentDevices() const {
  std::string silent;
  const Answer::Code code = station_->readiness().code();
  if (code == Answer::Code::notHeard || code == Answer::Code::notOpen) silent += " exercise";
  if (station_->hasMonitor() && !monitorIsReady_) silent += " pressure";
  if (station_->hasOximeter() && !saturationWasHeard_) silent += " oximeter";
  return silent;
}

void ExerciseTest::restingTick() {
  if (!station_->isMeasuringPressure()) startExercise();
}

// Exercise

void ExerciseTest::startExercise() {
  station_->note(Noted{.word = "checked", .text = "every device answers; the exercise begins"});
  const Answer answer = station_->start();
  if (!answer.isAccepted()) return fail(answer.reason());
  enter(State::exercising);
  exerciseBegan_ = Clock::now();
  beginPhase(0);
}

void ExerciseTest::beginPhase(std::size_t index) {
  phase_ = index;
  phasePassed_ = Duration::zero();
  lastTick_ = Clock::now();
  heldSince_.reset();
  station_->note(PhaseBegan{.index = index, .name = protocol_.phaseName(index), .target = target()});
  moveLoad();
}

// To the nearest second: on a real machine each beat comes some moments late, and the last one of a phase may
// come less late than the first.
Duration ExerciseTest::phaseLeft() const {
  const Duration left = protocol_.phases[phase_].duration - phasePassed_;
  return std::max<Duration>(std::chrono::round<std::chrono::seconds>(left), Duration::zero());
}

Duration ExerciseTest::exerciseLeft() const {
  return std::accumulate(protocol_.phases.begin() + static_cast<std::ptrdiff_t>(phase_) + 1,
                         protocol_.phases.end(), phaseLeft(),
                         [](Duration sum, const Phase& phase) { return sum + phase.duration; });
}

Duration ExerciseTest::exerciseTime() const {
  if (!exerciseBegan_) return Duration::zero();
  return exerciseEnded_.value_or(Clock::now()) - *exerciseBegan_;
}

Duration ExerciseTest::heldFor() const {
  return heldSince_ ? Clock::now() - *heldSince_ : Duration::zero();
}

Load ExerciseTest::target() const {
  const Phase& phase = protocol_.phases[phase_];
  const auto passed = static_cast<float>(std::chrono::duration<double>(phasePassed_) / phase.duration);
  const float load = phase.load + (phase.endLoad - phase.load) * std::min(passed, 1.0F);
  if (isTreadmill()) return {.speed = load, .grade = phase.grade};
  // Brakes are set in whole watts.
  return {.power = phase.load == phase.endLoad ? load : std::round(load)};
}

void ExerciseTest::exercisingTick() {
  const Clock::Instant now = Clock::now();
  const Duration passed = now - std::exchange(lastTick_, now);
  if (!heldSince_) phasePassed_ += passed;
  if (phaseLeft() == Duration::zero()) {
    // While the load falls again, its device is on its way.
    if (protocol_.phases[phase_].kind == Phase::Kind::stage) checkStage();
    return advance();
  }
  moveLoad();
  // The station may have stopped everything meanwhile.
  if (state_ == State::exercising) takePressures(passed);
}

void ExerciseTest::moveLoad() {
  const Load load = target();
  if (wanted_ == load) return;
  // A refusal for the moment is the station's to tell; the load is still wanted at the next beat.
  if (station_->setLoad(load).isAccepted()) wanted_ = load;
}

void ExerciseTest::advance() {
  if (state_ != State::exercising) return;
  if (phase_ + 1 < protocol_.phases.size()) return beginPhase(phase_ + 1);
  level();
}

void ExerciseTest::hold(bool held) {
  if (state_ != State::exercising || isHeld() == held) return;
  heldSince_ = held ? std::optional(Clock::now()) : std::nullopt;
  station_->note(PhaseHeld{held});
}

void ExerciseTest::mark(const std::string& word) {
  station_->note(Marked{word});
}

/// A stage ends that was not cut short: a device that reports its load must have reached it.
void ExerciseTest::checkStage() {
  if (!station_->reportsLoad() || !wanted_) return;
  const Readings readings = station_->readings();
  const auto isReached = [](const Reading<float>& reading, float wanted, float tolerance) {
    return reading.isFresh() && std::abs(reading.value - wanted) <= tolerance;
  };
  const bool isThere = isTreadmill() ? isReached(readings.speed, wanted_->speed, speedTolerance) &&
                                           isReached(readings.grade, wanted_->grade, gradeTolerance)
                                     : isReached(readings.power, wanted_->power, powerTolerance);
  if (isThere) return;
  const bool isFresh = isTreadmill() ? readings.speed.isFresh() : readings.power.isFresh();
  const Load reported{
      .speed = readings.speed.value, .grade = readings.grade.value, .power = readings.power.value};
  miss(protocol_.phaseName(phase_) + ": the device was asked for " + textOf(*wanted_, protocol_.device) +
       " and reported " + (isFresh ? textOf(reported, protocol_.device) : "nothing"));
}

// Blood pressure

void ExerciseTest::takePressures(Duration passed) {
  if (!station_->measuresPressure()) return;
  const bool isMeasuring = station_->isMeasuringPressure();
  // Its alarm is raised once, however many pressures do not come.
  if (!isMeasuring) endPressure();
  schedule_.update(phase_, phasePassed_, passed, isMeasuring);
  if (schedule_.isDue() && !isMeasuring) startPressure();
}

void ExerciseTest::measurePressure() {
  if (state_ == State::exercising) startPressure();
}

void ExerciseTest::startPressure() {
  if (!station_->measurePressure().isAccepted()) return;
  schedule_.take();
  pressureAsked_ = Clock::now();
}

/// A measurement has had its time and gave nothing.
void ExerciseTest::endPressure() {
  if (!pressureAsked_) return;
  const std::string when =
      exerciseBegan_
          ? "that was due at " + clockText(std::max(*pressureAsked_ - *exerciseBegan_, Duration::zero()))
          : "at rest";
  pressureAsked_.reset();
  miss("the blood pressure " + when + " did not come");
}

// The end

/// A patient steps down from a level belt.
void ExerciseTest::level() {
  if (isLevel()) return requestStop();
  const Load level{.speed = protocol_.phases.back().endLoad, .grade = 0};
  // Some belts cannot be told to be level.
  if (!station_->check(level).isAccepted()) return requestStop();
  if (!station_->setLoad(level).isAccepted()) return requestStop();
  station_->note(Noted{.word = "levelling", .text = "the belt goes down to level"});
  enter(State::levelling);
}

bool ExerciseTest::isLevel() const {
  if (!isTreadmill()) return true;
  const Reading<float> grade = station_->readings().grade;
  return grade.isFresh() ? grade.value <= levelGrade : station_->commanded().grade == 0;
}

void ExerciseTest::levellingTick() {
  if (isLevel() || inState() >= levellingTime) requestStop();
}

void ExerciseTest::requestStop() {
  standstillIsSettled_ = false;
  // The station says by itself what a refused stop would say.
  static_cast<void>(station_->stop());
  exerciseEnded_ = Clock::now();
  enter(State::stopping);
}

void ExerciseTest::stop(const std::string& reason) {
  if (state_ == State::closing || state_ == State::over) return;
  setOutcome(Outcome::stopped, reason);
  station_->note(Noted{.word = "stopped", .text = reason});
  if (station_->isMeasuringPressure()) {
    pressureAsked_.reset();
    static_cast<void>(station_->abortPressure());
  }
  if (state_ == State::checking || state_ == State::resting) return close();
  if (state_ == State::exercising || state_ == State::levelling) requestStop();
}

void ExerciseTest::abandon(const std::string& reason) {
  stop(reason);
  if (state_ == State::stopping || state_ == State::closing) end();
}

void ExerciseTest::stoppingTick() {
  const bool isSettled = standstillIsSettled_ && !station_->isMeasuringPressure();
  if (isSettled || inState() >= stoppingTime) close();
}

void ExerciseTest::close() {
  station_->close();
  enter(State::closing);
}

void ExerciseTest::closingTick() {
  if (station_->isClosed() || inState() >= closingTime) end();
}

void ExerciseTest::end() {
  timer_->invalidate();
  station_->close();
  endPressure();
  if (schedule_.isDue()) miss("a blood pressure was due and could not be measured");
  if (state_ == State::closing && !station_->isClosed())
    station_->note(Noted{.word = "unclosed", .text = "a port did not close"});
  if (exerciseBegan_ && station_->reportsLoad() && !loadWasHeard_) miss("exercise: no load was reported");
  for (const std::string& line : missing_) station_->note(Noted{.word = "missing", .text = line});
  if (!missing_.empty()) setOutcome(Outcome::incomplete, missing_.front());
  station_->note(Noted{.word = "outcome", .text = name(outcome_)});
  station_->note(Noted{.word = "over", .text = "the session is over"});
  enter(State::over);
}

void ExerciseTest::fail(const std::string& reason) {
  setOutcome(Outcome::notBegun, reason);
  station_->note(Noted{.word = "failed", .text = reason});
  close();
}

void ExerciseTest::setOutcome(Outcome outcome, const std::string& reason) {
  if (outcome_ != Outcome::completed) return;
  outcome_ = outcome;
  reason_ = reason;
}

void ExerciseTest::miss(const std::string& line) {
  // What repeats every second is said once.
  if (std::find(missing_.begin(), missing_.end(), line) == missing_.end()) missing_.push_back(line);
}

const char* name(ExerciseTest::Outcome outcome) {
  switch (outcome) {
    case ExerciseTest::Outcome::completed:
      return "completed";
    case ExerciseTest::Outcome::incomplete:
      return "incomplete";
    case ExerciseTest::Outcome::notBegun:
      return "notBegun";
    case ExerciseTest::Outcome::stopped:
      return "stopped";
    case ExerciseTest::Outcome::lineLost:
      return "lineLost";
    case ExerciseTest::Outcome::protectiveStop:
      return "protectiveStop";
  }
  return "";
}

}  // namespace tarsil
