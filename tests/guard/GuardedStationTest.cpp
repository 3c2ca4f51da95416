#include "tarsil/guard/GuardedStation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <limits>

#include "tests/guard/GuardedSession.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Button = simulators::SimulatedDevice::Button;
using simulators::CableBehaviour;
using testing::FloatNear;
using testing::Not;
using Code = Answer::Code;
using State = GuardedStation::State;

bool holds(const Bytes& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

// The way of an exercise, on every model that can be driven.

struct Way {
  std::string model;
  Load load;
};

class EveryModelTest : public testing::TestWithParam<Way> {};

TEST_P(EveryModelTest, IsDrivenBehindAnAdapterAndSeenToStop) {
  GuardedSession session({.exercise = GetParam().model});
  session.begin(GetParam().load);
  EXPECT_EQ(session->state(), State::running);
  session.run(60s);
  const Load load = GetParam().load;
  EXPECT_THAT(session.truth().speed, FloatNear(load.speed, 0.1F));
  EXPECT_THAT(session.truth().grade, FloatNear(load.grade, 0.6F));
  EXPECT_THAT(session.truth().power, FloatNear(load.power, 1));
  if (session->reportsLoad()) {
    const Readings readings = session->readings();
    EXPECT_EQ(readings.speed.isFresh(), load.speed > 0);
    EXPECT_THAT(readings.speed.value, FloatNear(load.speed, 0.1F));
    EXPECT_THAT(readings.power.value, FloatNear(load.power, 1));
  }
  EXPECT_THAT(session->alarms(), testing::IsEmpty());
  EXPECT_EQ(session.count<AlarmCleared>(), 0U);

  EXPECT_TRUE(session->stop().isAccepted());
  session.run(40s);
  EXPECT_EQ(session->state(), State::ready);
  EXPECT_EQ(session.truth().speed, 0);
  EXPECT_EQ(session.truth().power, 0);
  EXPECT_EQ(session.count<StandstillSeen>(), session->reportsLoad() ? 1U : 0U);
  EXPECT_EQ(session.count<StandstillUnseen>(), session->reportsLoad() ? 0U : 1U);
  EXPECT_EQ(session.hasAlarm(AlarmKind::unseenStop), !session->reportsLoad());
  EXPECT_EQ(session.count<ProtectiveStop>(), 0U);
  EXPECT_EQ(session.count<DriverReplaced>(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Models, EveryModelTest,
                         testing::Values(Way{"LodeTreadmill", {.speed = 5, .grade = 10}},
                                         Way{"LodeOEMTreadmill", {.speed = 5, .grade = 16}},
                                         Way{"TrackMaster", {.speed = 4.8F, .grade = 10}},
                                         Way{"TM-400V2", {.speed = 5}},
                                         Way{"ErgolineK2.4P10", {.power = 150}},
                                         Way{"ErgosanaK4.8P10", {.power = 150}},
                                         Way{"ErgometricsK2.4P3", {.power = 150}}));

// Opening

TEST(GuardedStationOpeningTest, RefusesAContradictoryPlanWithEveryReasonAtOnce) {
  const GuardedSession devices;
  const auto opening = GuardedStation::open({.exercise = {"Treadmill", "exercise"},
                                             .monitor = "exercise",
                                             .oximeter = "nowhere",
                                             .limits = {.speed = {-1, 1, 1}, .power = {400, 0, 1}},
                                             .heartbeat = 50ms,
                                             .watcher = std::nullopt,
                                             .journal = std::nullopt});
  std::vector<Code> codes;
  for (const Answer& refusal : opening.refusals()) codes.push_back(refusal.code());
  EXPECT_THAT(codes, testing::ElementsAre(Code::noSuchModel, Code::portTwice, Code::noSuchPort, Code::badPlan,
                                          Code::badPlan, Code::badPlan));
  EXPECT_EQ(opening.answer().code(), Code::noSuchModel);
  EXPECT_EQ(opening.answer().reason(),
            "no exercise device is called \"Treadmill\"; the port \"exercise\" cannot serve two devices; "
            "there is no port \"nowhere\"; the limits of speed have to be numbers above zero; the limits of "
            "power have to be numbers above zero; the heartbeat has to be from 100 ms to 10 s");
  EXPECT_EQ(opening.station(), nullptr);
}

TEST(GuardedStationOpeningTest, RefusesAPlanThatCannotBe) {
  const GuardedSession devices;
  const auto code = [](GuardedStation::Plan plan) {
    return GuardedStation::open(std::move(plan)).answer().code();
  };
  EXPECT_EQ(code({.exercise = {"Treadmill", "exercise"}}), Code::noSuchModel);
  EXPECT_EQ(code({.exercise = {"Tango", "exercise"}}), Code::noSuchModel);
  EXPECT_EQ(code({.exercise = {"LodeTreadmill", "nowhere"}}), Code::noSuchPort);
  EXPECT_EQ(code({.exercise = {"LodeTreadmill", ""}}), Code::noSuchPort);
  EXPECT_EQ(code({.exercise = {"LodeTreadmill", "exercise"}, .monitor = "exercise"}), Code::portTwice);
  EXPECT_EQ(code({.exercise = {"LodeTreadmill", "exercise"}, .heartbeat = 50ms}), Code::badPlan);
  EXPECT_EQ(code({.exercise = {"LodeTreadmill", "exercise"}, .limits = {.speed = {-1, 1, 1}}}),
            Code::badPlan);
}

TEST(GuardedStationOpeningTest, TakesHeartbeatsFromTheShortestToTheLongest) {
  const GuardedSession devices;
  const auto reason = [](Duration heartbeat) {
    return GuardedStation::open({.exercise = {"Treadmill", "exercise"}, .heartbeat = heartbeat})
        .answer()
        .reason();
  };
  const auto hasObjection = testing::HasSubstr("heartbeat");
  EXPECT_THAT(reason(100ms), Not(hasObjection));
  EXPECT_THAT(reason(10s), Not(hasObjection));
  EXPECT_THAT(reason(100ms - 1ns), hasObjection);
  EXPECT_THAT(reason(10s + 1ns), hasObjection);
}

// Start

TEST(GuardedStationStartTest, WaitsForTheDeviceToBeHeardAndSeenToStand) {
  GuardedSession session;
  EXPECT_EQ(session->start().code(), Code::notOpen);
  session.run(500ms);
  EXPECT_EQ(session->start().code(), Code::notHeard);
  session.run(1s);
  EXPECT_EQ(session->start().code(), Code::notSeenToStand);
  session.run(2s);
  EXPECT_TRUE(session->start().isAccepted());
  EXPECT_EQ(session->start().code(), Code::alreadyRunning);
  EXPECT_EQ(session.count<Refused>(), 4U);
}

TEST(GuardedStationStartTest, RefusesABeltThatMoves) {
  GuardedSession session;
  session.begin({.speed = 3});
  session.run(10s);
  session.line().cable().commands().mute(true);
  session.station().reset();
  session.run(200ms);  // its stop is not heard
  session.line().cable().commands().mute(false);
  session.openAgain();
  session.run(20s);
  ASSERT_GT(session.truth().speed, 2);
  EXPECT_EQ(session->start().code(), Code::notSeenToStand);
}

TEST(GuardedStationStartTest, IsNotHeldBackByAnAlarmOfLowPriority) {
  GuardedSession session({.oximeter = true});
  session.line("spo2").cable().replies().mute(true);
  session.run(10s);
  ASSERT_TRUE(session.hasAlarm(AlarmKind::oximeterLost));
  EXPECT_TRUE(session->start().isAccepted());
}

TEST(GuardedStationStartTest, RefusesWhatCannotBeDriven) {
  GuardedSession session({.exercise = "KivBicycle"});
  session.run(5s);
  EXPECT_EQ(session->start().code(), Code::notDrivable);
}

// Hearing

class ReportingModelTest : public testing::TestWithParam<std::string> {};

TEST_P(ReportingModelTest, ReportsEachAnswerOnce) {
  GuardedSession session({.exercise = GetParam()});
  session.run(6s);
  session.forgetEvents();
  session.run(20s);
  const auto polls = std::count_if(session.events().begin(), session.events().end(), [](const Event& event) {
    const auto* asked = std::get_if<Asked>(&event.what);
    return asked && asked->command == Command::requestLoad;
  });
  EXPECT_EQ(polls, 20);
  EXPECT_THAT(session.count<LoadMeasured>(), testing::AllOf(testing::Ge(19U), testing::Le(21U)));
}

INSTANTIATE_TEST_SUITE_P(Models, ReportingModelTest,
                         testing::Values("LodeTreadmill", "LodeOEMTreadmill", "TrackMaster",
                                         "ErgolineK2.4P10", "ErgosanaK4.8P10"));

// Loads

TEST(GuardedStationLoadTest, SendsNothingOfALoadThatItRefuses) {
  GuardedSession session;
  session.begin();
  session.run(2s);
  session.forgetEvents();
  EXPECT_EQ(session->setLoad({.speed = 2, .grade = 26}).code(), Code::notCarried);
  EXPECT_EQ(session->setLoad({.speed = std::numeric_limits<float>::quiet_NaN()}).code(), Code::badValue);
  EXPECT_EQ(session->setLoad({.speed = 17}).code(), Code::aboveLimit);
  session.run(3s);
  EXPECT_EQ(session->target(), Load{});
  for (const Event& event : session.events()) {
    const auto* asked = std::get_if<Asked>(&event.what);
    EXPECT_FALSE(asked && asked->command == Command::setLoad);
  }
}

TEST(GuardedStationLoadTest, IsAcknowledgedAndAReportIsNoAcknowledgement) {
  GuardedSession session;
  session.run(10s);
  EXPECT_GE(session.count<LoadMeasured>(), 5U);
  EXPECT_EQ(session.count<Acknowledged>(), 0U);
  session.begin({.speed = 3});
  session.run(2s);
  EXPECT_GE(session.count<Acknowledged>(), 2U);
}

TEST(GuardedStationLoadTest, NeedsARunningExercise) {
  GuardedSession session;
  session.run(5s);
  EXPECT_EQ(session->setLoad({.speed = 2}).code(), Code::notRunning);
}

TEST(GuardedStationLoadTest, WalksALargeChangeInStepsOfASecond) {
  GuardedSession session;
  session.begin({.speed = 4, .grade = 3});
  session.run(8s);
  std::vector<Load> told;
  for (const Event& event : session.events()) {
    const auto* asked = std::get_if<Asked>(&event.what);
    if (asked && asked->command == Command::setLoad) told.push_back(asked->load);
  }
  EXPECT_THAT(told, testing::ElementsAre(Load{.speed = 1, .grade = 2}, Load{.speed = 2, .grade = 3},
                                         Load{.speed = 3, .grade = 3}, Load{.speed = 4, .grade = 3}));
}

// On a real machine no beat comes in time to the microsecond: the one after a late one is early.
TEST(GuardedStationLoadTest, TakesAStepWithEachBeatAlthoughTheLastOneCameLate) {
  GuardedSession session;
  session.begin();
  const Clock::Instant beat = Clock::now();
  session.run(30ms);
  EXPECT_TRUE(session->setLoad({.speed = 4}).isAccepted());
  session.run(5s);
  std::vector<Duration> told;
  for (const Event& event : session.events()) {
    const auto* asked = std::get_if<Asked>(&event.what);
    if (asked && asked->command == Command::setLoad) told.push_back(event.at - beat);
  }
  EXPECT_THAT(told, testing::ElementsAre(30ms, 1s, 2s, 3s));
}

// Silence

TEST(GuardedStationSilenceTest, RaisesNoLoadAndStopsAfterTenSeconds) {
  GuardedSession session;
  session.begin({.speed = 2});
  session.run(10s);
  session.line().cable().replies().mute(true);
  session.run(3500ms);
  EXPECT_TRUE(session->setLoad({.speed = 6}).isAccepted());
  session.run(1s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::exerciseSilent));
  EXPECT_EQ(session->state(), State::running);
  EXPECT_LE(session->commanded().speed, 3);
  const float held = session->commanded().speed;
  session.run(4s);
  EXPECT_EQ(session->commanded().speed, held);
  session.run(3s);
  EXPECT_EQ(session->state(), State::stopping);
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::exerciseSilent);
  session.run(10s);
  EXPECT_EQ(session.truth().speed, 0);  // it heard us
  EXPECT_EQ(session.count<StandstillSeen>(), 0U);
  EXPECT_EQ(session->reset().code(), Code::causeRemains);

  session.line().cable().replies().mute(false);
  session.run(6s);
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
  EXPECT_EQ(session->start().code(), Code::latched);
  EXPECT_TRUE(session->reset().isAccepted());
  EXPECT_TRUE(session->start().isAccepted());
}

TEST(GuardedStationSilenceTest, OpensALineAnewThatStaysSilent) {
  GuardedSession session;
  session.begin({.speed = 2});
  session.run(10s);
  session.forgetEvents();
  session.line().cable().replies().mute(true);
  session.run(9s);
  EXPECT_GE(session.count<LineClosed>(), 1U);
  EXPECT_GE(session.count<LineOpened>(), 1U);
}

// Disagreement

/// Swallows the next command that is no poll.
void loseCommand(GuardedSession& session) {
  session.line().cable().commands().mute(true);
  session.run(100ms);
  session.line().cable().commands().mute(false);
}

TEST(GuardedStationDisagreementTest, ALostCommandIsToldAgain) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  EXPECT_TRUE(session->setLoad({.speed = 5}).isAccepted());
  loseCommand(session);
  session.run(1s);
  EXPECT_THAT(session.truth().speed, FloatNear(4, 0.1F));
  session.run(15s);
  EXPECT_THAT(session.truth().speed, FloatNear(5, 0.1F));
  EXPECT_EQ(session.count<ProtectiveStop>(), 0U);
}

