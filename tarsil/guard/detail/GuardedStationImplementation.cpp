#include "tarsil/guard/detail/GuardedStationImplementation.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tarsil/guard/detail/StopLine.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr Duration beatTime = 1s;

/// A stop that was not seen for this long keeps no host that wants to close.
constexpr Duration longestClosing = 20s;

/// A load that was measured every second is old after this.
constexpr Duration loadRhythm = 3s;
/// A pressure speaks for the stage that it was taken in.
constexpr Duration pressureRhythm = 180s;

}  // namespace

GuardedStation::Implementation::Implementation(Plan plan, const DeviceModel& exercise,
                                               std::optional<DeviceModel> monitor,
                                               std::optional<DeviceModel> oximeter, detail::StopFrames stop,
                                               std::shared_ptr<JournalWriter> journal)
    : plan_(std::move(plan)),
      model_(exercise),
      facts_(*model_.exercise),
      monitorModel_(std::move(monitor)),
      oximeterModel_(std::move(oximeter)),
      journal_(std::move(journal)),
      rules_(model_, plan_.limits),
      stopFrames_(std::move(stop)),
      stopLine_(std::make_shared<StopLine>(stopFrames_.now)) {}

GuardedStation::Implementation::~Implementation() {
  abandon();
}

void GuardedStation::Implementation::abandon() {
  listeners_.clear();
  if (beat_) beat_->invalidate();
  if (isCuffBuiltIn() && isMeasuringPressure()) stopLine_->send();
  const bool isOpen = state_ != State::closing && state_ != State::closed;
  if (journal_ && isOpen) journal_->write({Clock::now(), Source::station, Asked{.command = Command::close}});
  if (hostWatch_->isArmed()) stopLine_->send();
  if (hostWatch_->isArmed()) hostWatch_->leaveToWatcher();
  stopLine_->set(nullptr);
  closeLines();
  if (journal_) journal_->flush();
}

// Opening

void GuardedStation::Implementation::begin(const Found& found) {
  beat_ = Timer::scheduled(beatTime, true, [weak = weak_from_this()](Timer&) {
    if (const auto self = weak.lock()) self->beat();
  });
  openExercise(found.exercise);
  if (found.monitor) openMonitor(found.monitor);
  if (found.oximeter) openOximeter(found.oximeter);
  if (plan_.makeCentral) {
    bluetooth_.emplace(plan_.makeCentral(), [weak = weak_from_this()](float saturation) {
      if (const auto self = weak.lock()) self->saturationReported(saturation);
    });
  }
  preparePressures();
}

detail::Line::Listener GuardedStation::Implementation::lineListener(Source source) {
  const auto weak = weak_from_this();
  return {.event =
              [weak, source](Clock::Instant at, Event::What what) {
                const auto self = weak.lock();
                if (!self) return;
                std::optional<LineFailed> failure;
                if (const auto* failed = std::get_if<LineFailed>(&what)) failure = *failed;
                self->emitAt(at, source, std::move(what));
                if (failure) self->lineFailed(source, *failure);
              },
          .written =
              [journal = journal_, source](Clock::Instant at, const Bytes& bytes) {
                if (journal) journal->write({at, source, Sent{bytes}});
              },
          .opened = {},
          .received = {},
          .lost = {}};
}

detail::GuardedDriver::Listener GuardedStation::Implementation::driverListener(Source source) {
  return {.event =
              [this, source](Event::What what) {
                if (std::holds_alternative<MonitorReady>(what)) monitorReady();
                emit(source, std::move(what));
              },
          .treadmillLoad = [](float, float) {},
          .power = [](float) {},
          .pedalRate = [](float) {},
          .pressure = [this](Pressure pressure, std::int64_t status) { pressureReported(pressure, status); },
          .saturation = [](float) {},
          .refusal = [this, source](const DeviceRefused& refusal, bool) { emit(source, refusal); },
          .acknowledged = [this, source] { emit(source, Acknowledged{}); }};
}

void GuardedStation::Implementation::lineFailed(Source source, const LineFailed& failure) {
  if (source != Source::exercise) {
    return raise(source == Source::monitor ? AlarmKind::monitorLost : AlarmKind::oximeterLost, failure.text);
  }
  // On an open line a failed call is told, and what follows of it is seen by the other rules.
  if (line_->isOpen()) return;
  raise(AlarmKind::portNotOpened, failure.text);
  if (failure.reason == LineFailed::Reason::busy) takeLineOver();  // the next beat tries again
}

