#include "tarsil/core/StressECGDeviceManager.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <thread>

#include "doubles/ScriptedCentral.hpp"
#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tarsil/support/Error.hpp"
#include "tests/core/sharedTime.hpp"
#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Names = StressECGDeviceManager::Names;

std::vector<std::string> operations;

/// Notes every operation and every binding of a port, in order, under its own name.
class NotingDevice : public KivStressDevice {
 public:
  using KivStressDevice::KivStressDevice;

  void setSerialPort(std::shared_ptr<ORSSerialPort> newPort) override {
    note("bind " + (newPort ? newPort->name() : std::string("none")));
    KivStressDevice::setSerialPort(std::move(newPort));
  }
  void setLoad(float kmph_or_power, float grade) override {
    note("setLoad " + std::to_string(kmph_or_power) + " " + std::to_string(grade));
  }
  void requestLoad() override { note("requestLoad"); }
  void startDeivce() override { note("startDeivce"); }
  void stopStressDevice() override { note("stopStressDevice"); }
  void startBP() override { note("startBP"); }
  void breakBP() override { note("breakBP"); }
  void requestBP() override { note("requestBP"); }
  void clearBP() override { note("clearBP"); }
  void startSpO2() override { note("startSpO2"); }
  void stopSpO2() override { note("stopSpO2"); }
  void requestSpO2() override { note("requestSpO2"); }
  void deviceState() override { note("deviceState"); }

 private:
  void note(const std::string& operation) {
    operations.push_back(name.value_or("monitor") + ": " + operation);
  }
};

ExerciseDeviceSettings exercise(std::string name, std::int64_t baud) {
  return {.Treadmill = 0,
          .name = std::move(name),
          .baud = baud,
          .databits = 8,
          .stopbits = 2,
          .parity = 2,
          .getWithBP_SpO2 = 0,
          .setWithBP_SpO2 = 0,
          .canStopBP = true,
          .autoSend = true,
          .actualLoad = true};
}

SpO2DeviceSettings oximeter(std::string name, std::int64_t baud) {
  return {.SpO2 = std::move(name), .baud = baud, .databits = 8, .stopbits = 1, .parity = 0};
}

/// A manager asks a model for devices and for nothing else.
template <class Device>
DeviceModel modelWithoutFacts(const auto& settings) {
  return {.name = "",
          .className = "",
          .kind = DeviceKind::treadmill,
          .exercise = std::nullopt,
          .makeDevice = [settings] { return std::make_shared<Device>(settings); },
          .makeFraming = {}};
}

DeviceCatalogue notingCatalogue() {
  return {
      .treadmills = {modelWithoutFacts<NotingDevice>(exercise("Belt", 4800)),
                     modelWithoutFacts<NotingDevice>(exercise("Twin", 4800)),
                     modelWithoutFacts<NotingDevice>(exercise("Twin", 9600))},
      .ergometers = {modelWithoutFacts<NotingDevice>(exercise("Bicycle", 38400))},
      .oximeters = {modelWithoutFacts<NotingDevice>(oximeter("Finger", 1200)),
                    modelWithoutFacts<NotingDevice>(oximeter("Pair", 1200)),
                    modelWithoutFacts<NotingDevice>(oximeter("Pair", 2400))},
      .bloodPressureMonitor = modelWithoutFacts<NotingDevice>(BPDeviceSettings{
          .BP = 9600, .databits = 8, .stopbits = 1, .parity = 0, .autoSend = true, .canStopBP = true}),
  };
}

/// A manager with the devices above, and serial devices that come and go as the test says.
class StressECGDeviceManagerTest : public testing::Test {
 protected:
  StressECGDeviceManagerTest() {
    operations.clear();
    // Before anything makes a timer.
    time();
    registry();
  }

  ~StressECGDeviceManagerTest() override {
    for (const auto& [name, terminal] : terminals_) registry()->remove("/dev/" + name);
    time().settle();
  }

  void plugIn(const std::string& name) {
    terminals_[name] = std::make_shared<doubles::ScriptedTerminal>();
    registry()->add(doubles::scriptedDevice(name, terminals_[name]));
    time().settle();
  }

  void unplug(const std::string& name) {
    registry()->remove("/dev/" + name);
    time().settle();
  }

  doubles::ScriptedTerminal& terminal(const std::string& name) { return *terminals_.at(name); }

  std::shared_ptr<ORSSerialPort> portNamed(const std::string& name) {
    for (const auto& port : *manager_->ports) {
      if (port->name() == name) return port;
    }
    return nullptr;
  }

  // One of each for all tests of a process: the port manager lives as long, and keeps to both.
  static VirtualTime& time() { return sharedTime(); }
  static std::shared_ptr<VirtualDeviceRegistry> registry() {
    static const auto registry = [] {
      auto virtualDevices = std::make_shared<VirtualDeviceRegistry>();
      SerialDeviceRegistry::exchangeShared(virtualDevices);
      return virtualDevices;
    }();
    return registry;
  }
  std::map<std::string, std::shared_ptr<doubles::ScriptedTerminal>> terminals_;
  std::shared_ptr<StressECGDeviceManager> manager_ =
      std::make_shared<StressECGDeviceManager>(notingCatalogue());
  PrintedLines printed_;
};