TEST(GuardedStationDisagreementTest, ARefusalIsAnAlarmUntilThereAreNoMore) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  session.device().refuseCommands("05");
  session.run(2s);
  EXPECT_GE(session.count<DeviceRefused>(), 1U);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::deviceRefuses));
  EXPECT_EQ(session->state(), State::running);
  session.device().refuseCommands(std::nullopt);
  session.run(8s);
  EXPECT_FALSE(session.hasAlarm(AlarmKind::deviceRefuses));
}

TEST(GuardedStationDisagreementTest, TheCodeOfAStopAtTheMachineStopsForGood) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  ASSERT_TRUE(session.device().press(Button::emergency));
  EXPECT_TRUE(session->setLoad({.speed = 5}).isAccepted());
  session.run(500ms);  // long before its belt stands
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::stoppedAtMachine);
}

// Stopping

TEST(GuardedStationStopTest, IsRepeatedUntilTheDeviceStandsAndAlarmsAfterFifteenSeconds) {
  GuardedSession session;
  session.begin({.speed = 5});
  session.run(20s);
  session.line().cable().commands().mute(true);
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(16s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::notSeenToStop));
  EXPECT_GT(session.truth().speed, 4);
  EXPECT_EQ(session.count<StandstillSeen>(), 0U);

  session.openAgain();
  session.run(5s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::notSeenToStop));
  EXPECT_EQ(session->start().code(), Code::alreadyRunning);

  session.line().cable().commands().mute(false);
  session.run(15s);
  EXPECT_EQ(session.truth().speed, 0);
  EXPECT_FALSE(session.hasAlarm(AlarmKind::notSeenToStop));
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
}

