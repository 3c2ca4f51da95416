#include "simulators/lines/SimulatedStation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "simulators/devices/simulatedDevices.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/simulators/simulatedTime.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(SimulatedDevices, ThereIsOneForEveryModelWithALine) {
  std::vector<std::string> models;
  for (const auto& model : standardCatalogue().models()) {
    if (model.makeFraming) models.push_back(model.name);
  }
  EXPECT_THAT(simulatedModels(), testing::UnorderedElementsAreArray(models));
}

/// What some bare drivers need, and no real line does: both Lode treadmills' count the chunks that they get
/// as if each were one byte, and the oximeter's takes each chunk for a whole frame.
const CableBehaviour gentle = CableBehaviour::gentleLine();

/// The real library, facade to terminal, against simulated devices in this process, behind USB adapters where
/// a test does not ask for another line. Everything that lives as long as the process is made once.
class SimulatedStationTest : public testing::Test {
 protected:
  static VirtualTime& time() { return simulatedTime(); }

  SimulatedStationTest() { time(); }

  /// Binds and opens the model, and starts with its calls forgotten.
  SimulatedDevice& openExercise(const std::string& kind, const std::string& model,
                                const CableBehaviour& cable = usualCable()) {
    simulated_.emplace();
    SimulatedDevice& device = simulated_->add(model, "exercise", cable);
    station_.getDeviceByType(kind);
    listPorts();
    const auto driver = station_.getSelected(model, PortType::device);
    driver->kiv_delegate = host_;
    station_.delegate = host_;
    station_.selectedPort("exercise", PortType::device);
    EXPECT_TRUE(station_.openPort(PortType::device));
    time().advance(100ms);
    EXPECT_THAT(host_.takeCalls(), ElementsAre(portWasOpened()));
    return device;
  }

  void listPorts() {
    time().settle();
    station_.getPort(false);
    station_.port();
  }

  RecordedCalls callsWithin(Duration duration) {
    time().advance(duration);
    return host_.takeCalls();
  }

  ~SimulatedStationTest() override {
    for (const auto& port : {station_.devicePort, station_.BPPort, station_.SpO2Port}) {
      if (port) port->close();
    }
    time().settle();
    station_.devicePort = station_.BPPort = station_.SpO2Port = nullptr;
    station_.currentDevice = station_.BPD = station_.SpO2D = nullptr;
    station_.delegate = nullptr;
    simulated_.reset();
    time().settle();
  }

  StressECGDeviceManager& station_ = StressECGDeviceManager::share();
  RecordingHost host_;
  PrintedLines printed_;
  std::optional<SimulatedStation> simulated_;
};

TEST_F(SimulatedStationTest, LodeTreadmillMovesItsBeltAndReportsTenths) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill", gentle);
  station_.startStressDevice();
  station_.setLoad(5.0F, 2.5F);
  time().advance(10s);
  host_.takeCalls();
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(treadmillLoad(50.0F, 25.0F)));
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 2.5 %");

  station_.stopStressDevice();
  time().advance(10s);
  host_.takeCalls();
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(treadmillLoad(0.0F, 25.0F)));
}

TEST_F(SimulatedStationTest, LodeTreadmillAcceleratesByOneKilometreAnHourEachSecond) {
  openExercise("Treadmill", "LodeTreadmill", gentle);
  station_.startStressDevice();
  station_.setLoad(6.0F, 0.0F);
  time().advance(3s);
  host_.takeCalls();
  station_.requestLoad();
  const RecordedCalls calls = callsWithin(100ms);
  EXPECT_THAT(calls, ElementsAre(testing::AnyOf(treadmillLoad(29.0F, 0.0F), treadmillLoad(30.0F, 0.0F))));
}

TEST_F(SimulatedStationTest, LodeTreadmillRefusesWithTheTextsOfItsStatuses) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill", gentle);
  device.refuseCommands("02");
  station_.startStressDevice();
  EXPECT_THAT(callsWithin(1s),
              ElementsAre(error("02", "treadmill could not be started, emergency stop active")));
  device.refuseCommands(std::nullopt);
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(treadmillLoad(0.0F, 0.0F)));
}

