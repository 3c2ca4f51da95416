// What a station says of lines that do not open, and of values that nobody can have measured: on terminals
// that fail, and say, what a test wants.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "simulators/devices/medxingFrame.hpp"
#include "simulators/lines/SimulatedStation.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/watch/detail/WatchPage.hpp"
#include "tarsil/guard/watch/lastWatch.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/guard/GuardedSession.hpp"
#include "tests/guard/eventsOf.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using cli::ScratchFolder;
using doubles::ScriptedTerminal;
using testing::HasSubstr;
using testing::SizeIs;
using Reason = LineFailed::Reason;

class GuardedStationLineTest : public testing::Test {
 protected:
  GuardedStationLineTest() { GuardedSession::time(); }
  ~GuardedStationLineTest() override {
    station_.reset();
    GuardedSession::time().advance(200ms);
    VirtualDeviceRegistry::shared()->remove(path);
    GuardedSession::time().settle();
  }

  /// A port without anything that tells it from another one with its name.
  void plugIn() {
    SerialDevice device;
    device.calloutPath = path;
    device.terminalName = "scripted";
    device.terminal = terminal;
    VirtualDeviceRegistry::shared()->add(std::make_shared<SerialDevice>(std::move(device)));
  }

  void open(const std::string& model) {
    plugIn();
    auto opening =
        GuardedStation::open({.exercise = {model, path}, .watcher = std::nullopt, .journal = std::nullopt});
    ASSERT_TRUE(opening);
    station_ = opening.station();
    station_->onEvent([this](const Event& event) { events_.push_back(event); });
  }

  void run(Duration duration) {
    for (Duration passed{}; passed < duration; passed += 100ms) {
      station_->alive();
      GuardedSession::time().advance(100ms);
    }
  }

  template <class What>
  std::vector<What> all() const {
    return eventsOf<What>(events_);
  }

  /// One line has one watcher, whichever process asks for it.
  const std::string path = "/dev/scripted" + std::to_string(getpid());
  const PrintedLines printed_;
  const std::shared_ptr<ScriptedTerminal> terminal = std::make_shared<ScriptedTerminal>();
  std::shared_ptr<GuardedStation> station_;
  std::vector<Event> events_;
};

struct Refusal {
  int error;
  Reason reason;
  std::string text;
};

TEST_F(GuardedStationLineTest, SaysOnceWhyAPortDoesNotOpen) {
  const std::vector<Refusal> failures{{EACCES, Reason::noRight, "scripted: no right to open it"},
                                      {EBUSY, Reason::busy, "scripted: another program has it open"},
                                      {ENOENT, Reason::missing, "scripted: there is no such port now"},
                                      {ENXIO, Reason::vanished, "scripted: the device behind it is gone"},
                                      {EMFILE, Reason::other, "scripted: "}};
  terminal->failAlways(ScriptedTerminal::Call::open, failures[0].error);
  open("LodeTreadmill");
  for (const Refusal& failure : failures) {
    terminal->failAlways(ScriptedTerminal::Call::open, failure.error);
    run(5s);
    const auto told = all<LineFailed>();
    ASSERT_THAT(told, SizeIs(1)) << failure.error;  // tried every second
    EXPECT_EQ(told[0].reason, failure.reason);
    EXPECT_EQ(told[0].error, failure.error);
    EXPECT_THAT(told[0].text, HasSubstr(failure.text));
    EXPECT_EQ(station_->readiness().code(), Answer::Code::notOpen);
    EXPECT_THAT(station_->alarms(), testing::ElementsAre(AlarmKind::portNotOpened));
    events_.clear();
  }
  terminal->succeed(ScriptedTerminal::Call::open);
  run(1s);
  EXPECT_THAT(all<LineOpened>(), SizeIs(1));
  EXPECT_THAT(station_->alarms(), SizeIs(0));
}

TEST_F(GuardedStationLineTest, OpensNobodyElsesAdapterUnderTheNameOfOneThatWent) {
  open("LodeTreadmill");
  run(2s);
  ASSERT_THAT(all<LineOpened>(), SizeIs(1));
  VirtualDeviceRegistry::shared()->remove(path);
  terminal->vanish();
  run(1s);
  ASSERT_THAT(all<LineVanished>(), SizeIs(1));
  terminal->comeBack();
  plugIn();
  run(5s);
  EXPECT_THAT(all<LineOpened>(), SizeIs(1));
}