void GuardedStation::Implementation::updateOpening() {
  const auto isOpen = [](const auto& line) { return !line || line->isOpen(); };
  const bool allOpen = line_->isOpen() && isOpen(monitorLine_) && isOpen(oximeterLine_);
  if (state_ == State::opening && allOpen) state_ = State::ready;
  if (state_ == State::ready && !allOpen) state_ = State::opening;
}

// The beat

void GuardedStation::Implementation::beat() {
  const auto self = shared_from_this();
  if (state_ == State::closed) return;
  if (!std::exchange(hasBeaten_, true)) early_.clear();
  if (state_ != State::closing && !line_->isOpen()) takeLineOver();
  for (const auto& line : {line_, monitorLine_, oximeterLine_}) {
    if (line && state_ != State::closing) line->tick();
  }
  if (state_ == State::closing) return finishClosing();
  updateOpening();
  lookAfterJournal();
  lookAfterHost();
  lookAfterAuxiliaries();
  // What begins a measurement starts some ergometers, too: never against a stop.
  if (pressures_ && !(isCuffBuiltIn() && state_ == State::stopping)) pressures_->tick();
  if (state_ == State::stopping && wantsToClose_ && Clock::now() - *stopAskedAt_ >= longestClosing) {
    return leave();
  }
  judgeStop();
  judgeSilence();
  if (!line_->isOpen()) {
    // A port that is to be opened anew and does not close still sends.
    if (state_ == State::stopping) stopLine_->send();
    return;
  }
  if (state_ == State::running) walk();
  if (state_ == State::stopping) continueStop();
  poll();
}

/// The exercise goes on without: what a patient needs is no file.
void GuardedStation::Implementation::lookAfterJournal() {
  if (!journal_) return;
  if (auto trouble = journal_->trouble()) {
    raise(AlarmKind::journalFailed, std::move(*trouble));
  } else {
    clear(AlarmKind::journalFailed);
  }
}

void GuardedStation::Implementation::lookAfterHost() {
  if (!hostWatch_->isArmed()) return;
  if (hostWatch_->hasLostWatcher() && !isOn(AlarmKind::watcherLost)) {
    raise(AlarmKind::watcherLost,
          "the watcher process is gone: nobody would stop the exercise if this host died");
  }
  if (!hostWatch_->wasMissed() && !hostWatch_->hasWatcherActed()) return;
  if (!isOn(AlarmKind::hostFrozen)) {
    raise(AlarmKind::hostFrozen, "the host did not say that it lives; the stop was sent without it");
    if (hostWatch_->hasWatcherActed()) {
      emit(Source::station, WatcherActed{"the watcher process has sent the stop in place of the host"});
    }
    protectiveStop(AlarmKind::hostFrozen);
  }
}

// Telling

void GuardedStation::Implementation::onEvent(std::function<void(const Event&)> listener) {
  const auto self = shared_from_this();
  const auto added = listeners_.emplace_back(std::make_shared<const Listener>(std::move(listener)));
  const auto early = early_;
  for (const Event& event : early) (*added)(event);
}

void GuardedStation::Implementation::emitAt(Clock::Instant at, Source source, Event::What what) {
  const auto self = shared_from_this();
  const Event event{at, source, std::move(what)};
  // What was sent stands there already, written by the thread that sent it: the main one may be frozen.
  if (journal_ && !std::holds_alternative<Sent>(event.what)) journal_->write(event);
  if (journal_ && state_ == State::closed) journal_->flush();  // it may be read now
  if (!hasBeaten_) early_.push_back(event);
  // A listener may add another, or drop them all.
  for (std::size_t i = 0; i < listeners_.size(); ++i) {
    const auto listener = listeners_[i];
    (*listener)(event);
  }
}

void GuardedStation::Implementation::asked(Source source, Command command, const Load& load) {
  emit(source, Asked{command, load});
}

Answer GuardedStation::Implementation::refuse(Command command, Answer answer) {
  emit(Source::station, Refused{command, answer.code(), answer.reason()});
  return answer;
}

void GuardedStation::Implementation::raise(AlarmKind kind, std::string text) {
  if (!alarms_.insert(kind).second) return;
  emit(Source::station, AlarmRaised{kind, std::move(text)});
  const bool isAuxiliary = kind == AlarmKind::monitorLost || kind == AlarmKind::oximeterLost;
  if (isAuxiliary && plan_.auxiliariesAreVital && state_ == State::running) protectiveStop(kind);
}