TEST_F(SimulatedStationTest, LodeTreadmillIsNotHeardBehindAnAdapter) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill");
  station_.startStressDevice();
  station_.setLoad(5.0F, 2.5F);
  time().advance(10s);
  station_.requestLoad();
  EXPECT_THAT(callsWithin(10s), IsEmpty());
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 2.5 %");
}

TEST_F(SimulatedStationTest, TrackMasterReportsKilometresAndStopsByRampingDown) {
  SimulatedDevice& device = openExercise("Treadmill", "TrackMaster");
  station_.startStressDevice();
  station_.setLoad(5.0F, 2.0F);
  // The adapter hands over two of the three acknowledgements together, of which the bare driver hears one;
  // the other stays in front of its next reply.
  EXPECT_THAT(callsWithin(10s), ElementsAre(successfully(), successfully()));
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(successfully(), treadmillLoad(5.0F, 2.0F)));

  station_.stopStressDevice();
  EXPECT_THAT(callsWithin(30s), ElementsAre(successfully(), successfully(), successfully()));
  EXPECT_THAT(device.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

TEST_F(SimulatedStationTest, TrackMasterRefuses) {
  SimulatedDevice& device = openExercise("Treadmill", "TrackMaster");
  device.refuseCommands("BF");
  station_.startStressDevice();
  EXPECT_THAT(callsWithin(1s), ElementsAre(error("00", "disable instruction")));
}

TEST_F(SimulatedStationTest, TrackMasterAnswersThatItIsReady) {
  openExercise("Treadmill", "TrackMaster");
  station_.deviceState();
  EXPECT_THAT(callsWithin(1s), testing::Contains(deviceIsReady(true)));
}

TEST_F(SimulatedStationTest, LodeOEMReportsItsFirstAnswerForEver) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeOEMTreadmill", gentle);
  station_.startStressDevice();
  station_.setLoad(5.0F, 16.0F);
  time().advance(60s);
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 16 %, unreadable bytes 0");
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), AllOf(testing::Not(IsEmpty()), Each(treadmillLoad(50.0F, 16.0F))));

  station_.setLoad(8.0F, 20.0F);
  time().advance(60s);
  EXPECT_THAT(device.status(), HasSubstr("8.0 km/h, grade 20 %"));
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), Each(treadmillLoad(50.0F, 16.0F)));
}

TEST_F(SimulatedStationTest, LodeOEMCannotReadATargetOfOneDigit) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeOEMTreadmill");
  station_.startStressDevice();
  station_.setLoad(4.5F, 5.0F);
  time().advance(10s);
  EXPECT_THAT(device.status(), HasSubstr("0.0 km/h"));
  EXPECT_THAT(device.status(), testing::Not(HasSubstr("unreadable bytes 0")));
}

TEST_F(SimulatedStationTest, LodeOEMRefusesTheFirstRequest) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeOEMTreadmill", gentle);
  // The bare driver takes a standing belt's zeros for the end of the reply, and stops.
  station_.startStressDevice();
  station_.setLoad(5.0F, 16.0F);
  time().advance(60s);
  device.refuseCommands("EF");
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), AllOf(testing::Not(IsEmpty()), Each(error("", "send failure"))));
}