TEST_F(StressECGDeviceManagerTest, StartsWithNothingChosen) {
  EXPECT_FALSE(manager_->delegate);
  EXPECT_EQ(manager_->ports, std::nullopt);
  EXPECT_THAT(manager_->devices, IsEmpty());
  EXPECT_EQ(manager_->devicePort, nullptr);
  EXPECT_EQ(manager_->BPPort, nullptr);
  EXPECT_EQ(manager_->SpO2Port, nullptr);
  EXPECT_EQ(manager_->currentDevice, nullptr);
  EXPECT_EQ(manager_->BPD, nullptr);
  EXPECT_EQ(manager_->SpO2D, nullptr);
  EXPECT_THAT(manager_->SpO2Devices, IsEmpty());
  EXPECT_THAT(manager_->portNames, IsEmpty());
  EXPECT_THAT(manager_->portNamesWithSpO2, IsEmpty());
  EXPECT_FALSE(manager_->getPortsName);
  EXPECT_FALSE(manager_->getPortsNameWithSpO2);
  EXPECT_FALSE(manager_->deviceType);
  EXPECT_FALSE(manager_->isTango);
  EXPECT_EQ(manager_->timer, nullptr);
  EXPECT_EQ(manager_->btManager, nullptr);
  EXPECT_EQ(manager_->peripheral, nullptr);
  EXPECT_EQ(manager_->SpO2service, nullptr);
  EXPECT_EQ(manager_->serviceid, "FFB0");
  EXPECT_EQ(manager_->characteristicid, "FFB2");
  EXPECT_EQ(manager_->befoSpO2Value, "");
  EXPECT_FALSE(manager_->isreceived);
  EXPECT_NE(manager_->act, nullptr);
  EXPECT_FALSE(manager_->getPortIsSpO2);
}

TEST_F(StressECGDeviceManagerTest, NamesTheTwoKinds) {
  EXPECT_THAT(manager_->getDeivceType(), ElementsAre("Treadmill", "Ergometer"));
}

TEST_F(StressECGDeviceManagerTest, BuildsTheDevicesOfAKindAnewEachTime) {
  const auto treadmills = manager_->getDeviceByType("Treadmill");
  ASSERT_TRUE(treadmills);
  ASSERT_EQ(treadmills->size(), 3U);
  EXPECT_EQ(treadmills->front()->name, "Belt");
  EXPECT_EQ(manager_->devices, *treadmills);
  EXPECT_NE(manager_->getDeviceByType("Treadmill")->front(), treadmills->front());

  EXPECT_EQ(manager_->getDeviceByType("Ergometer")->size(), 1U);
  EXPECT_EQ(manager_->devices.size(), 1U);
}

TEST_F(StressECGDeviceManagerTest, ALoopOverTheDevicesOfAKindKeepsThem) {
  std::vector<std::string> names;
  for (auto& device : *manager_->getDeviceByType("Treadmill")) {
    manager_->getDeviceByType("Ergometer");  // which replaces `devices`
    names.push_back(*device->name);
  }
  for (auto& device : manager_->getSpO2Devices().value()) {
    manager_->getSpO2Devices();
    names.push_back(*device->name);
  }
  EXPECT_THAT(names, ElementsAre("Belt", "Twin", "Twin", "Finger", "Pair", "Pair"));
  EXPECT_THROW(*manager_->getDeviceByType("treadmill"), std::bad_optional_access);
}

TEST_F(StressECGDeviceManagerTest, KnowsNoOtherKind) {
  const auto devices = manager_->getDeviceByType("Treadmill");
  EXPECT_EQ(manager_->getDeviceByType("ergometer"), std::nullopt);
  EXPECT_EQ(manager_->getDeviceByType(""), std::nullopt);
  EXPECT_EQ(manager_->devices, *devices);
}

TEST_F(StressECGDeviceManagerTest, KeepsTheChosenDeviceWhenTheListIsBuiltAnew) {
  manager_->getDeviceByType("Treadmill");
  const auto chosen = manager_->getSelected("Belt", PortType::device);
  EXPECT_EQ(chosen, manager_->devices[0]);
  EXPECT_EQ(chosen, manager_->currentDevice);
  manager_->getDeviceByType("Treadmill");
  EXPECT_EQ(manager_->currentDevice, chosen);
  EXPECT_NE(manager_->getSelected("Belt", PortType::device), chosen);
}

TEST_F(StressECGDeviceManagerTest, ChoosesTheLastOfSeveralMatchesAndKeepsTheChoiceWhenNothingMatches) {
  manager_->getDeviceByType("Treadmill");
  const auto chosen = manager_->getSelected("Twin", PortType::device);
  EXPECT_EQ(chosen, manager_->devices[2]);
  EXPECT_EQ(manager_->getSelected("twin", PortType::device), chosen);
  EXPECT_EQ(manager_->currentDevice, chosen);
}

TEST_F(StressECGDeviceManagerTest, DoesNotBuildTheExerciseListByItself) {
  EXPECT_EQ(manager_->getSelected("Belt", PortType::device), nullptr);
  EXPECT_THAT(manager_->devices, IsEmpty());
}

TEST_F(StressECGDeviceManagerTest, BuildsTheOximeterListWhenItChoosesFromIt) {
  const auto chosen = manager_->getSelected("Finger", PortType::SpO2);
  ASSERT_NE(chosen, nullptr);
  EXPECT_EQ(manager_->SpO2D, chosen);
  ASSERT_EQ(manager_->SpO2Devices.size(), 3U);
  EXPECT_EQ(manager_->SpO2Devices[0], chosen);
  EXPECT_THAT(printed_.diagnostic(), ElementsAre("chosen SpO2 device: Finger"));
  EXPECT_THAT(printed_.fixed(), IsEmpty());
}

TEST_F(StressECGDeviceManagerTest, ChoosesFromTheOximeterListThatThereIs) {
  const auto first = manager_->getSpO2Devices();
  ASSERT_TRUE(first);
  EXPECT_EQ(manager_->SpO2Devices, *first);
  EXPECT_EQ(manager_->SpO2D, nullptr);
  EXPECT_EQ(manager_->getSelected("Finger", PortType::SpO2), first->at(0));
  EXPECT_EQ(manager_->SpO2Devices, *first);
  EXPECT_EQ(manager_->currentDevice, nullptr);

  const auto second = manager_->getSpO2Devices();
  EXPECT_EQ(manager_->SpO2Devices, *second);
  EXPECT_NE(second->at(0), first->at(0));
  EXPECT_EQ(manager_->SpO2D, first->at(0)) << "chosen before the list was built anew";
}