TEST_F(GuardedStationLineTest, WhatCannotBeASaturationIsNone) {
  simulators::SimulatedStation simulated;
  simulated.add("LodeTreadmill", "treadmill");
  plugIn();
  GuardedSession::time().settle();
  auto opening = GuardedStation::open({.exercise = {"LodeTreadmill", "treadmill"},
                                       .oximeter = path,
                                       .watcher = std::nullopt,
                                       .journal = std::nullopt});
  ASSERT_TRUE(opening);
  station_ = opening.station();
  station_->onEvent([this](const Event& event) { events_.push_back(event); });
  run(1s);
  // A frame counts when the next ones stand where they should.
  for (const std::uint8_t percent : Bytes{97, 97, 97, 97, 97, 0, 0, 0, 127, 127, 127, 96, 96, 96, 96, 96}) {
    terminal->deliver(simulators::medxingFrame(percent));
    run(1s);
  }
  std::set<float> measured;
  for (const auto& value : all<SaturationMeasured>()) measured.insert(value.saturation);
  EXPECT_THAT(measured, testing::ElementsAre(96, 97));
  EXPECT_THAT(all<Implausible>(), SizeIs(6));
  station_.reset();
  GuardedSession::time().advance(200ms);
}

/// An ergometer that says what the test wants.
class ScriptedErgometerTest : public GuardedStationLineTest {
 protected:
  ScriptedErgometerTest() {
    terminal->onWrite([this](const Bytes& bytes) {
      const std::string command(bytes.begin(), bytes.end());
      if (command == "D\r") say(pedalRate);
      if (command == "B\r") say(power);
      if (command == "O\r") say(systolic);
      if (command == "U\r") say(diastolic);
    });
    open("ErgosanaK4.8P10");
    run(5s);
  }

  void say(const std::string& text) {
    if (!text.empty()) terminal->deliver(Bytes(text.begin(), text.end()));
  }

  std::string pedalRate = "n000\r";
  std::string power = "B000\r";
  std::string systolic = "O120\r";
  std::string diastolic = "U080\r";
};

/// While it runs at 100 W.
class ScriptedPowerTest : public ScriptedErgometerTest {
 protected:
  ScriptedPowerTest() {
    EXPECT_TRUE(station_->start().isAccepted());
    EXPECT_TRUE(station_->setLoad({.power = 100}).isAccepted());
    power = "B050\r";
    run(4s);
    power = "B100\r";
    run(30s);
    EXPECT_THAT(station_->alarms(), SizeIs(0));
  }

  /// Loads that were reported before this event.
  template <class What>
  std::ptrdiff_t loadsBefore() const {
    const auto end = std::find_if(events_.begin(), events_.end(), [](const Event& event) {
      return std::holds_alternative<What>(event.what);
    });
    return std::count_if(events_.begin(), end,
                         [](const Event& event) { return std::holds_alternative<LoadMeasured>(event.what); });
  }
};

TEST_F(ScriptedPowerTest, LessThanAskedIsAnAlarmUntilItFollows) {
  power = "B080\r";
  run(10s);
  EXPECT_THAT(station_->alarms(), testing::ElementsAre(AlarmKind::disagreement));
  EXPECT_EQ(station_->state(), GuardedStation::State::running);
  // Nothing is raised meanwhile.
  EXPECT_TRUE(station_->setLoad({.power = 150}).isAccepted());
  run(3s);
  EXPECT_EQ(station_->commanded().power, 100);
  power = "B100\r";
  run(2s);
  EXPECT_THAT(station_->alarms(), SizeIs(0));
}

TEST_F(ScriptedPowerTest, MoreThanAskedIsAProtectiveStop) {
  power = "B140\r";
  run(2s);
  EXPECT_THAT(all<ProtectiveStop>(), SizeIs(0));  // a byte may have changed
  run(3s);
  ASSERT_THAT(all<ProtectiveStop>(), SizeIs(1));
  EXPECT_EQ(all<ProtectiveStop>()[0].cause, AlarmKind::fasterThanAsked);
  EXPECT_EQ(station_->state(), GuardedStation::State::stopping);
}

TEST_F(ScriptedPowerTest, AStopTakesTwoZerosThatFollowIt) {
  run(100ms);  // no answer is on its way
  events_.clear();
  EXPECT_TRUE(station_->stop().isAccepted());
  power = "B000\r";
  run(10s);
  ASSERT_THAT(all<StandstillSeen>(), SizeIs(1));
  EXPECT_EQ(loadsBefore<StandstillSeen>(), 2);
}

