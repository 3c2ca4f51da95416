#include "tests/faults/Walk.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {
namespace {

constexpr Load slow{.speed = 2};
constexpr Load slower{.speed = 1};
/// How long the plug lies on the floor.
constexpr int roundsUnplugged = 5;

}  // namespace

Walk::Walk(Plan plan)
    : plan_(std::move(plan)),
      rules_(*standardCatalogue().modelNamed("LodeTreadmill"), Limits{},
             [this](const std::string& what) { violations_.push_back(what); }) {}

void Walk::goRound() {
  if (isOver()) return;
  if (!station_) open();
  if (!station_) return;
  station_->alive();
  rules_.check(*station_);
  ++roundsOfStep_;
  switch (step_) {
    case Step::walk:
      return bringTo(slow, "walked", plan_.pullPlug ? Step::losePlug : Step::stop);
    case Step::losePlug:
      return losePlug();
    case Step::walkAgain:
      return bringTo(slower, "walked again", Step::stop);
    case Step::stop:
      return stop();
    case Step::close:
      return close();
    case Step::over:
      return;
  }
}

void Walk::giveUp() {
  if (step_ == Step::losePlug && roundsOfStep_ > 0 && roundsOfStep_ < roundsUnplugged) plan_.putPlugBack();
  if (step_ >= Step::close) return;
  step_ = station_ ? Step::close : Step::over;
  roundsOfStep_ = 0;
}

void Walk::open() {
  journals_.push_back(plan_.journals / (std::to_string(journals_.size()) + ".jsonl"));
  const auto opening = GuardedStation::open({.exercise = {"LodeTreadmill", plan_.exercise},
                                             .oximeter = plan_.oximeter,
                                             .heartbeat = plan_.heartbeat,
                                             .watcher = plan_.watcher,
                                             .journal = JournalFile{.path = journals_.back()}});
  rules_.beginAnew();
  if (!opening) {
    ++reports_["not opened: " + opening.answer().reason()];
    journals_.pop_back();
    return;
  }
  station_ = opening.station();
  station_->onEvent([this](const Event& event) { hear(event); });
}

void Walk::hear(const Event& event) {
  rules_.hear(event);
  const std::string source = std::string(name(event.source)) + " ";
  if (const auto* failed = std::get_if<LineFailed>(&event.what))
    ++reports_[source + "failed: " + std::to_string(failed->error)];
  if (std::holds_alternative<LineVanished>(event.what)) ++reports_[source + "vanished"];
  if (const auto* alarm = std::get_if<AlarmRaised>(&event.what))
    ++reports_[std::string("alarm: ") + name(alarm->kind)];
  if (const auto* refused = std::get_if<Refused>(&event.what)) ++reports_["refused: " + refused->reason];
  if (const auto* stop = std::get_if<ProtectiveStop>(&event.what)) {
    ++reports_[std::string("stopped: ") + name(stop->cause)];
    mustStandSince_ = event.at;
  }
  if (std::holds_alternative<StandstillSeen>(event.what)) mustStandSince_.reset();
}

void Walk::bringTo(const Load& load, const char* word, Step next) {
  if (station_->isLatched()) {
    const auto speed = station_->readings().speed;
    if (station_->state() == GuardedStation::State::ready && speed.isFresh() && speed.value == 0)
      static_cast<void>(station_->reset());
    return;
  }
  const bool isReady = station_->state() == GuardedStation::State::ready;
  // Without a journal nothing new is started; another station has another one.
  if (isReady && hasLostJournal()) return station_.reset();
  if (station_->readiness().isAccepted()) static_cast<void>(station_->start());
  if (station_->state() != GuardedStation::State::running) return;
  if (station_->target() != load) static_cast<void>(station_->setLoad(load));
  const auto speed = station_->readings().speed;
  if (speed.isFresh() && speed.value == load.speed) finish(word, next);
}

bool Walk::hasLostJournal() const {
  const auto alarms = station_->alarms();
  return std::find(alarms.begin(), alarms.end(), AlarmKind::journalFailed) != alarms.end();
}

void Walk::losePlug() {
  if (roundsOfStep_ == 1) plan_.pullPlug();
  if (roundsOfStep_ == roundsUnplugged) plan_.putPlugBack();
  if (roundsOfStep_ > roundsUnplugged && station_->isLatched()) finish("lost", Step::walkAgain);
}

void Walk::stop() {
  if (roundsOfStep_ == 1) static_cast<void>(station_->stop());
  const auto state = station_->state();
  if (state == GuardedStation::State::ready || state == GuardedStation::State::opening)
    finish("stood", Step::close);
}

void Walk::close() {
  if (roundsOfStep_ == 1) station_->close();
  if (station_->isClosed()) finish("closed", Step::over);
}

void Walk::finish(const char* word, Step next) {
  done_.emplace_back(word);
  step_ = next;
  roundsOfStep_ = 0;
}

}  // namespace tarsil
