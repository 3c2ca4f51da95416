#include "tests/guard/RandomSession.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <utility>

#include "tarsil/station/standardCatalogue.hpp"
#include "tests/guard/GuardedSession.hpp"
#include "tests/guard/StationRules.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Button = simulators::SimulatedDevice::Button;

/// How often the rules are checked.
constexpr Duration step = 100ms;

bool isAskedToMove(const simulators::Truth& truth) {
  return truth.isRunning && (truth.asked.speed > 0 || truth.asked.power > 0);
}

/// What a host that does not know what it wants does, over a cable that does not know either.
class Player {
 public:
  explicit Player(std::uint64_t seed) : random_(seed) {}

  RandomSession play();

 private:
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
  bool oneIn(std::uint32_t chances) { return below(chances) == 0; }
  void tell(std::string line) {
    result_.story.push_back(std::to_string(std::chrono::duration<double>(passed_).count()) + " s: " + line);
  }
  void violate(std::string what) {
    tell("VIOLATION: " + what);
    result_.violations.push_back(std::move(what));
  }

  GuardedSession::Setting randomSetting();
  std::string randomCable();
  Load randomLoad();
  void hostActs();
  void cableActs();
  void machineActs();
  void advance();

  void hear(const Event& event);
  void hearStandstill();
  void check();
  void checkStop();

  std::mt19937_64 random_;
  RandomSession result_;
  GuardedSession::Setting setting_;
  std::optional<DeviceModel> model_;
  std::unique_ptr<GuardedSession> session_;
  Duration passed_{};

  // What the rules need to know.
  std::optional<StationRules> rules_;
  /// When the protective stop was due, while it was not seen to take hold.
  std::optional<Duration> stopDue_;
  bool commandsAreMuted_ = false;
  bool isUnplugged_ = false;
  bool machineWasTouched_ = false;
  int plugs_ = 0;
  std::optional<Duration> lastFault_;
  Duration frozenUntil_{};
  std::optional<std::uint32_t> dropAfter_;
};

std::string Player::randomCable() {
  static const std::array lines{"wire",
                                "adapter",
                                "latency=1ms,packet=62",
                                "latency=16ms,packet=8",
                                "adapter,delay=30ms",
                                "adapter,split=1/5",
                                "adapter,join=1/5"};
  std::string cable = lines.at(below(lines.size()));
  if (oneIn(3)) cable += ",replies.lose=1/100";
  if (oneIn(3)) cable += ",replies.change=1/200";
  if (oneIn(3)) cable += ",replies.add=1/200";
  if (oneIn(3)) cable += ",replies.double=1/200";
  // What a damaged command without a check means is known to the machine alone; a frame with one is dropped.
  if (setting_.exercise == "LodeTreadmill" && oneIn(3)) cable += ",commands.lose=1/100,commands.change=1/300";
  return cable + ",seed=" + std::to_string(below(1000000) + 1);
}

GuardedSession::Setting Player::randomSetting() {
  static const std::array models{"LodeTreadmill",   "LodeOEMTreadmill", "TrackMaster",      "TM-400V2",
                                 "ErgolineK2.4P10", "ErgosanaK4.8P10",  "ErgometricsK2.4P3"};
  setting_.exercise = models.at(below(models.size()));
  model_ = standardCatalogue().modelNamed(setting_.exercise);
  setting_.limits.speed = {.highest = 4.0F + static_cast<float>(below(10)), .step = 1, .perSecond = 1};
  setting_.limits.grade.highest = 17.0F + static_cast<float>(below(6));
  setting_.limits.power.highest = 100.0F + static_cast<float>(below(200));
  setting_.cable = simulators::CableBehaviour::read(randomCable());
  setting_.monitor = oneIn(6);
  setting_.oximeter = oneIn(6);
  setting_.auxiliariesAreVital = oneIn(2);
  tell(setting_.exercise + " over " + setting_.cable.text());
  return setting_;
}

Load Player::randomLoad() {
  if (model_->kind == DeviceKind::ergometer) return {.power = static_cast<float>(below(400))};
  Load load{.speed = static_cast<float>(below(160)) / 10, .grade = 0};
  if (model_->exercise->grade.carriesAnything()) load.grade = static_cast<float>(below(24));
  if (oneIn(10)) load.speed = -1;
  return load;
}

RandomSession Player::play() {
  session_ = std::make_unique<GuardedSession>(randomSetting());
  rules_.emplace(*model_, setting_.limits, [this](const std::string& what) { violate(what); });
  session_->station()->onEvent([this](const Event& event) { hear(event); });
  const int steps = 250 + static_cast<int>(below(200));
  for (int i = 0; i < steps; ++i) {
    if (passed_ > 3s && oneIn(12)) hostActs();
    if (passed_ > 3s && oneIn(60)) cableActs();
    if (passed_ > 8s && oneIn(150)) machineActs();
    advance();
    check();
  }
  session_.reset();
  result_.checks += rules_->checks();
  return std::move(result_);
}