TEST_F(StressECGDeviceManagerTest, ChoosesTheLastOfSeveralOximetersAndKeepsTheChoiceWhenNothingMatches) {
  const auto chosen = manager_->getSelected("Pair", PortType::SpO2);
  EXPECT_EQ(chosen, manager_->SpO2Devices.at(2));
  const auto printed = printed_.diagnostic();
  EXPECT_EQ(manager_->getSelected("pair", PortType::SpO2), chosen);
  EXPECT_EQ(manager_->SpO2D, chosen);
  EXPECT_EQ(printed_.diagnostic(), printed) << "nothing was chosen";
}

TEST_F(StressECGDeviceManagerTest, HasNoMonitorToChoose) {
  plugIn("a");
  manager_->getPort(false);
  manager_->selectedPort("a", PortType::BP);
  EXPECT_EQ(manager_->getSelected("monitor", PortType::BP), nullptr);
  manager_->getDeviceByType("Treadmill");
  EXPECT_EQ(manager_->getSelected("Belt", PortType::BP), nullptr);
  EXPECT_EQ(manager_->currentDevice, nullptr);
  EXPECT_NE(manager_->BPD, nullptr) << "there is one all the same";
}

TEST_F(StressECGDeviceManagerTest, ListsThePortsByNameAsFirstRead) {
  plugIn("b");
  plugIn("a");
  EXPECT_THAT(manager_->getPort(false), ElementsAre("b", "a"));
  plugIn("c");
  EXPECT_THAT(manager_->getPort(true), ElementsAre("b", "a"));
  EXPECT_TRUE(manager_->getPortIsSpO2);
  time().advance(2s);
  EXPECT_THAT(manager_->getPort(false), ElementsAre("b", "a", "c"));
  EXPECT_FALSE(manager_->getPortIsSpO2);
}

TEST_F(StressECGDeviceManagerTest, WorksWithThePortsAndTheLogThatItIsGiven) {
  plugIn("shared");
  const auto ownRegistry = std::make_shared<VirtualDeviceRegistry>();
  ownRegistry->add(doubles::scriptedDevice("own", std::make_shared<doubles::ScriptedTerminal>()));
  ORSSerialPortManager ownPorts(ownRegistry);
  FileManagerTool ownLog;
  const auto own = std::make_shared<StressECGDeviceManager>(
      notingCatalogue(), SharedByManagers{.portManager = &ownPorts, .log = &ownLog});

  EXPECT_THAT(own->getPort(false), ElementsAre("own"));
  EXPECT_THAT(manager_->getPort(false), ElementsAre("shared"));
  ownRegistry->add(doubles::scriptedDevice("later", std::make_shared<doubles::ScriptedTerminal>()));
  time().advance(2s);
  EXPECT_THAT(own->portNames, ElementsAre("own", "later"));

  own->selectedPort("own", PortType::BP);
  EXPECT_EQ(&own->BPD->fm.get(), &ownLog);
  EXPECT_EQ(&own->getDeviceByType("Treadmill")->front()->fm.get(), &ownLog);
  EXPECT_EQ(&own->getSpO2Devices()->front()->fm.get(), &ownLog);
  EXPECT_EQ(&manager_->getDeviceByType("Treadmill")->front()->fm.get(), &FileManagerTool::share());
}

TEST_F(StressECGDeviceManagerTest, StartsOneRefreshEvenWithoutPorts) {
  EXPECT_THAT(manager_->getPort(false), IsEmpty());
  const auto timer = manager_->timer;
  ASSERT_NE(timer, nullptr);
  EXPECT_TRUE(timer->isValid());
  manager_->getPort(true);
  EXPECT_EQ(manager_->timer, timer);
}

TEST_F(StressECGDeviceManagerTest, TellsOfThePortsThatWereThereWithTheFirstRefresh) {
  plugIn("a");
  std::vector<Names> reported;
  manager_->getPortsName = [&](const Names& names) { reported.push_back(names); };
  manager_->getPortsNameWithSpO2 = manager_->getPortsName;
  EXPECT_THAT(manager_->getPort(true), ElementsAre("a"));
  EXPECT_THAT(manager_->portNames, IsEmpty()) << "asking is no report";
  EXPECT_THAT(manager_->portNamesWithSpO2, IsEmpty());
  time().advance(1999ms);
  EXPECT_THAT(reported, IsEmpty());
  time().advance(1ms);
  EXPECT_THAT(reported, ElementsAre(Names{"a"}, Names{"a"}));
}

TEST_F(StressECGDeviceManagerTest, GoesOnRefreshingWhenThePortIsClosed) {
  plugIn("a");
  manager_->getPort(false);
  manager_->selectedPort("a", PortType::device);
  manager_->closePort();
  plugIn("b");
  time().advance(2s);
  EXPECT_THAT(manager_->portNames, ElementsAre("a", "b"));
  EXPECT_TRUE(manager_->timer->isValid());
}

TEST_F(StressECGDeviceManagerTest, RefreshesOnTheRunLoopOfTheThreadThatAskedFirst) {
  plugIn("a");
  std::thread([&] { manager_->getPort(false); }).join();
  ASSERT_NE(manager_->timer, nullptr);
  EXPECT_FALSE(manager_->timer->isValid()) << "its run loop went with the thread";
  EXPECT_THAT(manager_->getPort(false), ElementsAre("a"));
  time().advance(10s);
  EXPECT_THAT(manager_->portNames, IsEmpty()) << "there is a timer, so no other one was started";
}

TEST_F(StressECGDeviceManagerTest, RefreshesEveryTwoSeconds) {
  std::vector<Names> reported;
  manager_->getPortsName = [&](const Names& names) { reported.push_back(names); };
  manager_->getPort(false);
  plugIn("a");
  time().advance(1999ms);
  EXPECT_THAT(reported, IsEmpty());
  time().advance(1ms);
  EXPECT_THAT(reported, ElementsAre(Names{"a"}));
  plugIn("b");
  time().advance(2s);
  EXPECT_THAT(reported, ElementsAre(Names{"a"}, Names{"a", "b"}));
  time().advance(60s);
  EXPECT_EQ(reported.size(), 2U);
}

