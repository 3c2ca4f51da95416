#include "tarsil/exercise/ExerciseTest.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "simulators/lines/SimulatedStation.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::StartsWith;
using State = ExerciseTest::State;
using Outcome = ExerciseTest::Outcome;

constexpr const char* walk =
    "name Walk\ndevice treadmill\nwarm-up 0:10 1.6 0\nstage 1:10 2.7 10\nstage 1:10 4 12\nrecovery 0:10 1.6 "
    "0\n";

/// A test on virtual time: simulated devices, a guarded station, a host that is alive.
class ExerciseTestTest : public testing::Test {
 protected:
  void add(const std::string& model, const std::string& role) {
    devices_[role] = &simulated_.add(model, portOf(role));
  }
  /// What a station knows of a port outlives it, so that each test has ports of its own.
  std::string portOf(const std::string& role) const { return role + std::to_string(number_); }

  void begin(GuardedStation::Plan plan, const std::string& protocol) {
    time_.settle();
    plan.watcher = std::nullopt;
    plan.journal = std::nullopt;
    const auto opened = GuardedStation::open(std::move(plan));
    ASSERT_TRUE(opened) << opened.answer().reason();
    station_ = opened.station();
    station_->onEvent([this](const Event& event) { events_.push_back(event); });
    test_.emplace(station_, readProtocol(protocol, "test"));
    heartbeat_ = Timer::scheduled(100ms, true, [this](Timer&) { station_->alive(); });
    test_->begin();
  }

  void beginWholeStation(const std::string& protocol) {
    add("LodeTreadmill", "exercise");
    add("Tango", "bp");
    add("MEDXINGPort", "spo2");
    begin({.exercise = {"LodeTreadmill", portOf("exercise")},
           .monitor = portOf("bp"),
           .oximeter = portOf("spo2")},
          protocol);
  }

  /// False when it does not come within ten minutes.
  template <class Condition>
  bool advanceUntil(Condition condition) {
    for (Duration passed{}; passed < 10min && !condition(); passed += 100ms) time_.advance(100ms);
    return condition();
  }
  bool finish() {
    return advanceUntil([this] { return test_->isOver(); });
  }
  bool reach(State state) {
    return advanceUntil([&] { return test_->state() == state; });
  }

  template <class Kind>
  std::vector<std::pair<Clock::Instant, Kind>> all() const {
    std::vector<std::pair<Clock::Instant, Kind>> found;
    for (const Event& event : events_) {
      if (const auto* kind = std::get_if<Kind>(&event.what)) found.emplace_back(event.at, *kind);
    }
    return found;
  }

  std::vector<std::string> asked() const {
    std::vector<std::string> words;
    for (const Event& event : events_) {
      const EventText told = textOf(event, test_->protocol().device);
      if (told.kind == EventKind::asked && told.word != "requestLoad") words.push_back(told.text);
    }
    return words;
  }

  static int nextNumber() {
    static int number = 0;
    return ++number;
  }

  const int number_ = nextNumber();
  VirtualTime time_;
  simulators::SimulatedStation simulated_;
  std::map<std::string, simulators::SimulatedDevice*> devices_;
  std::shared_ptr<GuardedStation> station_;
  std::optional<ExerciseTest> test_;
  std::shared_ptr<Timer> heartbeat_;
  std::vector<Event> events_;
};

TEST_F(ExerciseTestTest, WalksThroughTheWholeProtocol) {
  beginWholeStation(walk);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::completed) << test_->reason();
  EXPECT_THAT(test_->missing(), IsEmpty());

  const auto phases = all<PhaseBegan>();
  ASSERT_THAT(phases, SizeIs(4));
  EXPECT_EQ(phases[1].first - phases[0].first, 10s);
  EXPECT_EQ(phases[2].first - phases[1].first, 70s);
  EXPECT_EQ(phases[3].first - phases[2].first, 70s);
  EXPECT_EQ(phases[2].second.name, "stage 2 of 2");
  EXPECT_EQ(phases[2].second.target, (Load{.speed = 4, .grade = 12}));

  const auto began = all<Started>();
  ASSERT_THAT(began, SizeIs(1));
  EXPECT_THAT(all<PressureMeasured>(), SizeIs(2));
  EXPECT_THAT(all<StandstillSeen>(), SizeIs(1));
  EXPECT_TRUE(station_->isClosed());
  EXPECT_EQ(all<Noted>().back().second.word, "over");
  // Everything that was asked before the start moved nothing.
  EXPECT_THAT(asked(), Contains("start"));
}

TEST_F(ExerciseTestTest, KnowsHowMuchIsLeft) {
  beginWholeStation(walk);
  ASSERT_TRUE(reach(State::exercising));
  EXPECT_EQ(test_->phaseLeft(), 10s);
  EXPECT_EQ(test_->exerciseLeft(), 160s);
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 2; }));
  EXPECT_EQ(test_->exerciseLeft(), 80s);
}