void Player::advance() {
  session_->freezeHost(passed_ < frozenUntil_);
  session_->run(step);
  passed_ += step;
}

void Player::hostActs() {
  auto& station = session_->station();
  if (!station) {
    if (isUnplugged_) return;
    session_->openAgain();
    rules_->beginAnew();
    stopDue_.reset();
    station->onEvent([this](const Event& event) { hear(event); });
    return tell("host opens again");
  }
  switch (below(12)) {
    case 0:
    case 1:
    case 2:
      tell("host starts: " + (*session_)->start().reason());
      break;
    case 3:
    case 4:
    case 5:
    case 6: {
      const Load load = randomLoad();
      tell("host sets " + std::to_string(load.speed) + " km/h, " + std::to_string(load.grade) + " %, " +
           std::to_string(load.power) + " W: " + (*session_)->setLoad(load).reason());
      break;
    }
    case 7:
      tell("host stops: " + (*session_)->stop().reason());
      break;
    case 8:
      tell("host resets: " + (*session_)->reset().reason());
      break;
    case 9:
      tell("host measures: " + (*session_)->measurePressure().reason());
      break;
    case 10:
      if (!oneIn(3)) break;
      ++result_.faults;
      frozenUntil_ = passed_ + std::chrono::milliseconds(200 + below(5000));
      tell("host freezes");
      break;
    default:
      if (!oneIn(4)) break;
      ++result_.faults;
      tell("host will drop the station in a callback");
      dropAfter_ = below(20);
  }
}

void Player::cableActs() {
  auto& cable = session_->line().cable();
  ++result_.faults;
  lastFault_ = passed_;
  switch (below(5)) {
    case 0:
      tell("replies are muted or not");
      cable.replies().mute(oneIn(2));
      break;
    case 1:
      commandsAreMuted_ = oneIn(3);
      tell(commandsAreMuted_ ? "commands are muted" : "commands are not muted");
      cable.commands().mute(commandsAreMuted_);
      break;
    case 2:
      cable.replies().cue(simulators::ByteFault::lose);
      break;
    case 3:
      cable.replies().cue(simulators::ByteFault::change);
      break;
    default:
      if (!isUnplugged_) {
        session_->line().unplug();
      } else {
        session_->line().plugIn("exercise-" + std::to_string(++plugs_));
      }
      isUnplugged_ = !isUnplugged_;
      tell(isUnplugged_ ? "unplugged" : "plugged in");
  }
}

void Player::machineActs() {
  ++result_.faults;
  machineWasTouched_ = true;
  if (oneIn(2)) {
    tell("somebody presses stop at the machine");
    session_->device().press(Button::stop);
  } else {
    tell("somebody presses start at the machine");
    session_->device().press(Button::start);
  }
}

// The rules

void Player::hear(const Event& event) {
  if (dropAfter_ && (*dropAfter_)-- == 0) {
    dropAfter_.reset();
    session_->station().reset();
    tell("dropped");
  }
  rules_->hear(event);
  if (std::holds_alternative<StandstillSeen>(event.what)) hearStandstill();
  if (std::holds_alternative<Started>(event.what)) tell("started");
  if (const auto* stop = std::get_if<ProtectiveStop>(&event.what)) {
    tell(std::string("protective stop: ") + name(stop->cause));
    stopDue_ = passed_ + 1s;
  }
}

void Player::hearStandstill() {
  ++result_.checks;
  tell("seen to stand");
  const Load truth = session_->truth();
  // A report is rounded to the tenth.
  if (truth.speed > 0.1F || truth.power > 1) violate("a device that moves is said to stand");
}

void Player::check() {
  const auto& station = session_->station();
  if (!station) return;
  rules_->check(*station);
  checkStop();
}

/// Within a second a device that can be reached has been asked to stand.
void Player::checkStop() {
  if (!stopDue_ || passed_ < *stopDue_) return;
  ++result_.checks;
  const bool reaches = !commandsAreMuted_ && !isUnplugged_ && setting_.cable.commands.lose == 0 &&
                       (!lastFault_ || passed_ - *lastFault_ > 3s);
  if (reaches && !machineWasTouched_ && isAskedToMove(session_->device().truth())) {
    violate("a second after a protective stop the device is not asked to stand");
  }
  stopDue_.reset();
}

}  // namespace

RandomSession runRandomSession(std::uint64_t seed) {
  return Player(seed).play();
}

}  // namespace tarsil