TEST_F(StressECGDeviceManagerTest, ReportsAReplacedNameAndALostNameOnce) {
  plugIn("a");
  plugIn("b");
  std::vector<Names> reported;
  manager_->getPortsName = [&](const Names& names) { reported.push_back(names); };
  manager_->port();
  unplug("b");
  plugIn("c");
  manager_->port();
  unplug("c");
  manager_->port();
  manager_->port();
  EXPECT_THAT(reported, ElementsAre(Names{"a", "b"}, Names{"a", "c"}, Names{"a"}));
  EXPECT_EQ(manager_->portNames, Names{"a"});
}

TEST_F(StressECGDeviceManagerTest, StoresTheNewNamesBeforeItTellsTheClosure) {
  std::vector<Names> stored;
  manager_->getPortsName = [&](const Names&) { stored.push_back(manager_->portNames); };
  plugIn("a");
  manager_->port();
  EXPECT_THAT(stored, ElementsAre(Names{"a"}));
  EXPECT_EQ(manager_->ports->size(), 1U);
}

TEST_F(StressECGDeviceManagerTest, LetsAClosureReplaceItselfWhileItRuns) {
  std::vector<std::string> story;
  manager_->getPortsName = [&, mark = std::make_shared<std::string>("first")](const Names&) {
    manager_->getPortsName = [&story](const Names&) { story.emplace_back("second"); };
    story.push_back(*mark);
  };
  plugIn("a");
  manager_->port();
  plugIn("b");
  manager_->port();
  EXPECT_THAT(story, ElementsAre("first", "second"));
}

TEST_F(StressECGDeviceManagerTest, LivesUntilItsRefreshIsOverWhenAClosureDropsIt) {
  std::vector<std::string> story;
  const std::weak_ptr<StressECGDeviceManager> weak = manager_;
  manager_->getPort(true);
  manager_->getPortsNameWithSpO2 = [&](const Names&) {
    manager_.reset();
    story.emplace_back(weak.expired() ? "gone" : "dropped");
  };
  manager_->getPortsName = [&](const Names&) { story.emplace_back(weak.expired() ? "gone" : "told"); };
  plugIn("a");
  manager_->port();
  EXPECT_THAT(story, ElementsAre("dropped", "told"));
  EXPECT_TRUE(weak.expired());
}

TEST_F(StressECGDeviceManagerTest, LivesUntilItsRefreshIsOverWhenTheTimerRefreshes) {
  std::vector<std::string> story;
  manager_->getPort(true);
  manager_->getPortsNameWithSpO2 = [&](const Names&) {
    manager_.reset();
    story.emplace_back("dropped");
  };
  manager_->getPortsName = [&](const Names&) { story.emplace_back("told"); };
  plugIn("a");
  time().advance(10s);
  EXPECT_THAT(story, ElementsAre("dropped", "told"));
}

TEST_F(StressECGDeviceManagerTest, TakesAReorderedListForTheSame) {
  plugIn("a");
  plugIn("b");
  manager_->port();
  int reports = 0;
  manager_->getPortsName = [&](const Names&) { ++reports; };
  unplug("a");
  plugIn("a");
  manager_->port();
  EXPECT_EQ(reports, 0);
  EXPECT_EQ(manager_->portNames, (Names{"a", "b"}));
  EXPECT_THAT(manager_->getPort(false), ElementsAre("b", "a"));
}

TEST_F(StressECGDeviceManagerTest, TellsTheOximeterChooserOnlyWhileItAsksForPorts) {
  std::vector<std::string> order;
  manager_->getPortsName = [&](const Names&) { order.emplace_back("device"); };
  manager_->getPortsNameWithSpO2 = [&](const Names&) { order.emplace_back("SpO2"); };
  plugIn("a");
  manager_->port();
  EXPECT_THAT(order, ElementsAre("device"));
  EXPECT_THAT(manager_->portNamesWithSpO2, IsEmpty());

  manager_->getPort(true);
  plugIn("b");
  manager_->port();
  EXPECT_THAT(order, ElementsAre("device", "SpO2", "device"));
  EXPECT_EQ(manager_->portNamesWithSpO2, (Names{"a", "b"}));
}

TEST_F(StressECGDeviceManagerTest, StoresTheNamesWithoutAClosure) {
  plugIn("a");
  manager_->port();
  EXPECT_EQ(manager_->portNames, Names{"a"});
}

TEST_F(StressECGDeviceManagerTest, PrintsATextWhenPortsWereNeverListedOrTheNameIsEmpty) {
  plugIn("a");
  manager_->selectedPort("a", PortType::device);
  EXPECT_EQ(manager_->devicePort, nullptr);
  manager_->getPort(false);
  manager_->selectedPort("", PortType::BP);
  EXPECT_EQ(manager_->BPD, nullptr);
  EXPECT_THAT(printed_.fixed(), ElementsAre("串口未初始化 请先调用getPortWithIsSpO2方法",
                                            "串口未初始化 请先调用getPortWithIsSpO2方法"));
  EXPECT_THAT(printed_.diagnostic(), IsEmpty());
}

TEST_F(StressECGDeviceManagerTest, KeepsTheChosenPortsWhenANameIsEmptyOrUnknown) {
  plugIn("a");
  manager_->getPort(false);
  for (const PortType type : {PortType::device, PortType::BP, PortType::SpO2}) {
    manager_->selectedPort("a", type);
  }
  const auto monitor = manager_->BPD;
  for (const PortType type : {PortType::device, PortType::BP, PortType::SpO2}) {
    manager_->selectedPort("", type);
    manager_->selectedPort("A", type);
  }
  EXPECT_EQ(manager_->devicePort, portNamed("a"));
  EXPECT_EQ(manager_->BPPort, portNamed("a"));
  EXPECT_EQ(manager_->SpO2Port, portNamed("a"));
  EXPECT_EQ(manager_->BPD, monitor);
  EXPECT_EQ(printed_.fixed().size(), 3U) << "an unknown name is ignored in silence";
}

int monitorsMade = 0;

class CountedMonitor : public KivStressDevice {
 public:
  explicit CountedMonitor(const BPDeviceSettings& settings) : KivStressDevice(settings) { ++monitorsMade; }
};