TEST(GuardedStationStopTest, IsSentThriceToAModelThatReportsNothing) {
  GuardedSession session({.exercise = "TM-400V2"});
  session.begin({.speed = 3});
  session.run(10s);
  session.forgetEvents();
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(10s);
  EXPECT_EQ(std::count_if(session.events().begin(), session.events().end(),
                          [](const Event& event) {
                            const auto* asked = std::get_if<Asked>(&event.what);
                            return asked && asked->command == Command::stop;
                          }),
            3);
}

TEST(GuardedStationStopTest, IsSeenSoonAlsoOnALineThatHasLostManyReplies) {
  GuardedSession session;
  session.begin({.speed = 2});
  for (int i = 0; i < 10; ++i) {
    session.line().cable().replies().mute(true);
    session.run(2s);
    session.line().cable().replies().mute(false);
    session.run(3s);
  }
  ASSERT_EQ(session->state(), State::running);
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(10s);
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
}

TEST(GuardedStationStopTest, BringsTheGradeDown) {
  GuardedSession session;
  session.begin({.speed = 3, .grade = 8});
  session.run(30s);
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(30s);
  EXPECT_EQ(session.truth().grade, 0);
}

TEST(GuardedStationStopTest, TellsTheLoadZeroFirstWhereThatCanBeTold) {
  GuardedSession session({.exercise = "LodeTreadmill"});
  session.begin({.speed = 5});
  session.run(20s);
  const Bytes before = session.sent();
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(500ms);
  const Bytes sent = session.sent();
  EXPECT_EQ(Bytes(sent.begin() + static_cast<std::ptrdiff_t>(before.size()), sent.end()),
            hex("02 05 02 00 00 D8 CC 03  02 07 02 00 00 D9 74 03  02 03 00 A1 30 03"));
}