void GuardedStation::Implementation::clear(AlarmKind kind) {
  if (alarms_.erase(kind) > 0) emit(Source::station, AlarmCleared{kind});
}

// Commands of the host

Answer GuardedStation::Implementation::readiness() const {
  using Code = Answer::Code;
  if (state_ == State::closing || state_ == State::closed) {
    return Answer::refused(Code::closed, "the station is closed");
  }
  if (state_ == State::running || state_ == State::stopping) {
    return Answer::refused(Code::alreadyRunning, state_ == State::running ? "the exercise runs already"
                                                                          : "the exercise is being stopped");
  }
  if (!facts_.canBeDriven()) {
    return Answer::refused(Code::notDrivable,
                           model_.name + " cannot be driven: none of its frames carries a load");
  }
  for (const auto& line : {line_, monitorLine_, oximeterLine_}) {
    if (line && !line->isOpen()) return Answer::refused(Code::notOpen, line->name() + " is not open");
  }
  if (cause_) {
    return Answer::refused(
        Code::latched, std::string("a protective stop is latched (") + name(*cause_) + "): reset it first");
  }
  if (isCuffBuiltIn() && pressures_->holdsLine()) {
    // Between its commands the start of an Ergosana would begin another measurement.
    return Answer::refused(Code::alreadyMeasuring, "a blood pressure is just being asked for");
  }
  if (reportsLoad()) {
    if (!load_ || Clock::now() - load_->at > loadRhythm) {
      return Answer::refused(Code::notHeard, model_.name + " has not answered lately");
    }
    if (!isSeenStanding())
      return Answer::refused(Code::notSeenToStand, model_.name + " has not been seen to stand");
  }
  for (const AlarmKind kind : alarms_) {
    if (priorityOf(kind) == Priority::low) continue;
    return Answer::refused(Code::alarmActive, std::string("an alarm is on: ") + name(kind));
  }
  return Answer::accepted();
}

Answer GuardedStation::Implementation::start() {
  Answer answer = readiness();
  if (!answer.isAccepted()) return refuse(Command::start, answer);
  auto watcher = startWatcher(answer);
  if (!answer.isAccepted()) return refuse(Command::start, answer);

  clear(AlarmKind::unseenStop);
  clear(AlarmKind::watcherLost);
  const Clock::Instant now = Clock::now();
  state_ = State::running;
  target_ = {};
  commanded_ = {};
  judge_.begin(now);
  lastStep_ = now - beatTime;
  zeros_ = exceeding_ = standing_ = differing_ = 0;
  lastJudged_ = {};
  hostWatch_->arm(
      plan_.heartbeat, [line = stopLine_] { line->send(); }, std::move(watcher));
  asked(Source::exercise, Command::start);
  driver_->command([](KivStressDevice& driver) { driver.startDeivce(); });
  emit(Source::station, Started{});
  return answer;
}

Answer GuardedStation::Implementation::setLoad(const Load& load) {
  using Code = Answer::Code;
  Answer answer = check(load);
  if (answer.isAccepted() && cause_) {
    answer =
        Answer::refused(Code::latched, std::string("a protective stop is latched (") + name(*cause_) + ")");
  }
  if (answer.isAccepted() && state_ != State::running) {
    answer = Answer::refused(Code::notRunning, "the exercise does not run");
  }
  if (!answer.isAccepted()) return refuse(Command::setLoad, answer);
  target_ = load;
  walk();
  return answer;
}

Answer GuardedStation::Implementation::stop() {
  if (state_ == State::closing || state_ == State::closed) {
    return refuse(Command::stop, Answer::refused(Answer::Code::closed, "the station is closed"));
  }
  if (state_ != State::stopping) emit(Source::station, Stopping{});
  beginStop();
  return Answer::accepted();
}