TEST_F(StressECGDeviceManagerTest, ChoosesTheLastOfSeveralPortsAndMakesAMonitorForEachMatch) {
  plugIn("a");
  plugIn("b");
  DeviceCatalogue catalogue{.treadmills = {},
                            .ergometers = {},
                            .oximeters = {},
                            .bloodPressureMonitor = modelWithoutFacts<CountedMonitor>(BPDeviceSettings{})};
  manager_ = std::make_shared<StressECGDeviceManager>(std::move(catalogue));
  manager_->getPort(false);
  const auto twin = ORSSerialPort::serialPortWithDevice(portNamed("a")->device());
  manager_->ports->push_back(twin);
  monitorsMade = 0;
  for (const PortType type : {PortType::device, PortType::BP, PortType::SpO2}) {
    manager_->selectedPort("a", type);
  }
  EXPECT_EQ(manager_->devicePort, twin);
  EXPECT_EQ(manager_->BPPort, twin);
  EXPECT_EQ(manager_->SpO2Port, twin);
  EXPECT_EQ(monitorsMade, 2);
}

TEST_F(StressECGDeviceManagerTest, BindsPortsToRolesByName) {
  plugIn("a");
  plugIn("b");
  plugIn("c");
  manager_->getPort(false);
  manager_->selectedPort("a", PortType::device);
  manager_->selectedPort("b", PortType::BP);
  manager_->selectedPort("c", PortType::SpO2);
  EXPECT_EQ(manager_->devicePort, portNamed("a"));
  EXPECT_EQ(manager_->BPPort, portNamed("b"));
  EXPECT_EQ(manager_->SpO2Port, portNamed("c"));
  EXPECT_THAT(operations, IsEmpty());
  for (const auto* name : {"a", "b", "c"}) {
    EXPECT_FALSE(portNamed(name)->isOpen());
    EXPECT_EQ(portNamed(name)->delegate().lock(), nullptr);
  }
}

TEST_F(StressECGDeviceManagerTest, MakesANewMonitorForEachChoiceOfItsPort) {
  plugIn("a");
  manager_->getPort(false);
  manager_->selectedPort("a", PortType::BP);
  const auto first = manager_->BPD;
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->baud, 9600);
  EXPECT_EQ(first->name, std::nullopt);
  manager_->selectedPort("a", PortType::BP);
  EXPECT_NE(manager_->BPD, first);
}

TEST_F(StressECGDeviceManagerTest, OpensWithTheLineSettingsOfTheDevice) {
  plugIn("a");
  manager_->getDeviceByType("Treadmill");
  manager_->getPort(false);
  manager_->getSelected("Belt", PortType::device);
  manager_->selectedPort("a", PortType::device);
  EXPECT_TRUE(manager_->openPort(PortType::device));
  time().settle();

  EXPECT_THAT(operations, ElementsAre("Belt: bind a"));
  const ORSSerialPort& port = *manager_->devicePort;
  EXPECT_TRUE(port.isOpen());
  EXPECT_EQ(port.baudRate(), 4800U);
  EXPECT_EQ(port.numberOfStopBits(), 2U);
  EXPECT_EQ(port.parity(), ORSSerialPortParity::None);  // the device says Even
  EXPECT_EQ(port.numberOfDataBits(), 8U);
  EXPECT_EQ(manager_->currentDevice->port, std::nullopt);
}

TEST_F(StressECGDeviceManagerTest, BindsThenAppliesTheLineSettingsThenOpens) {
  plugIn("a");
  manager_->getDeviceByType("Treadmill");
  manager_->getPort(false);
  manager_->getSelected("Belt", PortType::device);
  manager_->selectedPort("a", PortType::device);
  ORSSerialPort& port = *manager_->devicePort;
  port.setParity(ORSSerialPortParity::Odd);
  port.setNumberOfDataBits(7);
  std::vector<Observation> observations;
  for (const auto* key :
       {"delegate", "baudRate", "numberOfStopBits", "numberOfDataBits", "parity", "isOpen"}) {
    observations.push_back(
        port.observe(key, [](const KeyChange& change) { operations.push_back(change.key); }));
  }
  EXPECT_TRUE(manager_->openPort(PortType::device));
  EXPECT_THAT(operations, ElementsAre("Belt: bind a", "baudRate", "numberOfStopBits", "parity", "isOpen"));
  EXPECT_EQ(port.parity(), ORSSerialPortParity::None);
  EXPECT_EQ(port.numberOfDataBits(), 7U) << "the port's own";
  EXPECT_EQ(port.delegate().lock(), nullptr) << "the device's business, never the manager's";
}

TEST_F(StressECGDeviceManagerTest, OpensEachRoleWithItsOwnDevice) {
  plugIn("b");
  plugIn("c");
  manager_->getPort(false);
  manager_->selectedPort("b", PortType::BP);
  manager_->getSelected("Finger", PortType::SpO2);
  manager_->selectedPort("c", PortType::SpO2);
  EXPECT_TRUE(manager_->openPort(PortType::BP));
  EXPECT_TRUE(manager_->openPort(PortType::SpO2));
  EXPECT_FALSE(manager_->openPort(PortType::device));
  EXPECT_THAT(operations, ElementsAre("monitor: bind b", "Finger: bind c"));
  EXPECT_EQ(manager_->BPPort->baudRate(), 9600U);
  EXPECT_EQ(manager_->SpO2Port->baudRate(), 1200U);
}

TEST_F(StressECGDeviceManagerTest, OpensNothingWithoutADeviceOrAPort) {
  plugIn("a");
  manager_->getPort(false);
  for (const PortType type : {PortType::device, PortType::BP, PortType::SpO2}) {
    EXPECT_FALSE(manager_->openPort(type)) << static_cast<int>(type);
  }
  manager_->selectedPort("a", PortType::device);
  EXPECT_FALSE(manager_->openPort(PortType::device));
  manager_->selectedPort("a", PortType::SpO2);
  EXPECT_FALSE(manager_->openPort(PortType::SpO2));
  EXPECT_EQ(terminal("a").count(doubles::ScriptedTerminal::Call::open), 0U);
}