TEST_F(ExerciseTestTest, ADeviceThatReportsNothingIsNotMissedAtTheEndOfAStage) {
  add("ErgometricsK2.4P3", "exercise");
  begin({.exercise = {"ErgometricsK2.4P3", portOf("exercise")}},
        "name Ride\ndevice bicycle\nstage 0:30 50\nstage 0:30 100\n");
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::completed) << test_->reason();
  EXPECT_THAT(test_->missing(), IsEmpty());
}

TEST_F(ExerciseTestTest, APortThatDoesNotOpenIsNotWaitedForForEver) {
  const std::string path = portOf("busy");
  SerialDevice device;
  device.calloutPath = path;
  const auto terminal = std::make_shared<doubles::ScriptedTerminal>();
  terminal->failAlways(doubles::ScriptedTerminal::Call::open, EBUSY);
  device.terminal = terminal;
  VirtualDeviceRegistry::shared()->add(std::make_shared<SerialDevice>(std::move(device)));
  begin({.exercise = {"LodeTreadmill", path}}, walk);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::notBegun);
  EXPECT_EQ(test_->reason(), "cannot open " + path + " (exercise): another program has it open");
  VirtualDeviceRegistry::shared()->remove(path);
}

TEST_F(ExerciseTestTest, TakesThePressureAtRestBeforeAnythingMoves) {
  beginWholeStation(std::string(walk) + "pressure rest\npressure at 0:20\n");
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::completed) << test_->reason();
  const auto pressures = all<PressureMeasured>();
  ASSERT_THAT(pressures, SizeIs(3));
  EXPECT_LT(pressures[0].first, all<Started>().at(0).first);
  std::vector<Clock::Instant> starts;
  for (const auto& [at, ask] : all<Asked>()) {
    if (ask.command == Command::startPressure) starts.push_back(at);
  }
  const auto phases = all<PhaseBegan>();
  ASSERT_THAT(starts, SizeIs(3));
  // The station begins at its own next beat.
  EXPECT_THAT(starts[1] - phases[1].first, AllOf(Ge(20s), Le(21s)));
  EXPECT_THAT(starts[2] - phases[2].first, AllOf(Ge(20s), Le(21s)));
}

TEST_F(ExerciseTestTest, BringsTheBeltDownToLevelBeforeItStops) {
  add("LodeTreadmill", "exercise");
  begin({.exercise = {"LodeTreadmill", portOf("exercise")}}, "name Hill\ndevice treadmill\nstage 0:30 3 8\n");
  ASSERT_TRUE(reach(State::levelling));
  const Readings before = station_->readings();
  EXPECT_GT(before.grade.value, 7);
  const auto level = [this] { return station_->readings().grade.value <= 0.5F; };
  ASSERT_TRUE(advanceUntil(level));
  time_.advance(1s);
  EXPECT_EQ(test_->state(), State::stopping);
  EXPECT_GT(station_->readings().speed.value, 2);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::completed) << test_->reason();
}

TEST_F(ExerciseTestTest, HoldsAPhaseAsLongAsItIsAsked) {
  beginWholeStation(walk);
  ASSERT_TRUE(reach(State::exercising));
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 1; }));
  time_.advance(5s);
  test_->hold(true);
  const Duration left = test_->phaseLeft();
  time_.advance(2min);
  EXPECT_EQ(test_->phaseIndex(), 1U);
  EXPECT_LE(left - test_->phaseLeft(), 1s);
  EXPECT_EQ(test_->heldFor(), 2min);
  test_->hold(false);
  EXPECT_FALSE(test_->isHeld());
  test_->advance();
  EXPECT_EQ(test_->phaseIndex(), 2U);
  test_->mark("angina");
  test_->stop("enough");
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::stopped);
  EXPECT_EQ(test_->reason(), "enough");
  EXPECT_THAT(all<PhaseHeld>(), SizeIs(2));
  EXPECT_EQ(all<Marked>().at(0).second.word, "angina");
  EXPECT_THAT(all<StandstillSeen>(), SizeIs(1));
}

TEST_F(ExerciseTestTest, APhaseEndsWithTheBeatThatIsNearestToItsEnd) {
  beginWholeStation(
      "name Beats\ndevice treadmill\nstage 1:00 2 0\nstage 0:10 2 1\nstage 0:20 2 2\nstage 0:10 2 3\n");
  ASSERT_TRUE(reach(State::exercising));
  time_.advance(5300ms);
  test_->advance();
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 2; }));
  time_.advance(5700ms);
  test_->advance();
  ASSERT_TRUE(reach(State::levelling));
  std::vector<Duration> lengths;
  const auto phases = all<PhaseBegan>();
  for (std::size_t i = 1; i < phases.size(); ++i) {
    lengths.push_back(phases[i].first - phases[i - 1].first);
  }
  EXPECT_THAT(lengths, ElementsAre(5300ms, 9700ms, 5700ms));
  EXPECT_EQ(test_->exerciseTime(), 31s);
}