TEST(GuardedStationStopTest, KeepsTheStopCommandFromATrackMasterThatMoves) {
  GuardedSession session({.exercise = "TrackMaster"});
  session.begin({.speed = 6});
  session.run(30s);
  session.forgetEvents();
  EXPECT_TRUE(session->stop().isAccepted());
  while (session.truth().speed > 0.7F) {
    session.run(100ms);
    ASSERT_FALSE(holds(session.sent(), hex("A2")));
  }
  session.run(10s);
  EXPECT_TRUE(holds(session.sent(), hex("A2")));
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
}

TEST(GuardedStationStopTest, ComesBeforeTheClose) {
  GuardedSession session;
  session.begin({.speed = 3});
  session.run(10s);
  session->close();
  EXPECT_EQ(session->state(), State::stopping);
  session.run(20s);
  EXPECT_TRUE(session->isClosed());
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
  EXPECT_EQ(session.truth().speed, 0);
}

TEST(GuardedStationStopTest, ComesFromEveryThreadThatAsks) {
  GuardedSession session;
  session.begin({.speed = 3});
  session.run(10s);
  session.forgetEvents();
  session->stopNow();
  session.run(0s);
  session.run(10s);
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
  EXPECT_FALSE(session->isLatched());
}

// The machine's own buttons