TEST_F(StressECGDeviceManagerTest, SaysYesToAnOximeterWithoutAPortAndOpensNothing) {
  plugIn("a");
  manager_->getPort(false);
  manager_->getSelected("Finger", PortType::SpO2);
  EXPECT_TRUE(manager_->openPort(PortType::SpO2));
  EXPECT_THAT(operations, IsEmpty());
  EXPECT_EQ(terminal("a").count(doubles::ScriptedTerminal::Call::open), 0U);
}

TEST_F(StressECGDeviceManagerTest, LeavesThePortClosedWithoutStopBitsOrParity) {
  plugIn("a");
  manager_->getDeviceByType("Treadmill");
  manager_->getPort(false);
  manager_->getSelected("Belt", PortType::device);
  manager_->selectedPort("a", PortType::device);
  manager_->currentDevice->stopbits = std::nullopt;
  EXPECT_TRUE(manager_->openPort(PortType::device));
  manager_->currentDevice->stopbits = -1;  // not looked at without a parity
  manager_->currentDevice->parity = std::nullopt;
  EXPECT_TRUE(manager_->openPort(PortType::device));
  EXPECT_FALSE(manager_->devicePort->isOpen());
  EXPECT_EQ(manager_->devicePort->baudRate(), 19200U);
  EXPECT_THAT(operations, ElementsAre("Belt: bind a", "Belt: bind a"));
}

TEST_F(StressECGDeviceManagerTest, StopsOnANegativeNumberOfStopBits) {
  plugIn("a");
  manager_->getDeviceByType("Treadmill");
  manager_->getPort(false);
  manager_->getSelected("Belt", PortType::device);
  manager_->selectedPort("a", PortType::device);
  manager_->currentDevice->stopbits = -1;
  EXPECT_DEATH(manager_->openPort(PortType::device),
               "^tarsil: fatal error: negative number of stop bits: -1\n$");

  EXPECT_EQ(fatalReason([&] { manager_->openPort(PortType::device); }), "negative number of stop bits: -1");
  EXPECT_THAT(operations, ElementsAre("Belt: bind a"));
  EXPECT_EQ(manager_->devicePort->baudRate(), 19200U) << "before any setting";
  EXPECT_EQ(terminal("a").count(doubles::ScriptedTerminal::Call::open), 0U);
}

TEST_F(StressECGDeviceManagerTest, ClosesOnlyThePortOfTheExerciseDevice) {
  plugIn("a");
  plugIn("b");
  manager_->closePort();
  manager_->getDeviceByType("Treadmill");
  manager_->getPort(false);
  manager_->getSelected("Belt", PortType::device);
  manager_->selectedPort("a", PortType::device);
  manager_->selectedPort("b", PortType::BP);
  manager_->openPort(PortType::device);
  manager_->openPort(PortType::BP);
  time().settle();
  manager_->closePort();
  time().settle();
  EXPECT_FALSE(manager_->devicePort->isOpen());
  EXPECT_TRUE(manager_->BPPort->isOpen());
}

/// All three roles filled and the notes about binding them forgotten.
class SessionCommandsTest : public StressECGDeviceManagerTest {
 protected:
  void chooseExerciseDevice() {
    manager_->getDeviceByType("Treadmill");
    manager_->getSelected("Belt", PortType::device);
    manager_->selectedPort("a", PortType::device);
  }
  void chooseMonitor() { manager_->selectedPort("b", PortType::BP); }

  SessionCommandsTest() {
    plugIn("a");
    plugIn("b");
    manager_->getPort(false);
  }
};

TEST_F(SessionCommandsTest, GoToTheExerciseDeviceWithoutBindingItsPort) {
  chooseExerciseDevice();
  manager_->startStressDevice();
  manager_->setLoad(-1.0F, 12.5F);
  manager_->requestLoad();
  manager_->deviceState();
  manager_->stopStressDevice();
  EXPECT_THAT(operations, ElementsAre("Belt: startDeivce", "Belt: setLoad -1.000000 12.500000",
                                      "Belt: requestLoad", "Belt: deviceState", "Belt: stopStressDevice"));
}

TEST_F(SessionCommandsTest, AreDroppedWithoutADevice) {
  manager_->startStressDevice();
  manager_->setLoad(5.0F, 2.5F);
  manager_->requestLoad();
  manager_->deviceState();
  manager_->stopStressDevice();
  for (const PortType type : {PortType::device, PortType::BP, PortType::SpO2}) {
    manager_->startSpO2(type);
    manager_->stopSpO2(type);
  }
  EXPECT_THAT(operations, IsEmpty());
  EXPECT_THAT(printed_.fixed(), IsEmpty());
  EXPECT_THAT(printed_.diagnostic(), IsEmpty());
}

TEST_F(SessionCommandsTest, PassEveryLoadOnUnchanged) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  class LoadTaker : public KivStressDevice {
   public:
    std::vector<std::uint32_t> bits;
    void setLoad(float kmph_or_power, float grade) override {
      bits.push_back(std::bit_cast<std::uint32_t>(kmph_or_power));
      bits.push_back(std::bit_cast<std::uint32_t>(grade));
    }
  };
  const auto taker = std::make_shared<LoadTaker>();
  manager_->currentDevice = taker;
  std::vector<std::uint32_t> sent;
  for (const float value : {-1.0F, -0.0F, 0.1F, 1e-45F, 3.4028235e38F, infinity, -infinity, std::nanf("")}) {
    manager_->setLoad(value, 2.5F);
    manager_->setLoad(2.5F, value);
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const auto other = std::bit_cast<std::uint32_t>(2.5F);
    sent.insert(sent.end(), {bits, other, other, bits});
  }
  EXPECT_EQ(taker->bits, sent);
}

TEST_F(SessionCommandsTest, BindTheMonitorBeforeEachOfItsCommands) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->startBP(true);
  manager_->breakBP(true);
  manager_->requestBP(true);
  EXPECT_TRUE(manager_->isTango);
  EXPECT_THAT(operations, ElementsAre("monitor: bind b", "monitor: startBP", "monitor: bind b",
                                      "monitor: breakBP", "monitor: bind b", "monitor: requestBP"));
}