TEST_F(ScriptedPowerTest, TheZerosThatCauseAStopDoNotEndIt) {
  events_.clear();
  power = "B000\r";
  run(10s);
  ASSERT_THAT(all<StandstillSeen>(), SizeIs(1));
  EXPECT_EQ(loadsBefore<ProtectiveStop>(), 2);
  EXPECT_EQ(loadsBefore<StandstillSeen>(), 4);
}

TEST_F(ScriptedPowerTest, ACloseIsToldBeforeTheStopThatItAsksFor) {
  events_.clear();
  station_->close();
  const auto asked = all<Asked>();
  ASSERT_THAT(asked, SizeIs(2));
  EXPECT_EQ(asked[0].command, Command::close);
  EXPECT_EQ(asked[1].command, Command::stop);
}

TEST_F(ScriptedPowerTest, NoHalfFromBeforeASilenceIsCompletedAfterIt) {
  pedalRate = "";
  power = "B1";
  run(1s);
  power = "";
  run(3s);
  EXPECT_THAT(station_->alarms(), testing::ElementsAre(AlarmKind::exerciseSilent));
  events_.clear();
  power = "99\r";
  run(1s);
  EXPECT_THAT(all<LoadMeasured>(), SizeIs(0));
  power = "B100\r";
  run(1s);
  ASSERT_THAT(all<LoadMeasured>(), testing::Not(testing::IsEmpty()));
  EXPECT_EQ(all<LoadMeasured>()[0].load.power, 100);
}

/// While it measures a pressure at rest.
class ScriptedCuffTest : public ScriptedErgometerTest {
 protected:
  ScriptedCuffTest() { EXPECT_TRUE(station_->measurePressure().isAccepted()); }
};

TEST_F(ScriptedCuffTest, WhatCannotBeAPressureIsNone) {
  diastolic = "U000\r";
  run(48s);
  EXPECT_THAT(all<PressureMeasured>(), SizeIs(0));
  EXPECT_THAT(all<Implausible>(), testing::Not(testing::IsEmpty()));
  diastolic = "U080\r";
  run(10s);
  const auto measured = all<PressureMeasured>();
  ASSERT_THAT(measured, SizeIs(1));
  EXPECT_EQ(measured[0].pressure, (Pressure{120, 80}));
}

TEST_F(ScriptedCuffTest, APressureIsFreshForThreeMinutes) {
  run(60s);
  const auto pressure = [this] { return station_->readings().pressure; };
  ASSERT_EQ(pressure().state, Reading<Pressure>::State::fresh);
  while (Clock::now() - pressure().at < 180s) run(100ms);
  EXPECT_EQ(pressure().state, Reading<Pressure>::State::fresh);
  run(100ms);
  EXPECT_EQ(pressure().state, Reading<Pressure>::State::stale);
  EXPECT_EQ(pressure().value, (Pressure{120, 80}));
}

TEST_F(ScriptedCuffTest, NoHalfOfAnOldPressureIsTaken) {
  run(2s);
  systolic = "O150\r";
  diastolic = "";
  run(48s);
  // The diastolic value that was there when it began is none of this measurement.
  EXPECT_THAT(all<PressureMeasured>(), SizeIs(0));
  diastolic = "U095\r";
  run(10s);
  const auto measured = all<PressureMeasured>();
  ASSERT_THAT(measured, SizeIs(1));
  EXPECT_EQ(measured[0].pressure, (Pressure{150, 95}));
}

TEST_F(ScriptedCuffTest, OneThatNeverComesIsAnAlarm) {
  systolic = "";
  run(100s);
  EXPECT_THAT(all<PressureMeasured>(), SizeIs(0));
  EXPECT_THAT(station_->alarms(), testing::Contains(AlarmKind::pressureMissing));
  EXPECT_FALSE(station_->isMeasuringPressure());
}

TEST_F(ScriptedCuffTest, EachIsAskedForEquallyOften) {
  systolic = "";
  const auto fetches = [this] {
    const auto asked = all<Asked>();
    return std::count_if(asked.begin(), asked.end(),
                         [](const Asked& one) { return one.command == Command::requestPressure; });
  };
  run(100s);
  EXPECT_EQ(fetches(), 9);
  events_.clear();
  EXPECT_TRUE(station_->measurePressure().isAccepted());
  run(100s);
  EXPECT_EQ(fetches(), 9);
}

