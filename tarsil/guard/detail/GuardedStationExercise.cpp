// What the exercise device is told, what it says, and how it is stopped.

#include <unistd.h>

#include <chrono>
#include <set>
#include <string>
#include <utility>

#include "tarsil/guard/detail/GuardedStationImplementation.hpp"
#include "tarsil/guard/detail/StopLine.hpp"
#include "tarsil/guard/watch/lastWatch.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Verdict = detail::LoadJudge::Verdict;

// Polls without a report until something is done about it.
constexpr int silentPolls = 3;
constexpr int reopeningPolls = 6;
constexpr Duration longestSilence = 10s;

/// Polls that are answered later than this many beats are taken for lost.
constexpr std::size_t mostOpenPolls = 3;

// Reports in a row that it takes; one alone may be a changed byte.
constexpr int zerosThatAreStandstill = 2;
constexpr int reportsThatExceed = 3;
constexpr int reportsThatStand = 2;
constexpr int reportsThatDiffer = 2;

constexpr Duration longestStop = 15s;
/// What a model that reports nothing is told to stop.
constexpr int blindStops = 3;

/// What counts as the second between two steps: beats come a second apart, but for the moments that the
/// machine takes to wake.
constexpr Duration stepTime = 950ms;

/// A load that does not take hold is told again after this.
constexpr Duration retelling = 3s;
/// No refusal for this long: they are over.
constexpr Duration refusalsAreOver = 5s;

/// The watcher waits a little longer than the station's own thread: it cannot hear the device.
constexpr Duration watcherMargin = 250ms;

/// The devices of this process that were not seen to stop, by the identity of their line: what one station
/// could not confirm, the next one on that line goes on with. Main thread.
std::set<std::string>& unseenStops() {
  static std::set<std::string> lines;
  return lines;
}

bool isZero(const Load& load) {
  return load.speed == 0 && load.power == 0;
}

}  // namespace

// Opening

void GuardedStation::Implementation::openExercise(const std::shared_ptr<const SerialDevice>& device) {
  const auto weak = weak_from_this();
  auto listener = driverListener(Source::exercise);
  listener.treadmillLoad = [this](float speed, float grade) {
    loadReported({.speed = speed / facts_.speedUnit, .grade = grade / facts_.gradeUnit});
  };
  listener.power = [this](float power) { loadReported({.power = power}); };
  listener.pedalRate = [this](float rate) {
    pedalRate_ = {rate, Clock::now()};
    emit(Source::exercise, PedalRateMeasured{rate});
  };
  listener.refusal = [this](const DeviceRefused& refusal, bool atMachine) { refused(refusal, atMachine); };
  driver_.emplace(model_, std::move(listener));

  line_ = std::make_shared<detail::Line>(device, *model_.makeDevice());
  auto lines = lineListener(Source::exercise);
  lines.opened = [weak](const auto& port) {
    if (const auto self = weak.lock()) self->exerciseOpened(port);
  };
  lines.received = [weak](const Bytes& bytes) {
    if (const auto self = weak.lock()) self->driver_->receive(bytes);
  };
  lines.lost = [weak] {
    if (const auto self = weak.lock()) self->exerciseLost();
  };
  line_->setListener(std::move(lines));
  asked(Source::exercise, Command::open);
  takeLineOver();
  line_->open();
}

void GuardedStation::Implementation::exerciseOpened(const std::shared_ptr<ORSSerialPort>& port) {
  driver_->bind(port);
  stopLine_->set(port);
  polls_.clear();
  unanswered_ = 0;
  zeros_ = 0;
  clear(AlarmKind::portNotOpened);
  clear(AlarmKind::lineLost);
  if (hostWatch_->isArmed()) {
    // One line has one watcher, and the present one has a line that is gone.
    hostWatch_->releaseWatcher();
    Answer answer = Answer::accepted();
    auto watcher = startWatcher(answer);
    if (!answer.isAccepted())
      raise(AlarmKind::watcherLost, "no watcher for the new line: " + answer.reason());
    hostWatch_->setWatcher(std::move(watcher));
  }
  // Whatever happened while the line was away: the stop comes first.
  if (state_ == State::stopping) return sendStop();
  if (unseenStops().contains(line_->identity())) {
    raise(AlarmKind::notSeenToStop, model_.name + " was not seen to stop before its port was closed");
    return beginStop();
  }
  if (std::exchange(earlierHostDied_, false)) beginStop();
}

/// A watcher that still stops the belt of a dead host has the line locked, and hands it over with its duty.
void GuardedStation::Implementation::takeLineOver() {
  if (!plan_.watcher) return;
  const auto report = takeLineFromWatcher(line_->identity());
  if (!report || toldWatch_ == report->startedAt) return;
  const bool isUnknown = report->outcome == WatchReport::Outcome::unknown;
  if (!isUnknown && report->cause == WatchReport::Cause::none) return;
  toldWatch_ = report->startedAt;
  earlierHostDied_ = true;
  emit(Source::station, WatcherActed{textOf(*report)});
}

