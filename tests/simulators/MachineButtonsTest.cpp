// What a machine does when somebody uses its own buttons, and what it then says to its host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "simulators/devices/acceptedReply.hpp"
#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/physics/Patient.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::SizeIs;
using Button = SimulatedDevice::Button;

/// A machine without any line.
class Machine {
 public:
  explicit Machine(const std::string& model) : device_(makeSimulatedDevice(model, patient_)) {}

  SimulatedDevice* operator->() { return device_.get(); }

  /// Everything that it answers.
  Bytes ask(ByteView command) {
    device_->receive(command);
    return answers();
  }
  Bytes answers() {
    Bytes all;
    for (const auto& message : device_->takeOutput()) {
      all.insert(all.end(), message.bytes.begin(), message.bytes.end());
    }
    return all;
  }
  void pass(Duration duration) {
    for (Duration passed{}; passed < duration; passed += 20ms) device_->advance(20ms);
  }
  double speed() const { return device_->truth().actual.speed; }

 private:
  Patient patient_;
  std::unique_ptr<SimulatedDevice> device_;
};

/// A treadmill that runs at 5 km/h.
struct Driven {
  const char* model;
  const char* start;
  const char* fiveKilometres;
  const char* stop;
  /// What it answers to start and speed when it is free, and when it was stopped at the machine.
  Bytes started, refusedStart, refusedSpeed;
};

Bytes lodeOEMRefusal(std::uint8_t speed) {
  return {0xAC, 0x01, 0xEF, 0x0E, 0x0D, 0x01, 0x01, 0x01, 0x00, speed, 0x00, 0x10, 0x00, 0x00};
}

const std::vector<Driven> treadmills{
    {"LodeTreadmill", "02 01 00 a0 50 03", "02 05 02 00 32 59 19 03", "02 03 00 a1 30 03",
     acceptedReply(0x01, 0x80, {}), acceptedReply(0x01, 0x02, {}), acceptedReply(0x05, 0x08, {})},
    {"LodeOEMTreadmill",
     "ac 01 0b 00 00 00 00",
     "ac 01 09 00 00 00 00 00 00 32 00 10 00 00 00 00 00 00 00 00",
     "ac 01 0c 00 00 00 00",
     {},
     lodeOEMRefusal(50),
     lodeOEMRefusal(50)},
    {"TrackMaster", "a1", "a3 30 33 31", "a2", {0xB1}, {0xBF}, {0xBF}},
    {"TM-400V2", "23 e3 10 00 10 00 fd", "23 e3 00 61 32 00 8a", "23 e3 10 00 20 00 ed", {}, {}, {}},
};

class TreadmillButtonsTest : public testing::TestWithParam<Driven> {
 protected:
  TreadmillButtonsTest() {
    EXPECT_EQ(machine_.ask(start_), GetParam().started);
    machine_.ask(fiveKilometres_);
    machine_.pass(10s);
    EXPECT_NEAR(machine_.speed(), 5.0, 0.02);
  }

  Machine machine_{GetParam().model};
  const Bytes start_ = hex(GetParam().start);
  const Bytes fiveKilometres_ = hex(GetParam().fiveKilometres);
};

TEST_P(TreadmillButtonsTest, StoppedAtTheMachineTheBeltStandsAndNoCommandMovesIt) {
  EXPECT_TRUE(machine_->press(Button::stop));
  machine_.pass(10s);
  EXPECT_EQ(machine_.speed(), 0.0);
  EXPECT_FALSE(machine_->truth().isRunning);

  Bytes refusedStart = GetParam().refusedStart;
  Bytes refusedSpeed = GetParam().refusedSpeed;
  // This machine's refusal carries the speed.
  if (GetParam().model == std::string("LodeOEMTreadmill")) refusedStart[9] = refusedSpeed[9] = 0;
  EXPECT_EQ(machine_.ask(start_), refusedStart);
  EXPECT_EQ(machine_.ask(fiveKilometres_), refusedSpeed);
  machine_.pass(10s);
  EXPECT_EQ(machine_.speed(), 0.0);
}

TEST_P(TreadmillButtonsTest, StartAtTheMachineGivesTheBeltBackToTheHost) {
  machine_->press(Button::stop);
  machine_.pass(10s);
  EXPECT_TRUE(machine_->press(Button::start));
  machine_.pass(10s);
  EXPECT_EQ(machine_.speed(), 0.0);
  EXPECT_EQ(machine_.ask(start_), GetParam().started);
  machine_.ask(fiveKilometres_);
  machine_.pass(10s);
  EXPECT_NEAR(machine_.speed(), 5.0, 0.02);
}