TEST(GuardedStationMachineTest, LatchesWhenSomebodyStopsItAtTheMachine) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  session.device().press(Button::stop);
  session.run(15s);
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::stoppedAtMachine);
  EXPECT_EQ(session->setLoad({.speed = 5}).code(), Code::latched);
  session.device().press(Button::start);
  session.run(20s);
  EXPECT_EQ(session.truth().speed, 0);
}

// The host

TEST(GuardedStationHostTest, IsReplacedWhenItFreezes) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  session.freezeHost(true);
  session.run(2s);
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::hostFrozen);
  session.run(20s);
  EXPECT_EQ(session.truth().speed, 0);
  session.freezeHost(false);
  session.run(5s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::hostFrozen));
  EXPECT_TRUE(session->reset().isAccepted());
  EXPECT_FALSE(session.hasAlarm(AlarmKind::hostFrozen));
  EXPECT_TRUE(session->start().isAccepted());
}

TEST(GuardedStationHostTest, IsReplacedOnceASecond) {
  GuardedSession session;
  session.begin({.speed = 8});
  session.run(20s);
  session.freezeHost(true);
  session.run(3s);
  session.forgetEvents();
  session.run(2s);
  // Beside those that the station sends at its own beats.
  const auto stops = std::count_if(session.events().begin(), session.events().end(), [](const Event& event) {
    const auto* sent = std::get_if<Sent>(&event.what);
    return sent && holds(sent->bytes, hex("02 03 00 A1 30 03"));
  });
  EXPECT_EQ(stops, 4);
}