Answer GuardedStation::Implementation::reset() {
  using Code = Answer::Code;
  Answer answer = Answer::accepted();
  const bool stands = !reportsLoad() || isSeenStanding();
  if (!cause_) {
    answer = Answer::refused(Code::notLatched, "no protective stop is latched");
  } else if (!line_->isOpen()) {
    answer = Answer::refused(Code::causeRemains, line_->name() + " is not open");
  } else if (state_ == State::stopping || !stands) {
    answer = Answer::refused(Code::causeRemains, model_.name + " has not been seen to stand");
  } else if ((*cause_ == AlarmKind::monitorLost || *cause_ == AlarmKind::oximeterLost) && isOn(*cause_)) {
    answer = Answer::refused(Code::causeRemains, std::string("the alarm is still on: ") + name(*cause_));
  }
  if (!answer.isAccepted()) return refuse(Command::reset, answer);
  asked(Source::station, Command::reset);
  cause_.reset();
  for (const AlarmKind kind : {AlarmKind::fasterThanAsked, AlarmKind::stoppedAtMachine, AlarmKind::hostFrozen,
                               AlarmKind::disagreement, AlarmKind::deviceRefuses, AlarmKind::watcherLost}) {
    clear(kind);
  }
  emit(Source::station, WasReset{});
  return answer;
}

void GuardedStation::Implementation::stopNow() {
  stopLine_->send();
  DispatchQueue::main().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) static_cast<void>(self->stop());
  });
}

// Closing

void GuardedStation::Implementation::close() {
  if (state_ == State::closing || state_ == State::closed) return;
  const bool mayMove = state_ == State::running || state_ == State::stopping;
  asked(Source::station, Command::close);
  if (mayMove && state_ != State::stopping) beginStop();
  wantsToClose_ = true;
  if (!mayMove && isMeasuringPressure()) builtInCuffIsDone();
  if (!mayMove) closeLines();
}

/// Nobody saw it stand, and the host wants to go: the watcher, where there is one, goes on with the stop.
void GuardedStation::Implementation::leave() {
  if (hostWatch_->isArmed()) hostWatch_->leaveToWatcher();
  closeLines();
}

void GuardedStation::Implementation::closeLines() {
  if (state_ == State::closing || state_ == State::closed) return;
  state_ = State::closing;
  stopLine_->set(nullptr);
  if (driver_) driver_->bind(nullptr);
  if (monitor_) monitor_->bind(nullptr);
  if (oximeter_) oximeter_->bind(nullptr);
  if (bluetooth_) bluetooth_->close();
  for (const auto& line : {line_, monitorLine_, oximeterLine_}) {
    if (line) line->close();
  }
}

void GuardedStation::Implementation::finishClosing() {
  for (const auto& line : {line_, monitorLine_, oximeterLine_}) {
    if (line && !line->isClosed()) return;
  }
  state_ = State::closed;
  beat_->invalidate();
  if (!journal_) return;
  journal_->flush();
  lookAfterJournal();
}

// Readings

template <class Value>
Reading<Value> GuardedStation::Implementation::readingOf(bool isReported,
                                                         const std::optional<Heard<Value>>& heard,
                                                         Duration rhythm, const std::string& source) {
  using Reported = typename Reading<Value>::State;
  if (!isReported) return {};
  if (!heard) return {.state = Reported::never, .value = {}, .at = {}, .source = source};
  const bool isFresh = Clock::now() - heard->at <= rhythm;
  return {.state = isFresh ? Reported::fresh : Reported::stale,
          .value = heard->value,
          .at = heard->at,
          .source = source};
}

Readings GuardedStation::Implementation::readings() const {
  const auto part = [this](float Load::*quantity) -> std::optional<Heard<float>> {
    if (!load_) return std::nullopt;
    return Heard<float>{load_->value.*quantity, load_->at};
  };
  const bool isTreadmill = model_.kind == DeviceKind::treadmill;
  const std::string& pressureSource = monitorModel_ ? monitorModel_->name : model_.name;
  return {.speed = readingOf(reportsLoad() && isTreadmill, part(&Load::speed), loadRhythm, model_.name),
          .grade = readingOf(reportsLoad() && isTreadmill, part(&Load::grade), loadRhythm, model_.name),
          .power = readingOf(reportsLoad() && !isTreadmill, part(&Load::power), loadRhythm, model_.name),
          .pedalRate = readingOf(facts_.reportsPedalRate, pedalRate_, loadRhythm, model_.name),
          .pressure = readingOf(measuresPressure(), pressure_, pressureRhythm, pressureSource),
          .saturation = readingOf(hasOximeter(), saturation_, loadRhythm,
                                  oximeterModel_ ? oximeterModel_->name : std::string())};
}

}  // namespace tarsil