TEST_F(SimulatedStationTest, TM400ObeysAndSaysNothing) {
  SimulatedDevice& device = openExercise("Treadmill", "TM-400V2");
  station_.startStressDevice();
  station_.setLoad(5.0F, 2.0F);
  EXPECT_THAT(callsWithin(10s), IsEmpty());
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 0 %, unreadable bytes 0");
  station_.setLoad(1.0F, 0.0F);  // an odd number of digits
  time().advance(10s);
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 0 %, unreadable bytes 7");
  station_.stopStressDevice();
  time().advance(10s);
  EXPECT_THAT(device.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

TEST_F(SimulatedStationTest, ErgosanaReportsRateAndPower) {
  SimulatedDevice& device = openExercise("Ergometer", "ErgosanaK4.8P10");
  station_.startStressDevice();
  station_.setLoad(75.0F, 0.0F);
  time().advance(10s);
  EXPECT_THAT(host_.takeCalls(), IsEmpty());
  EXPECT_THAT(device.status(), HasSubstr("pedals turning, 75 W"));
  station_.requestLoad();
  const RecordedCalls calls = callsWithin(1s);
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[1], ergometerPower(75.0F));
}

TEST_F(SimulatedStationTest, ErgosanaMeasuresBloodPressure) {
  SimulatedDevice& device = openExercise("Ergometer", "ErgosanaK4.8P10");
  station_.startBP(false);
  time().advance(1s);
  EXPECT_THAT(device.status(), HasSubstr("cuff measuring"));
  EXPECT_THAT(callsWithin(45s), IsEmpty());
  EXPECT_THAT(device.status(), HasSubstr("last pressure 120/78 mmHg"));
  // The answer to the start left a diastolic 0 behind, which is what the driver pairs with the systolic now.
  // Its rule reads both from the start of the text, so the pair is 0/0.
  station_.requestBP(false);
  EXPECT_THAT(callsWithin(1s), ElementsAre(bloodPressure(0.0F, 0.0F, 0)));
}

TEST_F(SimulatedStationTest, ErgolineReportsTheFirstNumberOfItsLifeToTheManagersDelegate) {
  openExercise("Ergometer", "ErgolineK2.4P10");
  station_.currentDevice->kiv_delegate = nullptr;
  station_.startStressDevice();
  station_.setLoad(100.0F, 0.0F);
  time().advance(10s);
  station_.requestLoad();
  // The rate comes first, and stays the number of all that follows. Each chunk becomes a call, so the adapter
  // decides how many there are.
  const RecordedCalls calls = callsWithin(1s);
  ASSERT_THAT(calls, SizeIs(Ge(3)));
  EXPECT_EQ(calls[0], ergometerRpm(58.0F));
  EXPECT_THAT(calls, Each(testing::AnyOf(ergometerRpm(58.0F), ergometerPower(58.0F))));
}

TEST_F(SimulatedStationTest, ErgometricsObeysAndIsNotHeard) {
  SimulatedDevice& device = openExercise("Ergometer", "ErgometricsK2.4P3");
  station_.startStressDevice();
  station_.setLoad(150.0F, 0.0F);
  station_.requestLoad();
  EXPECT_THAT(callsWithin(10s), IsEmpty());
  EXPECT_THAT(device.status(), HasSubstr("pedals turning, 150 W"));
}

TEST_F(SimulatedStationTest, LodeErgometerCannotReadThePowersThatItIsSent) {
  SimulatedDevice& device = openExercise("Ergometer", "Ergometer38K4");
  station_.setLoad(100.0F, 0.0F);
  station_.startBP(false);
  EXPECT_THAT(callsWithin(10s), IsEmpty());
  EXPECT_EQ(device.status(), "pedals still, 0 W, cuff measuring, unreadable powers 1");
}

TEST_F(SimulatedStationTest, TangoInitialisesThenMeasures) {
  simulated_.emplace();
  SimulatedDevice& device = simulated_->add("Tango", "monitor");
  listPorts();
  station_.selectedPort("monitor", PortType::BP);
  station_.BPD->kiv_delegate = host_;
  station_.openPort(PortType::BP);
  EXPECT_THAT(callsWithin(100ms), ElementsAre(portWasOpened()));
  station_.startBP(true);
  EXPECT_THAT(callsWithin(1s), ElementsAre(bloodPressure(0.0F, 0.0F, 3)));
  station_.startBP(true);
  EXPECT_THAT(callsWithin(15s), IsEmpty());
  EXPECT_THAT(device.status(), HasSubstr("cuff measuring"));
  EXPECT_THAT(callsWithin(10s), ElementsAre(bloodPressure(120.0F, 78.0F, 0)));
  station_.requestBP(true);
  EXPECT_THAT(callsWithin(1s), ElementsAre(bloodPressure(120.0F, 78.0F, 4)));
}

TEST_F(SimulatedStationTest, OximeterReportsEachChange) {
  simulated_.emplace();
  simulated_->add("MEDXINGPort", "finger", gentle);
  listPorts();
  station_.getSelected("MEDXINGPort", PortType::SpO2)->kiv_delegate = host_;
  station_.selectedPort("finger", PortType::SpO2);
  station_.openPort(PortType::SpO2);
  const RecordedCalls calls = callsWithin(30s);
  ASSERT_GT(calls.size(), 2U);
  EXPECT_EQ(calls[0], portWasOpened());
  for (std::size_t i = 1; i < calls.size(); ++i) {
    EXPECT_THAT(calls[i], testing::AnyOf(oxygenSaturation(98.0F, 1), oxygenSaturation(97.0F, 1)));
    EXPECT_NE(calls[i].text, calls[i - 1].text);
  }
}

TEST_F(SimulatedStationTest, PulledCableReachesTheHost) {
  openExercise("Treadmill", "LodeTreadmill");
  simulated_.reset();
  EXPECT_THAT(callsWithin(100ms), ElementsAre(portWasRemoved()));
  EXPECT_FALSE(station_.devicePort->isOpen());
}

TEST_F(SimulatedStationTest, AnAdapterComesBackUnderAnotherNameAsTheSameAdapter) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill", gentle);
  station_.startStressDevice();
  station_.setLoad(5.0F, 0.0F);
  time().advance(10s);
  host_.takeCalls();
  InProcessLine& line = simulated_->line("exercise");
  const auto found = [] { return VirtualDeviceRegistry::shared()->devices(); };
  const auto before = found().at(0);
  line.unplug();
  EXPECT_THAT(callsWithin(10s), ElementsAre(portWasRemoved()));
  EXPECT_THAT(found(), IsEmpty());
  EXPECT_EQ(device.status(), "belt running, 5.0 km/h, grade 0.0 %");

  line.plugIn("ttyUSB7");
  const auto after = found().at(0);
  EXPECT_EQ(after->calloutPath, "/dev/ttyUSB7");
  EXPECT_NE(after->calloutPath, before->calloutPath);
  EXPECT_EQ(after->usb, before->usb);
  EXPECT_EQ(after->stablePath, before->stablePath);
  EXPECT_EQ(after->usb->serialNumber, "SIM-exercise");

  // A new opener finds the belt as it was left.
  listPorts();
  station_.selectedPort("ttyUSB7", PortType::device);
  EXPECT_TRUE(station_.openPort(PortType::device));
  EXPECT_THAT(callsWithin(100ms), ElementsAre(portWasOpened()));
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(treadmillLoad(50.0F, 0.0F)));
}

