#include "tools/tarsil/run/Session.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <utility>

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using Kind = Entry::Kind;

constexpr Duration beat = 1s;

// Connection check.
constexpr Duration openingTime = 3s;
constexpr Duration checkingTime = 6s;
/// An oximeter has to be found first.
constexpr Duration bluetoothCheckingTime = 20s;

// A load moves towards its target by at most this much a second.
constexpr Load treadmillStep{1.0F, 2.0F};
constexpr Load bicycleStep{25.0F, 0.0F};

/// A measurement begins this long before its stage ends; a cuff needs 20 to 40 s, and a little to spare.
constexpr Duration pressureTime = 60s;
constexpr Duration slowestPressure = 45s;
constexpr Duration quickestPressure = 25s;
/// A built-in unit is asked for its result after this.
constexpr Duration pressureResultTime = 45s;

constexpr Duration longestStop = 12s;
constexpr Duration closingTime = 3s;

float towards(float from, float to, float step) {
  return from + std::clamp(to - from, -step, step);
}

}  // namespace

Session::Session(Protocol protocol, Station& station, Journal& journal)
    : protocol_(std::move(protocol)), station_(station), journal_(journal), expectations_(station) {
  journal_.addReader([this](const Entry& entry) { expectations_.hear(entry); });
  station_.onRemoved = [this](Role role) {
    if (state_ != State::closing && state_ != State::over) {
      stop(portVanished, fmt::format("the {}'s port has vanished", nameOf(role)));
    }
  };
}

Session::~Session() {
  station_.onRemoved = nullptr;
  if (timer_) timer_->invalidate();
}

void Session::begin() {
  station_.connect();
  enter(State::connecting);
  timer_ = Timer::scheduled(beat, true, [this](Timer&) { tick(); });
}

void Session::enter(State state) {
  state_ = state;
  stateSince_ = Clock::now();
}

void Session::tick() {
  switch (state_) {
    case State::connecting:
      return connectingTick();
    case State::exercising:
      return exerciseTick();
    case State::stopping:
      return stoppingTick();
    case State::closing:
      return closingTick();
    case State::over:
      return;
  }
}

// Connection check: every device must answer before a patient stands on it.

void Session::connectingTick() {
  if (!station_.allOpened()) {
    if (inState() >= openingTime) fail(portNotOpened, fmt::format("cannot open {}", station_.unopened()));
    return;
  }
  if (!std::exchange(checksBegun_, true)) {
    enter(State::connecting);
    // The first start only initialises the monitor.
    if (station_.hasMonitor()) station_.startPressure();
  }
  // A driver that repeats its first value is first asked when there is something to report.
  const bool loadIsChecked = station_.traits().reportsFollow;
  const bool loadIsThere = !loadIsChecked || station_.load();
  const bool monitorIsThere = !station_.hasMonitor() || station_.monitorIsReady();
  const bool oximeterIsThere = !station_.hasOximeter() || station_.saturation();
  if (loadIsThere && monitorIsThere && oximeterIsThere) return startExercise();
  if (inState() < (station_.usesBluetooth() ? bluetoothCheckingTime : checkingTime)) {
    if (!loadIsThere) station_.requestLoad();
    return;
  }
  std::string silent;
  if (!loadIsThere) silent += " exercise";
  if (!monitorIsThere) silent += " pressure";
  if (!oximeterIsThere) silent += " oximeter";
  fail(portNotOpened, "no answer from:" + silent);
}

// Exercise

void Session::startExercise() {
  journal_.note(Role::session, Kind::event, "checked", {}, "every device answers; the exercise begins");
  enter(State::exercising);
  station_.start();
  beginPhase(0);
  lastTick_ = Clock::now();
}

void Session::beginPhase(std::size_t index) {
  phase_ = index;
  phasePassed_ = Duration::zero();
  held_ = false;
  pressureTaken_ = false;
  const Phase& phase = protocol_.phases[index];
  journal_.note(Role::session, Kind::event, "phase", {phase.load, phase.grade}, protocol_.phaseName(index));
  moveLoad();
}

Duration Session::phaseLeft() const {
  return std::max(protocol_.phases[phase_].duration - phasePassed_, Duration::zero());
}

Duration Session::exerciseLeft() const {
  return std::accumulate(protocol_.phases.begin() + static_cast<std::ptrdiff_t>(phase_) + 1,
                         protocol_.phases.end(), phaseLeft(),
                         [](Duration sum, const Phase& phase) { return sum + phase.duration; });
}

Load Session::target() const {
  const Phase& phase = protocol_.phases[phase_];
  const auto passed = static_cast<float>(std::chrono::duration<double>(phasePassed_) / phase.duration);
  return {phase.load + (phase.endLoad - phase.load) * std::min(passed, 1.0F), phase.grade};
}