TEST_F(ScriptedCuffTest, PollsWaitWhileItsCommandsAreUnderWay) {
  run(60s);
  std::optional<Clock::Instant> begun;
  int commands = 0;
  for (const Event& event : events_) {
    const auto* asked = std::get_if<Asked>(&event.what);
    if (!asked) continue;
    if (asked->command == Command::startPressure || asked->command == Command::requestPressure) {
      begun = event.at;
      ++commands;
    }
    if (asked->command == Command::requestLoad && begun) {
      EXPECT_GE(event.at - *begun, 900ms);
    }
  }
  EXPECT_EQ(commands, 2);
}

/// What a watcher is told, from one that writes it down and ends.
TEST_F(GuardedStationLineTest, TellsItsWatcherAStopOfAMinute) {
  const ScratchFolder folder;
  const std::filesystem::path program = folder / "watcher";
  const std::filesystem::path page = folder / "page";
  std::ofstream(program) << "#!/bin/sh\nexec cat <&" << detail::sharedPage << " >'" << page.string() << "'\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  forgetWatch(path);
  terminal->onWrite([this](const Bytes& bytes) {
    if (bytes == Bytes{'D', '\r'}) terminal->deliver(Bytes{'n', '0', '0', '0', '\r'});
    if (bytes == Bytes{'B', '\r'}) terminal->deliver(Bytes{'B', '0', '0', '0', '\r'});
  });
  plugIn();
  station_ =
      GuardedStation::open(
          {.exercise = {"ErgosanaK4.8P10", path}, .watcher = program.string(), .journal = std::nullopt})
          .station();
  ASSERT_TRUE(station_);
  run(5s);
  EXPECT_EQ(station_->start().code(), Answer::Code::noWatcher);
  forgetWatch(path);

  const std::string told = cli::textOf(page);
  ASSERT_EQ(told.size(), sizeof(detail::WatchPage));
  detail::StopPlan plan;
  std::memcpy(&plan, told.data() + offsetof(detail::WatchPage, plan), sizeof plan);
  ASSERT_EQ(plan.stepCount, 1U);
  const detail::StopStep& step = plan.steps[0];
  EXPECT_EQ(std::string(step.bytes, step.bytes + step.length), "F\rF\rF\r");
  EXPECT_EQ(step.every, std::chrono::nanoseconds(1s).count());
  EXPECT_EQ(step.times, 60U);
}

TEST_F(GuardedStationLineTest, AnImmediateStopIsWrittenBeforeItReturns) {
  open("LodeTreadmill");
  run(2s);
  terminal->forgetWritten();
  station_->stopNow();
  EXPECT_THAT(terminal->written(), testing::ElementsAre(hex("02 03 00 A1 30 03")));
}

TEST_F(GuardedStationLineTest, ClosesAllTheSameWhereItsPortCannot) {
  open("LodeTreadmill");
  run(1s);
  terminal->failNext(ScriptedTerminal::Call::close, EIO);
  station_->close();
  EXPECT_EQ(station_->readiness().code(), Answer::Code::closed);
  run(15s);
  EXPECT_TRUE(station_->isClosed());
}

TEST_F(GuardedStationLineTest, OpensASilentLineAnewThoughItsOldPortCannotBeClosed) {
  open("LodeTreadmill");
  terminal->failNext(ScriptedTerminal::Call::close, EIO);
  run(20s);
  EXPECT_EQ(terminal->count(ScriptedTerminal::Call::open), 2U);
  EXPECT_TRUE(terminal->isOpen());
}

TEST_F(GuardedStationLineTest, IsNotOpenedByAProcessThatCanOpenNothingMore) {
#if defined(__has_feature)
#if __has_feature(undefined_behavior_sanitizer)
  GTEST_SKIP() << "this sanitizer takes every object for a broken one where it cannot open a pipe; ./test "
                  "dev runs this";
#endif
#endif
  plugIn();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const auto opening = GuardedStation::open(
      {.exercise = {"LodeTreadmill", path}, .watcher = std::nullopt, .journal = std::nullopt});
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(opening.answer().code(), Answer::Code::notOpen);
  EXPECT_EQ(opening.answer().reason(), "no descriptor is left to find out what stops LodeTreadmill");
}

}  // namespace
}  // namespace tarsil