TEST_F(SessionCommandsTest, NeverForgetThatTheMonitorWasMeant) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->startBP(true);
  manager_->startBP(false);
  manager_->breakBP(false);
  manager_->requestBP(false);
  manager_->clearBP(true);
  manager_->stopSpO2(PortType::BP);
  manager_->closePort();
  manager_->selectedPort("b", PortType::BP);
  EXPECT_TRUE(manager_->isTango);
}

TEST_F(SessionCommandsTest, BindTheExerciseDeviceOnlyToStartItsMeasurement) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->startBP(false);
  manager_->breakBP(false);
  manager_->requestBP(false);
  EXPECT_FALSE(manager_->isTango);
  EXPECT_THAT(operations, ElementsAre("Belt: bind a", "Belt: startBP", "Belt: breakBP", "Belt: requestBP"));
}

TEST_F(SessionCommandsTest, ClearTheMonitorWhenAskedForTheOther) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->clearBP(true);
  EXPECT_THAT(operations, IsEmpty());
  EXPECT_FALSE(manager_->isTango);
  manager_->clearBP(false);
  EXPECT_TRUE(manager_->isTango);
  EXPECT_THAT(operations, ElementsAre("monitor: bind b", "monitor: clearBP"));
}

TEST_F(SessionCommandsTest, NoteTheMonitorEvenWhenThereIsNone) {
  using Command = void (StressECGDeviceManager::*)(bool);
  for (const auto& [command, isPeripheral] :
       {std::pair<Command, bool>{&StressECGDeviceManager::startBP, true},
        {&StressECGDeviceManager::breakBP, true},
        {&StressECGDeviceManager::requestBP, true},
        {&StressECGDeviceManager::clearBP, false}}) {
    manager_->isTango = false;
    (*manager_.*command)(isPeripheral);
    EXPECT_TRUE(manager_->isTango);
  }
  EXPECT_THAT(operations, IsEmpty());
}

TEST_F(SessionCommandsTest, LeaveTheNoteAloneWithoutAnExerciseDevice) {
  manager_->startBP(false);
  manager_->breakBP(false);
  manager_->requestBP(false);
  EXPECT_FALSE(manager_->isTango);
}

TEST_F(SessionCommandsTest, UnbindWhenTheRoleHasNoPort) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->devicePort = nullptr;
  manager_->BPPort = nullptr;
  manager_->startBP(false);
  manager_->requestBP(true);
  EXPECT_THAT(operations,
              ElementsAre("Belt: bind none", "Belt: startBP", "monitor: bind none", "monitor: requestBP"));
}

TEST_F(SessionCommandsTest, AskEachRoleForSaturationAndStopOnlyTheMonitor) {
  chooseExerciseDevice();
  chooseMonitor();
  manager_->getSelected("Finger", PortType::SpO2);
  manager_->startSpO2(PortType::device);
  manager_->startSpO2(PortType::BP);
  manager_->startSpO2(PortType::SpO2);
  EXPECT_THAT(operations, ElementsAre("Belt: requestSpO2", "monitor: requestSpO2", "Finger: requestSpO2"));
  operations.clear();
  manager_->stopSpO2(PortType::device);
  manager_->stopSpO2(PortType::SpO2);
  EXPECT_THAT(operations, IsEmpty());
  manager_->stopSpO2(PortType::BP);
  EXPECT_THAT(operations, ElementsAre("monitor: requestSpO2"));
  EXPECT_FALSE(manager_->isTango);
}

/// Makes the manager forget all devices in each of its operations, as a host may that hears of an error
/// there; then still uses itself.
class LeavingDevice : public KivStressDevice {
 public:
  explicit LeavingDevice(StressECGDeviceManager& manager) : manager_(manager) {}
  ~LeavingDevice() override { operations.emplace_back("destroyed"); }

  void setSerialPort(std::shared_ptr<ORSSerialPort> newPort) override {
    leave();
    KivStressDevice::setSerialPort(std::move(newPort));
  }
  void setLoad(float /*kmph_or_power*/, float /*grade*/) override { leave(); }
  void requestLoad() override { leave(); }
  void startDeivce() override { leave(); }
  void stopStressDevice() override { leave(); }
  void startBP() override { leave(); }
  void breakBP() override { leave(); }
  void requestBP() override { leave(); }
  void clearBP() override { leave(); }
  void requestSpO2() override { leave(); }
  void deviceState() override { leave(); }

 private:
  void leave() {
    manager_.currentDevice = manager_.BPD = manager_.SpO2D = nullptr;
    manager_.devicePort = manager_.BPPort = manager_.SpO2Port = nullptr;
    operations.emplace_back("still here");
  }

  StressECGDeviceManager& manager_;
};

TEST_F(SessionCommandsTest, HoldTheirDeviceUntilTheyReturn) {
  auto& manager = *manager_;
  const std::vector<std::function<void()>> commands = {
      [&] { manager.startStressDevice(); },
      [&] { manager.stopStressDevice(); },
      [&] { manager.setLoad(5.0F, 2.5F); },
      [&] { manager.requestLoad(); },
      [&] { manager.deviceState(); },
      [&] { manager.startBP(false); },
      [&] { manager.breakBP(false); },
      [&] { manager.requestBP(false); },
      [&] { manager.startBP(true); },
      [&] { manager.breakBP(true); },
      [&] { manager.requestBP(true); },
      [&] { manager.clearBP(false); },
      [&] { manager.startSpO2(PortType::device); },
      [&] { manager.startSpO2(PortType::BP); },
      [&] { manager.startSpO2(PortType::SpO2); },
      [&] { manager.stopSpO2(PortType::BP); },
      [&] { manager.openPort(PortType::device); },
      [&] { manager.openPort(PortType::BP); },
      [&] { manager.openPort(PortType::SpO2); },
  };
  for (std::size_t i = 0; i < commands.size(); ++i) {
    SCOPED_TRACE(i);
    operations.clear();
    for (auto* role : {&manager.currentDevice, &manager.BPD, &manager.SpO2D}) {
      *role = std::make_shared<LeavingDevice>(manager);
    }
    manager.devicePort = manager.BPPort = manager.SpO2Port = portNamed("a");
    commands[i]();
    // The two devices of the other roles go at once, the one that was called after its last word.
    ASSERT_GE(operations.size(), 4U);
    EXPECT_EQ(std::count(operations.begin(), operations.end(), "destroyed"), 3);
    EXPECT_EQ(operations.back(), "destroyed");
    EXPECT_EQ(operations[2], "still here") << "after the other two";
  }
}