TEST_P(TreadmillButtonsTest, TheHostsOwnStopNeedsNoButton) {
  machine_.ask(hex(GetParam().stop));
  machine_.pass(10s);
  EXPECT_EQ(machine_.speed(), 0.0);
  EXPECT_EQ(machine_.ask(start_), GetParam().started);
  machine_.pass(10s);
  EXPECT_NEAR(machine_.speed(), 5.0, 0.02);
}

INSTANTIATE_TEST_SUITE_P(All, TreadmillButtonsTest, testing::ValuesIn(treadmills), [](const auto& tested) {
  std::string name = tested.param.model;
  std::erase(name, '-');
  return name;
});

TEST(MachineButtonsTest, TheEmergencyStopBrakesHardAndHoldsUntilItIsReleased) {
  Machine machine("LodeTreadmill");
  machine.ask(hex("02 01 00 a0 50 03"));
  machine.ask(hex("02 05 02 00 32 59 19 03"));
  machine.pass(10s);
  EXPECT_TRUE(machine->press(Button::emergency));
  machine.pass(500ms);
  EXPECT_NEAR(machine.speed(), 2.5, 0.01);
  machine.pass(500ms);
  EXPECT_EQ(machine.speed(), 0.0);
  machine->press(Button::start);
  EXPECT_EQ(machine.ask(hex("02 01 00 a0 50 03")), acceptedReply(0x01, 0x02, {}));
  EXPECT_TRUE(machine->release(Button::emergency));
  EXPECT_EQ(machine.ask(hex("02 01 00 a0 50 03")), acceptedReply(0x01, 0x80, {}));
}

TEST(MachineButtonsTest, OnlyMachinesThatHaveAButtonCanHaveItPressed) {
  for (const char* model : {"TrackMaster", "TM-400V2", "LodeOEMTreadmill", "ErgolineK2.4P10"}) {
    EXPECT_FALSE(Machine(model)->press(Button::emergency)) << model;
    EXPECT_FALSE(Machine(model)->release(Button::emergency)) << model;
    EXPECT_FALSE(Machine(model)->stopWhenUnheard(true)) << model;
  }
  EXPECT_FALSE(Machine("LodeTreadmill")->release(Button::stop));
  for (const char* model : {"Tango", "MEDXINGPort", "KivBicycle"}) {
    EXPECT_FALSE(Machine(model)->press(Button::stop)) << model;
  }
}

class ErgometerButtonsTest : public testing::TestWithParam<const char*> {};

TEST_P(ErgometerButtonsTest, StoppedAtTheMachineThePedalsStandUntilStartIsPressed) {
  Machine machine(GetParam());
  const bool isLode = GetParam() == std::string("Ergometer38K4");
  const auto drive = [&] {
    const std::string commands = isLode                                         ? "1,SP100\r"
                                 : GetParam() == std::string("ErgolineK2.4P10") ? "s\r100W\r"
                                 : GetParam() == std::string("ErgosanaK4.8P10") ? "S\r100W\r"
                                                                                : "S\r100\r";
    machine.ask(Bytes(commands.begin(), commands.end()));
    machine.pass(10s);
    return machine->truth();
  };
  EXPECT_EQ(drive(), (Truth{Truth::Exercise::ergometer, {.power = 100}, {.power = 100}, true}));
  EXPECT_TRUE(machine->press(Button::stop));
  EXPECT_EQ(drive(), (Truth{Truth::Exercise::ergometer, {}, {.power = 100}, false}));
  EXPECT_TRUE(machine->press(Button::start));
  EXPECT_EQ(drive(), (Truth{Truth::Exercise::ergometer, {.power = 100}, {.power = 100}, true}));
}

INSTANTIATE_TEST_SUITE_P(All, ErgometerButtonsTest,
                         testing::Values("ErgolineK2.4P10", "ErgosanaK4.8P10", "ErgometricsK2.4P3",
                                         "Ergometer38K4"));