TEST(GuardedStationHostTest, StopsTheExerciseWhenItDropsTheStation) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  session.station().reset();
  session.run(20s);
  EXPECT_EQ(session.truth().speed, 0);
}

TEST(GuardedStationHostTest, MayDropTheStationInEveryListener) {
  constexpr std::size_t events = 210;
  for (std::size_t k = 0; k < events; k += 7) {
    GuardedSession session;
    std::size_t heard = 0;
    session->onEvent([&](const Event&) {
      if (heard++ == k) session.station().reset();
    });
    session.run(6s);
    if (session.station()) static_cast<void>(session->start());
    if (session.station()) static_cast<void>(session->setLoad({.speed = 4}));
    session.run(5s);
    if (session.station()) static_cast<void>(session->stop());
    session.run(15s);
    EXPECT_GE(heard, k);
    EXPECT_EQ(session.truth().speed, 0);
  }
}

// The cable

TEST(GuardedStationCableTest, StopsFirstWhenTheAdapterComesBackUnderAnotherName) {
  GuardedSession session;
  session.begin({.speed = 4});
  session.run(20s);
  session.line().unplug();
  session.run(2s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::lineLost));
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::lineLost);
  EXPECT_EQ(session->reset().code(), Code::causeRemains);
  EXPECT_GT(session.truth().speed, 3);  // nobody could tell it
  session.line().plugIn("exercise-again");
  session.run(15s);
  EXPECT_EQ(session.truth().speed, 0);
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
  EXPECT_EQ(session.last<LineReturned>().port, "exercise-again");
  EXPECT_FALSE(session.hasAlarm(AlarmKind::lineLost));
  EXPECT_EQ(session->start().code(), Code::latched);
  EXPECT_TRUE(session->reset().isAccepted());
}

class DamagedCableTest : public testing::TestWithParam<std::string> {};