void Session::exerciseTick() {
  const Clock::Instant now = Clock::now();
  if (!held_) phasePassed_ += now - lastTick_;
  lastTick_ = now;

  if (phaseLeft() == Duration::zero()) {
    // While the load falls again, its device is on its way.
    const bool isStage = protocol_.phases[phase_].kind == Phase::Kind::stage;
    if (isStage) expectations_.stageEnds(protocol_.phaseName(phase_), commanded_);
    return advance();
  }
  moveLoad();
  askForPressureResult();
  if (pressureIsDue()) return measurePressure();
  if (station_.traits().reportsLoad) station_.requestLoad();
}

void Session::moveLoad() {
  const Load wanted = target();
  const Load step = station_.traits().kind == StressDeviceType::Treadmill ? treadmillStep : bicycleStep;
  Load next{towards(commanded_.load, wanted.load, step.load),
            towards(commanded_.grade, wanted.grade, step.grade)};
  // What the driver does not bring over is passed over.
  const float slowest = station_.traits().slowest;
  if (next.load < slowest) next.load = wanted.load < slowest ? 0 : slowest;
  if (next.load == commanded_.load && next.grade == commanded_.grade) return;
  commanded_ = next;
  station_.setLoad(next);
}

void Session::advance() {
  if (state_ != State::exercising) return;
  if (phase_ + 1 < protocol_.phases.size()) return beginPhase(phase_ + 1);
  finishExercise();
}

void Session::hold(bool held) {
  if (state_ != State::exercising || held_ == held) return;
  held_ = held;
  journal_.note(Role::session, Kind::event, held ? "held" : "released", {},
                held ? "stage held" : "stage released");
}

// Blood pressure

bool Session::pressureIsDue() const {
  if (pressureTaken_ || pressureStarted_ || !station_.answersPressure()) return false;
  const Phase& phase = protocol_.phases[phase_];
  if (phase.kind != Phase::Kind::stage) return false;
  if (phase.duration >= slowestPressure) return phaseLeft() <= pressureTime && phaseLeft() >= slowestPressure;
  // No cuff is done within so short a stage; it should at least be done within the exercise.
  return exerciseLeft() >= quickestPressure;
}

// The other commands of this beat are left out: a built-in unit's driver does not bear an answer to a load
// request between the start of a measurement and its first answer.
void Session::measurePressure() {
  if (state_ != State::exercising || pressureStarted_ || !station_.answersPressure()) return;
  pressureTaken_ = true;
  pressureStarted_ = Clock::now();
  station_.startPressure();
}

void Session::askForPressureResult() {
  if (!pressureStarted_) return;
  const bool monitorHasAnswered =
      station_.hasMonitor() && station_.pressure() && station_.pressure()->at > *pressureStarted_;
  if (!monitorHasAnswered && Clock::now() - *pressureStarted_ < pressureResultTime) return;
  // The monitor sends its record by itself.
  if (!station_.hasMonitor()) station_.requestPressure();
  expectations_.expectPressure();
  pressureStarted_.reset();
}

// The end

void Session::finishExercise() {
  station_.stop();
  enter(State::stopping);
}

void Session::stop(ExitCode code, const std::string& reason) {
  if (state_ == State::closing || state_ == State::over) return;
  setResult(code, reason);
  journal_.note(Role::session, Kind::event, "stopped", {}, reason);
  if (state_ == State::connecting) return closePorts();
  if (state_ == State::exercising) finishExercise();
}

void Session::abandon(ExitCode code, const std::string& reason) {
  stop(code, reason);
  if (state_ == State::stopping) closePorts();
}

void Session::stoppingTick() {
  const bool stands = station_.traits().reportsFollow && station_.load() &&
                      station_.load()->at > stateSince_ && station_.load()->value.load == 0;
  if (stands || !station_.traits().reportsFollow || inState() >= longestStop) return closePorts();
  station_.requestLoad();
}

void Session::closePorts() {
  station_.close();
  enter(State::closing);
}

void Session::closingTick() {
  if (station_.isClosed() || inState() >= closingTime) end();
}

void Session::end() {
  timer_->invalidate();
  if (!station_.isClosed()) {
    journal_.note(Role::session, Kind::failure, "unclosed", {}, "a port did not close");
  }
  if (result_ == succeeded) {
    for (const std::string& line : expectations_.disappointments()) {
      journal_.note(Role::session, Kind::event, "missing", {}, line);
      setResult(somethingMissing, line);
    }
  }
  journal_.note(Role::session, Kind::event, "over", {}, "the session is over");
  enter(State::over);
}

void Session::fail(ExitCode code, const std::string& reason) {
  setResult(code, reason);
  journal_.note(Role::session, Kind::failure, "failed", {}, reason);
  closePorts();
}

void Session::setResult(ExitCode code, const std::string& reason) {
  if (result_ != succeeded) return;
  result_ = code;
  reason_ = reason;
}

}  // namespace tarsil::cli