TEST_F(SessionCommandsTest, StopTheProcessOnARoleThatDoesNotExist) {
  EXPECT_DEATH(manager_->startSpO2(static_cast<PortType>(3)),
               "^tarsil: fatal error: unexpected value of PortType: 3\n$");
  EXPECT_DEATH(manager_->startSpO2(static_cast<PortType>(-1)), "unexpected value of PortType: -1\n$");
  EXPECT_DEATH(manager_->stopSpO2(static_cast<PortType>(3)), "unexpected value of PortType: 3\n$");
  EXPECT_DEATH(manager_->stopSpO2(static_cast<PortType>(-1)), "unexpected value of PortType: -1\n$");
}

TEST_F(SessionCommandsTest, DoNothingElseWithARoleThatDoesNotExist) {
  constexpr auto none = static_cast<PortType>(3);
  chooseExerciseDevice();
  EXPECT_EQ(manager_->getSelected("Belt", none), nullptr);
  manager_->selectedPort("b", none);
  EXPECT_EQ(manager_->devicePort, portNamed("a"));
  EXPECT_FALSE(manager_->openPort(none));
  EXPECT_THAT(operations, IsEmpty());
}

TEST_F(SessionCommandsTest, AnswerThePortForFourOfItsCallsOnly) {
  using enum ORSSerialPortDelegate::Selector;
  const ORSSerialPortDelegateRef reference = manager_;
  std::vector<ORSSerialPortDelegate::Selector> answered;
  for (const auto selector :
       {serialPortWasRemovedFromSystem, serialPortDidReceiveData, serialPortDidReceivePacket,
        serialPortDidReceiveResponse, serialPortRequestDidTimeout, serialPortDidEncounterError,
        serialPortWasOpened, serialPortWasClosed}) {
    if (reference.respondingTo(selector)) answered.push_back(selector);
  }
  EXPECT_THAT(answered, ElementsAre(serialPortWasRemovedFromSystem, serialPortDidReceiveData,
                                    serialPortDidEncounterError, serialPortWasOpened));
}

TEST_F(SessionCommandsTest, KeepAPortsNewsFromAHostThatDoesNotAnswer) {
  RecordingHost host;
  host.answerOnly({});
  const auto port = portNamed("a");
  for (const KivStressPortDelegateRef& delegate :
       {KivStressPortDelegateRef(host), KivStressPortDelegateRef()}) {
    manager_->delegate = delegate;
    manager_->serialPortWasOpened(*port);
    manager_->serialPortWasRemovedFromSystem(*port);
  }
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(SessionCommandsTest, PassAPortsNewsOnWhenTheHostMadeTheManagerItsDelegate) {
  RecordingHost host;
  manager_->delegate = host;
  const auto port = portNamed("a");
  port->setDelegate(manager_);
  port->open();
  time().settle();
  EXPECT_THAT(host.calls(), ElementsAre(portWasOpened()));
  terminal("a").deliver(Bytes{1, 2, 3});
  terminal("a").failNext(doubles::ScriptedTerminal::Call::getModemLines, EPERM);
  time().advance(10ms);
  EXPECT_THAT(host.calls(), ElementsAre(portWasOpened()));
  EXPECT_THAT(printed_.diagnostic(), ElementsAre(Error::posix(EPERM, "/dev/a").description()));
  port->cleanupAfterSystemRemoval();
  time().settle();
  EXPECT_THAT(host.calls(), ElementsAre(portWasOpened(), portWasRemoved()));
}

/// A manager with hooks into a Bluetooth that the test plays.
class BluetoothHooksTest : public StressECGDeviceManagerTest {
 protected:
  std::vector<std::string> asked_;
  std::shared_ptr<doubles::ScriptedCentral> central_ = std::make_shared<doubles::ScriptedCentral>(
      [this](const doubles::BluetoothCall& call) { asked_.push_back(call.text()); });
};

TEST_F(BluetoothHooksTest, KnowTheNameOfTheOximeter) {
  EXPECT_EQ(manager_->getSpO2BlueToothName(), std::nullopt);
  EXPECT_FALSE(manager_->isSpO2Bluetooth(""));

  const auto peripheral = central_->peripheral("1");
  manager_->peripheral = peripheral;
  EXPECT_EQ(manager_->getSpO2BlueToothName(), std::nullopt);
  EXPECT_FALSE(manager_->isSpO2Bluetooth(""));

  peripheral->rename("MEDXING-SpO2");
  EXPECT_EQ(manager_->getSpO2BlueToothName(), "MEDXING-SpO2");
  EXPECT_TRUE(manager_->isSpO2Bluetooth("MEDXING-SpO2"));
  EXPECT_FALSE(manager_->isSpO2Bluetooth("MEDXING-SpO"));
  EXPECT_FALSE(manager_->isSpO2Bluetooth("medxing-spo2"));
}

TEST_F(BluetoothHooksTest, ConnectOnlyWhenThereAreBothACentralAndAnOximeter) {
  manager_->connectBluetoothSpO2();
  manager_->peripheral = central_->peripheral("1");
  manager_->connectBluetoothSpO2();
  manager_->peripheral = nullptr;
  manager_->btManager = central_;
  manager_->connectBluetoothSpO2();
  EXPECT_THAT(asked_, IsEmpty());

  manager_->peripheral = central_->peripheral("1");
  manager_->connectBluetoothSpO2();
  EXPECT_THAT(asked_, ElementsAre("central connect 1"));
}

}  // namespace
}  // namespace tarsil