void GuardedStation::Implementation::exerciseLost() {
  driver_->bind(nullptr);
  stopLine_->set(nullptr);
  raise(AlarmKind::lineLost, "the port of the exercise device is gone");
  if (state_ == State::running) protectiveStop(AlarmKind::lineLost);
}

// Asking and hearing

void GuardedStation::Implementation::poll() {
  if (!reportsLoad() || !line_->isOpen()) return;
  if (pressures_ && pressures_->holdsLine()) return;
  ++unanswered_;
  if (polls_.size() == mostOpenPolls) polls_.pop_front();
  polls_.push_back(Clock::now());
  asked(Source::exercise, Command::requestLoad);
  driver_->command([](KivStressDevice& driver) { driver.requestLoad(); });
}

void GuardedStation::Implementation::loadReported(const Load& load) {
  const Clock::Instant now = Clock::now();
  // Reports are taken to answer the oldest open poll: so none is ever taken for newer than it is.
  const Clock::Instant measuredAfter = polls_.empty() ? Clock::Instant{} : polls_.front();
  if (!polls_.empty()) polls_.pop_front();
  unanswered_ = 0;
  silentSince_.reset();
  load_ = {load, now};
  clear(AlarmKind::exerciseSilent);
  emit(Source::exercise, LoadMeasured{load});

  const bool isNews = !stopAskedAt_ || measuredAfter > *stopAskedAt_;
  zeros_ = isZero(load) && isNews ? zeros_ + 1 : 0;
  if (state_ == State::running) judge(load);
  if (state_ == State::stopping && isSeenStanding()) standstillSeen();
}

bool GuardedStation::Implementation::isSeenStanding() const {
  return zeros_ >= zerosThatAreStandstill;
}

void GuardedStation::Implementation::judge(const Load& load) {
  const Clock::Instant now = Clock::now();
  const Verdict verdict = judge_.judge(load, now);
  exceeding_ = verdict == Verdict::exceeds ? exceeding_ + 1 : 0;
  standing_ = verdict == Verdict::stands ? standing_ + 1 : 0;
  differing_ = verdict == Verdict::differs ? differing_ + 1 : 0;

  if (exceeding_ >= reportsThatExceed) {
    raise(AlarmKind::fasterThanAsked, model_.name + " does more than it was asked for");
    return protectiveStop(AlarmKind::fasterThanAsked);
  }
  if (standing_ >= reportsThatStand) {
    raise(AlarmKind::stoppedAtMachine, model_.name + " stands, although it should move");
    return protectiveStop(AlarmKind::stoppedAtMachine);
  }
  if (differing_ >= reportsThatDiffer) {
    raise(AlarmKind::disagreement, model_.name + " does not do what it was asked for");
  }
  if (verdict == Verdict::agrees) clear(AlarmKind::disagreement);

  // A lost command is told again; but to a belt that slows down by itself nobody tells anything.
  const bool slowsDown = load.speed < lastJudged_.speed || load.power < lastJudged_.power;
  const bool lowers = verdict == Verdict::exceeds;
  const bool lost = verdict == Verdict::differs && !slowsDown && !isZero(load);
  lastJudged_ = load;
  if ((lowers || lost) && now - lastTold_ >= retelling) command(commanded_);
}

void GuardedStation::Implementation::judgeSilence() {
  const Clock::Instant now = Clock::now();
  if (refusedAt_ && now - *refusedAt_ > refusalsAreOver) {
    refusedAt_.reset();
    clear(AlarmKind::deviceRefuses);
  }
  if (!reportsLoad()) return;
  if (unanswered_ >= silentPolls && !silentSince_) {
    silentSince_ = load_ ? load_->at : now;
    driver_->renew();
    polls_.clear();
  }
  if (!silentSince_) return;
  if (load_ || state_ == State::running) {
    raise(AlarmKind::exerciseSilent, model_.name + " does not answer");
  }
  if (state_ == State::running && now - *silentSince_ >= longestSilence) {
    protectiveStop(AlarmKind::exerciseSilent);
  }
  // It goes on while the line is opened anew: another program may take it, and keep it.
  if (unanswered_ < reopeningPolls || !line_->isOpen()) return;
  hostWatch_->releaseWatcher();  // it has the line, too, and would keep it locked
  line_->reopen();
}

void GuardedStation::Implementation::refused(const DeviceRefused& refusal, bool atMachine) {
  emit(Source::exercise, refusal);
  if (state_ != State::running) return;
  if (atMachine) {
    raise(AlarmKind::stoppedAtMachine, model_.name + " refuses: it was stopped at the machine");
    return protectiveStop(AlarmKind::stoppedAtMachine);
  }
  refusedAt_ = Clock::now();
  raise(AlarmKind::deviceRefuses, model_.name + " refuses a command: " + refusal.details);
}

// Walking the load