TEST_F(ExerciseTestTest, ASilentDeviceIsNotStoodOn) {
  add("LodeTreadmill", "exercise");
  begin({.exercise = {"LodeTreadmill", portOf("exercise")}}, walk);
  devices_.at("exercise")->beSilent(true);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::notBegun);
  EXPECT_EQ(test_->reason(), "no answer from: exercise");
  EXPECT_THAT(all<Started>(), IsEmpty());
}

TEST_F(ExerciseTestTest, AllThatAreSilentAreNamed) {
  beginWholeStation(walk);
  for (const auto& [role, device] : devices_) device->beSilent(true);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->reason(), "no answer from: exercise pressure oximeter");
}

TEST(ObjectionsTest, AreKnownBeforeAPortIsOpened) {
  const GuardedStation::Plan plan{.exercise = {"LodeOEMTreadmill", "nowhere"}};
  EXPECT_THAT(objectionsTo(readProtocol(walk, "test"), plan), SizeIs(4));
  EXPECT_THAT(objectionsTo(readProtocol(walk, "test"), {.exercise = {"LodeTreadmill", "nowhere"}}),
              IsEmpty());
  EXPECT_THAT(objectionsTo(readProtocol(walk, "test"), {.exercise = {"Bike", ""}}),
              ElementsAre("no exercise device is called \"Bike\""));
}

TEST_F(ExerciseTestTest, RefusesAProtocolWhole) {
  add("LodeOEMTreadmill", "exercise");
  begin({.exercise = {"LodeOEMTreadmill", portOf("exercise")}}, walk);
  time_.advance(2s);
  EXPECT_TRUE(test_->isOver());
  EXPECT_EQ(test_->outcome(), Outcome::notBegun);
  EXPECT_THAT(test_->missing(), ElementsAre(StartsWith("line 3, warm-up: grade 0.0 %: "),
                                            StartsWith("line 4, stage 1 of 2: grade 10.0 %: "),
                                            StartsWith("line 5, stage 2 of 2: grade 12.0 %: "),
                                            StartsWith("line 6, recovery: grade 0.0 %: ")));
  EXPECT_THAT(all<Started>(), IsEmpty());
}

TEST_F(ExerciseTestTest, AMonitorThatFallsSilentIsMissedAndTheExerciseGoesOn) {
  beginWholeStation(walk);
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 1; }));
  devices_.at("bp")->beSilent(true);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::incomplete);
  EXPECT_THAT(test_->missing(),
              Contains(AllOf(StartsWith("the blood pressure that was due at "), HasSubstr("did not come"))));
  EXPECT_THAT(all<PhaseBegan>(), SizeIs(4));
}

TEST_F(ExerciseTestTest, ADeviceThatFallsSilentIsStopped) {
  beginWholeStation(walk);
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 1; }));
  devices_.at("exercise")->beSilent(true);
  ASSERT_TRUE(advanceUntil([&] { return !all<ProtectiveStop>().empty(); }));
  EXPECT_EQ(test_->state(), State::stopping);
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::protectiveStop);
  EXPECT_THAT(asked(), Contains("stop"));
  EXPECT_THAT(all<ProtectiveStop>(), SizeIs(1));
}

TEST_F(ExerciseTestTest, ABeltThatIsNotSeenToStopIsWaitedForUntilTheAlarmSaysSo) {
  add("LodeTreadmill", "exercise");
  begin({.exercise = {"LodeTreadmill", portOf("exercise")}}, walk);
  ASSERT_TRUE(advanceUntil([&] { return test_->phaseIndex() == 1; }));
  devices_.at("exercise")->beSilent(true);
  test_->stop("enough");
  ASSERT_TRUE(reach(State::closing));
  const auto [alarmedAt, alarm] = all<AlarmRaised>().back();
  EXPECT_EQ(alarm.kind, AlarmKind::notSeenToStop);
  EXPECT_LE(Clock::now() - alarmedAt, 1s);
  ASSERT_TRUE(finish());
  EXPECT_THAT(test_->missing(), Contains("LodeTreadmill was not seen to stop"));
}

TEST_F(ExerciseTestTest, ABicyclesRampIsAskedForInWholeWatts) {
  add("ErgosanaK4.8P10", "exercise");
  begin({.exercise = {"ErgosanaK4.8P10", portOf("exercise")}},
        "name Ramp\ndevice bicycle\nramp 1:30 25 60\npressure every 9:00\n");
  ASSERT_TRUE(finish());
  EXPECT_EQ(test_->outcome(), Outcome::completed) << test_->reason();
  std::vector<float> powers;
  for (const auto& [at, ask] : all<Asked>()) {
    if (ask.command == Command::setLoad) powers.push_back(ask.load.power);
  }
  EXPECT_THAT(powers, Each(testing::ResultOf([](float power) { return power == std::round(power); }, true)));
  EXPECT_THAT(powers, Contains(26));
  EXPECT_TRUE(std::is_sorted(powers.begin(), powers.end() - 1));
}

}  // namespace
}  // namespace tarsil