TEST_P(DamagedCableTest, CostsNoMoreThanThreePollsOfReadings) {
  GuardedSession session({.exercise = GetParam(), .cable = CableBehaviour::read("adapter")});
  const bool isTreadmill = session.device().truth().exercise == simulators::Truth::Exercise::treadmill;
  session.begin(isTreadmill ? Load{.speed = 4, .grade = 16} : Load{.power = 100});
  session.run(45s);
  for (const auto fault :
       {simulators::ByteFault::lose, simulators::ByteFault::add, simulators::ByteFault::change}) {
    for (int i = 0; i < 4; ++i) {
      session.line().cable().replies().cue(fault);
      session.run(3100ms);
      const Readings readings = session->readings();
      EXPECT_TRUE(readings.speed.isFresh() || readings.power.isFresh());
    }
  }
  EXPECT_EQ(session.count<ProtectiveStop>(), 0U);
  EXPECT_EQ(session.count<DriverReplaced>(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Models, DamagedCableTest,
                         testing::Values("LodeTreadmill", "LodeOEMTreadmill", "TrackMaster",
                                         "ErgolineK2.4P10", "ErgosanaK4.8P10"));

// Auxiliary devices

TEST(GuardedStationAuxiliaryTest, MayFailAndComeBackWithoutStoppingTheExercise) {
  GuardedSession session({.monitor = true, .oximeter = true});
  session.begin({.speed = 3});
  session.run(10s);
  EXPECT_TRUE(session->readings().saturation.isFresh());
  session.line("spo2").unplug();
  session.line("bp").unplug();
  session.run(4s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::oximeterLost));
  EXPECT_TRUE(session.hasAlarm(AlarmKind::monitorLost));
  EXPECT_EQ(session->readings().saturation.state, Reading<float>::State::stale);
  EXPECT_EQ(session->state(), State::running);
  session.line("spo2").plugIn("spo2-again");
  session.line("bp").plugIn("bp-again");
  session.run(5s);
  EXPECT_FALSE(session.hasAlarm(AlarmKind::oximeterLost));
  EXPECT_FALSE(session.hasAlarm(AlarmKind::monitorLost));
  EXPECT_TRUE(session->measurePressure().isAccepted());
  session.run(60s);
  EXPECT_EQ(session.count<PressureMeasured>(), 1U);
}

TEST(GuardedStationAuxiliaryTest, StopTheExerciseWhereTheHostCallsThemVital) {
  GuardedSession session({.oximeter = true, .auxiliariesAreVital = true});
  session.begin({.speed = 3});
  session.run(10s);
  session.line("spo2").unplug();
  session.run(2s);
  EXPECT_EQ(session.last<ProtectiveStop>().cause, AlarmKind::oximeterLost);
  session.run(15s);
  EXPECT_EQ(session->state(), State::opening);
  EXPECT_EQ(session->reset().code(), Code::causeRemains);
  session.line("spo2").plugIn("spo2-again");
  session.run(5s);
  EXPECT_TRUE(session->reset().isAccepted());
}

TEST(GuardedStationAuxiliaryTest, AMonitorThatNeverAnswersIsAnAlarm) {
  GuardedSession session({.monitor = true});
  session.line("bp").cable().replies().mute(true);
  session.run(14s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::monitorLost));
  EXPECT_EQ(session->measurePressure().code(), Code::notOpen);
  EXPECT_EQ(std::count_if(session.events().begin(), session.events().end(),
                          [](const Event& event) {
                            const auto* asked = std::get_if<Asked>(&event.what);
                            return asked && asked->command == Command::initialiseMonitor;
                          }),
            3);  // every five seconds
}

TEST(GuardedStationAuxiliaryTest, AMonitorThatComesBackIsAskedOnceItAnswers) {
  GuardedSession session({.monitor = true});
  session.run(5s);
  ASSERT_EQ(session.count<MonitorReady>(), 1U);
  session.line("bp").unplug();
  session.run(2s);
  session.line("bp").plugIn("bp-again");
  session.line("bp").cable().replies().mute(true);
  session.run(5s);
  EXPECT_EQ(session->measurePressure().code(), Code::notOpen);
  session.line("bp").cable().replies().mute(false);
  session.run(5s);
  EXPECT_TRUE(session->measurePressure().isAccepted());
}

TEST(GuardedStationAuxiliaryTest, ASilentOximeterIsAnAlarm) {
  GuardedSession session({.oximeter = true});
  session.run(5s);
  EXPECT_TRUE(session->readings().saturation.isFresh());
  session.line("spo2").cable().replies().mute(true);
  session.run(7s);
  EXPECT_TRUE(session.hasAlarm(AlarmKind::oximeterLost));
  EXPECT_EQ(session->readings().saturation.state, Reading<float>::State::stale);
}

class BuiltInCuffTest : public testing::TestWithParam<std::string> {};