bool GuardedStation::Implementation::mayRaise() const {
  if (!reportsLoad()) return true;
  return unanswered_ < silentPolls && !silentSince_ && standing_ == 0 && differing_ == 0;
}

void GuardedStation::Implementation::walk() {
  const Clock::Instant now = Clock::now();
  if (pressures_ && pressures_->holdsLine()) return;
  if (now - lastStep_ < stepTime) return;
  Load next = rules_.step(commanded_, target_);
  if (!mayRaise()) next = detail::LoadRules::onlyLower(commanded_, next);
  if (next == commanded_) return;
  lastStep_ = now;
  command(next);
}

void GuardedStation::Implementation::command(const Load& load) {
  const Clock::Instant now = Clock::now();
  lastTold_ = now;
  if (load != commanded_) judge_.told(load, now);
  commanded_ = load;
  asked(Source::exercise, Command::setLoad, load);
  const float value = model_.kind == DeviceKind::treadmill ? load.speed : load.power;
  driver_->command([&](KivStressDevice& driver) { driver.setLoad(value, load.grade); });
}

// Stopping

void GuardedStation::Implementation::protectiveStop(AlarmKind cause) {
  if (cause_) return;
  cause_ = cause;
  emit(Source::station, ProtectiveStop{cause});
  beginStop();
}

void GuardedStation::Implementation::beginStop() {
  if (state_ == State::closing || state_ == State::closed) return;
  if (state_ != State::stopping) {
    state_ = State::stopping;
    stopsSent_ = 0;
  }
  // Its second command would follow the stop, and fetch an old pressure.
  if (isCuffBuiltIn() && pressures_->holdsLine() && !pressures_->isExpected()) pressures_->beginAgain();
  stopAskedAt_ = Clock::now();
  zeros_ = 0;
  target_ = {};
  commanded_ = {};
  sendStop();
}

void GuardedStation::Implementation::sendStop() {
  if (!line_->isOpen()) return;
  ++stopsSent_;
  asked(Source::exercise, Command::stop);
  // The command itself ends the ramp of some belts at once: they are slowed down until they stand.
  if (slowsDownFirst()) return stopLine_->send();
  driver_->command([this](KivStressDevice& driver) {
    if (facts_.speed.carriesZero() && facts_.grade.carriesZero()) driver.setLoad(0, 0);
    driver.stopStressDevice();
  });
}

void GuardedStation::Implementation::continueStop() {
  if (!reportsLoad()) {
    if (stopsSent_ < blindStops) return sendStop();
    raise(AlarmKind::unseenStop, model_.unseen());
    emit(Source::exercise, StandstillUnseen{});
    return exerciseIsOver();
  }
  sendStop();
}

void GuardedStation::Implementation::judgeStop() {
  if (state_ != State::stopping || !reportsLoad() || Clock::now() - *stopAskedAt_ < longestStop) return;
  if (isOn(AlarmKind::notSeenToStop)) return;
  unseenStops().insert(line_->identity());
  raise(AlarmKind::notSeenToStop, model_.name + " was not seen to stop");
}

void GuardedStation::Implementation::standstillSeen() {
  for (const Bytes& frame : stopFrames_.standing) {
    if (const auto port = line_->port()) port->sendData(frame);
  }
  unseenStops().erase(line_->identity());
  clear(AlarmKind::notSeenToStop);
  emit(Source::exercise, StandstillSeen{});
  exerciseIsOver();
}

void GuardedStation::Implementation::exerciseIsOver() {
  if (hostWatch_->isArmed()) {
    const bool returned = hostWatch_->isBack();
    hostWatch_->disarm();
    if (returned) emit(Source::station, HostReturned{});
  }
  // What an earlier host left is dealt with: the next one is not told of it again.
  if (toldWatch_) forgetWatch(line_->identity());
  state_ = State::ready;
  updateOpening();
  if (wantsToClose_) closeLines();
}

std::unique_ptr<Watcher> GuardedStation::Implementation::startWatcher(Answer& answer) {
  if (!plan_.watcher) return nullptr;
  // Two rounds of the stop a second apart would do for a line that works; a line that does not gets a minute.
  constexpr int repetitions = 60;
  Watcher::Plan plan{.line = line_->identity(),
                     .stop = {},
                     .heartbeat = plan_.heartbeat + watcherMargin,
                     .program = *plan_.watcher};
  Bytes joined;
  for (const Bytes& frame : stopFrames_.now) joined.insert(joined.end(), frame.begin(), frame.end());
  plan.stop.push_back({.bytes = std::move(joined), .every = 1s, .times = repetitions});
  for (const Bytes& frame : stopFrames_.standing)
    plan.stop.push_back({.bytes = frame, .every = 1s, .times = 3});

  const int line = line_->port()->duplicateDescriptor();
  auto started = Watcher::start(line, plan);
  ::close(line);
  answer = started.answer;
  return std::move(started.watcher);
}

}  // namespace tarsil