TEST_F(SimulatedStationTest, AnOpenerOfTheOldPortHearsNothingOfTheNewOne) {
  openExercise("Treadmill", "LodeTreadmill");
  InProcessLine& line = simulated_->line("exercise");
  const auto old = VirtualDeviceRegistry::shared()->devices().at(0)->terminal;
  line.unplug();
  line.plugIn("exercise");
  EXPECT_FALSE(old->open("/dev/exercise"));
  EXPECT_NE(VirtualDeviceRegistry::shared()->devices().at(0)->terminal, old);
}

TEST_F(SimulatedStationTest, SilentDeviceSaysNothingAndRecovers) {
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill", gentle);
  device.beSilent(true);
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), IsEmpty());
  device.beSilent(false);
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), ElementsAre(treadmillLoad(0.0F, 0.0F)));
}

TEST_F(SimulatedStationTest, DroppedByteSilencesALodeTreadmillForGood) {
  // The driver keeps what it could not read and tests it together with all that follows.
  SimulatedDevice& device = openExercise("Treadmill", "LodeTreadmill", gentle);
  device.dropAByte();
  station_.requestLoad();
  time().advance(1s);
  host_.takeCalls();
  station_.requestLoad();
  EXPECT_THAT(callsWithin(1s), IsEmpty());
}

TEST_F(SimulatedStationTest, OneBodyDrivesAllDevices) {
  openExercise("Treadmill", "LodeTreadmill");
  simulated_->add("MEDXINGPort", "finger");
  EXPECT_NEAR(simulated_->patient().effort(), 1.0, 0.01);
  station_.startStressDevice();
  station_.setLoad(9.6F, 22.0F);
  time().advance(180s);
  EXPECT_NEAR(simulated_->patient().effort(), 23.7, 1.0);
  EXPECT_GT(simulated_->patient().systolicPressure(), 200.0);
  EXPECT_LT(simulated_->patient().oxygenSaturation(), 96.0);
}

TEST_F(SimulatedStationTest, KnowsOnlyItsModels) {
  simulated_.emplace();
  EXPECT_THROW(simulated_->add("Unicycle", "nothing"), std::invalid_argument);
}

}  // namespace
}  // namespace tarsil::simulators