TEST(MachineButtonsTest, ATreadmillMayStopWhenNobodyCommandsIt) {
  Machine machine("LodeTreadmill");
  machine.ask(hex("02 01 00 a0 50 03"));
  machine.ask(hex("02 05 02 00 32 59 19 03"));
  machine.pass(10s);
  EXPECT_TRUE(machine->truth().isRunning);
  EXPECT_TRUE(machine->stopWhenUnheard(true));
  for (int i = 0; i < 10; ++i) {
    machine.pass(400ms);
    machine.ask(hex("02 08 00 a6 00 03"));
  }
  EXPECT_TRUE(machine->truth().isRunning);
  machine.pass(600ms);
  EXPECT_FALSE(machine->truth().isRunning);
}

TEST(MachineButtonsTest, TheHistoryTellsWhatWasAskedAndHowTheBeltFollowed) {
  Machine machine("LodeTreadmill");
  machine.pass(1s);
  machine.ask(hex("02 01 00 a0 50 03"));
  machine.ask(hex("02 05 02 00 0a 58 cb 03"));
  machine.pass(2s);
  machine->press(Button::stop);
  machine.pass(2s);
  std::vector<std::string> lines;
  for (const TruthAt& entry : machine->history()) lines.push_back(text(entry));
  EXPECT_THAT(lines, ElementsAre("0.00 s, asked 0.0 km/h 0.0 %, actual 0.0 km/h 0.0 %, stopped",
                                 "1.00 s, asked 0.0 km/h 0.0 %, actual 0.0 km/h 0.0 %, running",
                                 "1.00 s, asked 1.0 km/h 0.0 %, actual 0.0 km/h 0.0 %, running",
                                 "1.26 s, asked 1.0 km/h 0.0 %, actual 0.3 km/h 0.0 %, running",
                                 "1.52 s, asked 1.0 km/h 0.0 %, actual 0.5 km/h 0.0 %, running",
                                 "1.78 s, asked 1.0 km/h 0.0 %, actual 0.8 km/h 0.0 %, running",
                                 "2.04 s, asked 1.0 km/h 0.0 %, actual 1.0 km/h 0.0 %, running",
                                 "3.02 s, asked 1.0 km/h 0.0 %, actual 1.0 km/h 0.0 %, stopped",
                                 "3.28 s, asked 1.0 km/h 0.0 %, actual 0.7 km/h 0.0 %, stopped",
                                 "3.54 s, asked 1.0 km/h 0.0 %, actual 0.5 km/h 0.0 %, stopped",
                                 "3.80 s, asked 1.0 km/h 0.0 %, actual 0.2 km/h 0.0 %, stopped",
                                 "4.04 s, asked 1.0 km/h 0.0 %, actual 0.0 km/h 0.0 %, stopped"));
}

TEST(MachineButtonsTest, ABrakeNeitherPullsNorIsStrongerThanItIs) {
  Machine machine("ErgometricsK2.4P3");
  machine.ask(Bytes{'S', '\r', '-', '2', '\r'});
  machine.pass(1s);
  EXPECT_EQ(machine->truth().actual.power, 0.0F);
  machine.ask(Bytes{'5', '0', '0', '0', '\r'});
  machine.pass(1min);
  EXPECT_EQ(machine->truth().actual.power, 1000.0F);
  EXPECT_EQ(machine->truth().asked.power, 5000.0F);
}

TEST(MachineButtonsTest, ABeltIsNeitherFasterNorSteeperThanItIs) {
  Machine machine("TrackMaster");
  machine.ask(Bytes{0xA1, 0xA3, '9', '9', '9', 0xA4, '9', '9', '9', '9'});
  machine.pass(2min);
  EXPECT_DOUBLE_EQ(machine->truth().actual.speed, 18.6 * 1.609344);
  EXPECT_EQ(machine->truth().actual.grade, 30.0);
  EXPECT_DOUBLE_EQ(machine->truth().asked.speed, 99.9 * 1.609344);
  EXPECT_DOUBLE_EQ(machine->truth().asked.grade, 999.9);
}

TEST(MachineButtonsTest, DevicesThatNobodyExercisesOnHaveNoTruth) {
  Machine machine("Tango");
  machine.pass(10s);
  EXPECT_EQ(machine->truth(), Truth());
  ASSERT_THAT(machine->history(), SizeIs(1));
  EXPECT_EQ(text(machine->history()[0]), "0.00 s, asked nothing, actual nothing, stopped");
}

}  // namespace
}  // namespace tarsil::simulators