TEST_P(BuiltInCuffTest, MeasuresAtRestAndUnderLoad) {
  GuardedSession session({.exercise = GetParam()});
  session.run(5s);
  EXPECT_TRUE(session->measurePressure().isAccepted());
  EXPECT_EQ(session->measurePressure().code(), Code::alreadyMeasuring);
  session.run(70s);
  EXPECT_EQ(session.count<PressureMeasured>(), 1U);
  const Pressure resting = session->readings().pressure.value;
  EXPECT_GT(resting.systolic, resting.diastolic);
  EXPECT_FALSE(session.device().truth().isRunning);

  session.begin({.power = 200});
  session.run(120s);
  EXPECT_TRUE(session->measurePressure().isAccepted());
  session.run(70s);
  EXPECT_EQ(session.count<PressureMeasured>(), 2U);
  EXPECT_GT(session->readings().pressure.value.systolic, resting.systolic);
  EXPECT_EQ(session.count<DriverReplaced>(), 0U);
  EXPECT_EQ(session.count<ProtectiveStop>(), 0U);
}

bool cuffMeasures(GuardedSession& session) {
  return session.device().status().find("cuff measuring") != std::string::npos;
}

TEST_P(BuiltInCuffTest, BringsNoLoadBackAfterTheExercise) {
  GuardedSession session({.exercise = GetParam()});
  session.begin({.power = 150});
  session.run(30s);
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(15s);
  ASSERT_EQ(session->state(), State::ready);
  EXPECT_TRUE(session->measurePressure().isAccepted());
  bool hasMeasured = false;
  for (int i = 0; i < 700; ++i) {
    session.run(100ms);
    ASSERT_EQ(session.truth().power, 0);
    hasMeasured = hasMeasured || cuffMeasures(session);
  }
  EXPECT_TRUE(hasMeasured);
  EXPECT_EQ(session.count<PressureMeasured>(), 1U);
  EXPECT_FALSE(session.device().truth().isRunning);
}

TEST_P(BuiltInCuffTest, IsStartedByNothingElse) {
  GuardedSession session({.exercise = GetParam()});
  session.begin({.power = 100});
  for (int i = 0; i < 300; ++i) {
    session.run(100ms);
    if (i == 200) static_cast<void>(session->stop());
    ASSERT_FALSE(cuffMeasures(session));
  }
  EXPECT_FALSE(holds(session.sent(), hex("55 0D")));
}

TEST_P(BuiltInCuffTest, KeepsAStartOutOfItsCommands) {
  GuardedSession session({.exercise = GetParam()});
  session.run(5s);
  EXPECT_TRUE(session->measurePressure().isAccepted());
  session.run(1s);
  const auto isFetching = [&] {
    return std::any_of(session.events().begin(), session.events().end(), [](const Event& event) {
      const auto* asked = std::get_if<Asked>(&event.what);
      return asked && asked->command == Command::requestPressure;
    });
  };
  while (!isFetching()) session.run(100ms);
  EXPECT_EQ(session->start().code(), Code::alreadyMeasuring);
  session.run(1s);
  EXPECT_TRUE(session->start().isAccepted());
  EXPECT_FALSE(cuffMeasures(session));
}

TEST_P(BuiltInCuffTest, BeginsAgainWhereAStopCameBetweenItsCommands) {
  GuardedSession session({.exercise = GetParam()});
  session.begin({.power = 100});
  session.run(20s);
  EXPECT_TRUE(session->measurePressure().isAccepted());
  const auto isBegun = [&] { return session.last<Asked>().command == Command::startPressure; };
  while (!isBegun()) session.run(10ms);
  EXPECT_TRUE(session->stop().isAccepted());
  session.run(500ms);
  EXPECT_FALSE(cuffMeasures(session));  // the stop was in between
  bool hasMeasured = false;
  for (int i = 0; i < 900; ++i) {
    session.run(100ms);
    hasMeasured = hasMeasured || cuffMeasures(session);
  }
  EXPECT_TRUE(hasMeasured);
  EXPECT_EQ(session.count<StandstillSeen>(), 1U);
  EXPECT_EQ(session.count<PressureMeasured>(), 1U);
  EXPECT_FALSE(session.device().truth().isRunning);
}

INSTANTIATE_TEST_SUITE_P(Models, BuiltInCuffTest, testing::Values("ErgolineK2.4P10", "ErgosanaK4.8P10"));

}  // namespace
}  // namespace tarsil
