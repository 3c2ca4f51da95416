#include "tarsil/serial/ORSSerialPortManager.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>

#include <any>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "doubles/scriptedDevice.hpp"
#include "simulators/lines/PseudoTerminal.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/platform/linux/LinuxTerminal.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/process.hpp"
#include "tests/helpers/HastyDriver.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingPortDelegate.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Ports = ORSSerialPortManager::Ports;
using Indexes = std::vector<std::size_t>;

/// A machine whose devices come and go when the test says so.
class ScriptedRegistry final : public SerialDeviceRegistry {
 public:
  Devices devices() override { return present; }
  Observation watch(Watcher watcher) override {
    watcher_ = std::move(watcher);
    return {};
  }
  void arrive(const Devices& devices) { watcher_.arrived(devices); }
  void remove(const Devices& devices) { watcher_.removed(devices); }

  Devices present;

 private:
  Watcher watcher_;
};

std::shared_ptr<const SerialDevice> device(const std::string& name) {
  return doubles::scriptedDevice(name, std::make_shared<doubles::ScriptedTerminal>());
}

std::vector<std::string> names(const Ports& ports) {
  std::vector<std::string> names;
  for (const auto& port : ports) names.push_back(port->name());
  return names;
}

doubles::ScriptedTerminal& terminalOf(const ORSSerialPort& port) {
  return dynamic_cast<doubles::ScriptedTerminal&>(*port.device()->terminal);
}

/// What the manager posted, as "Connected ttyA ttyB".
std::vector<std::string> posted;

void record(const char* name, const char* key, const std::string& word) {
  static std::vector<Observation> observations;
  observations.push_back(NotificationCenter::defaultCenter().addObserver(
      name, [word, key = std::string(key)](const Notification& notification) {
        EXPECT_EQ(notification.object, &ORSSerialPortManager::sharedSerialPortManager());
        ASSERT_THAT(notification.userInfo, SizeIs(1));
        std::string line = word;
        for (const auto& port : std::any_cast<const Ports&>(notification.userInfo.at(key)))
          line += " " + port->name();
        posted.push_back(line);
      }));
}

// The manager is the process's one, over two devices that were there from the start.
class ORSSerialPortManagerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (registry) return;
    registry = std::make_shared<ScriptedRegistry>();
    registry->present = {device("ttyFirst0"), device("ttySecond1")};
    SerialDeviceRegistry::exchangeShared(registry);
    record("ORSSerialPortWasConnectedNotification", "ORSConnectedSerialPortsKey", "Connected");
    record("ORSSerialPortWasDisconnectedNotification", "ORSDisconnectedSerialPortsKey", "Disconnected");
    initial = ORSSerialPortManager::sharedSerialPortManager().availablePorts();
    postedAtStart = posted.size();
  }

  ORSSerialPortManagerTest() {
    posted.clear();
    observation =
        manager.observe("availablePorts", [this](const KeyChange& change) { changes.push_back(change); });
  }

  ~ORSSerialPortManagerTest() override {
    observation.reset();
    while (manager.countOfAvailablePorts() > 0) manager.removeObjectFromAvailablePortsAtIndex(0);
    manager.insertAvailablePortsAtIndexes(initial, {0, 1});
  }

  void expectChange(KeyChange::Kind kind, const Indexes& indexes) {
    ASSERT_THAT(changes, SizeIs(1));
    EXPECT_EQ(changes[0].key, "availablePorts");
    EXPECT_EQ(changes[0].kind, kind);
    EXPECT_EQ(changes[0].indexes, indexes);
  }

  static std::shared_ptr<ORSSerialPort> portNamed(const std::string& name) {
    return ORSSerialPort::serialPortWithDevice(device(name));
  }

  /// Opens or closes on the machine's own threads.
  static bool runUntilOpen(const ORSSerialPort& port, bool open) {
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (port.isOpen() != open) {
      if (std::chrono::steady_clock::now() > end) return false;
      RunLoop::main().runFor(1ms);
    }
    return true;
  }

  static std::shared_ptr<ScriptedRegistry> registry;
  static Ports initial;
  static std::size_t postedAtStart;

  ORSSerialPortManager& manager = ORSSerialPortManager::sharedSerialPortManager();
  std::vector<KeyChange> changes;
  Observation observation;
};

std::shared_ptr<ScriptedRegistry> ORSSerialPortManagerTest::registry;
Ports ORSSerialPortManagerTest::initial;
std::size_t ORSSerialPortManagerTest::postedAtStart = 0;

TEST_F(ORSSerialPortManagerTest, IsOne) {
  EXPECT_EQ(&ORSSerialPortManager::sharedSerialPortManager(), &manager);
}

TEST_F(ORSSerialPortManagerTest, BeginsWithTheDevicesPresentAndPostsNothing) {
  EXPECT_THAT(names(initial), ElementsAre("ttyFirst0", "ttySecond1"));
  EXPECT_EQ(initial[0]->device(), registry->present[0]);
  EXPECT_EQ(postedAtStart, 0U);
}

TEST_F(ORSSerialPortManagerTest, NamesOfNotificationsAndKeys) {
  EXPECT_STREQ(ORSSerialPortManager::wasConnectedNotification, "ORSSerialPortWasConnectedNotification");
  EXPECT_STREQ(ORSSerialPortManager::connectedPortsKey, "ORSConnectedSerialPortsKey");
  EXPECT_STREQ(ORSSerialPortManager::wasDisconnectedNotification, "ORSSerialPortWasDisconnectedNotification");
  EXPECT_STREQ(ORSSerialPortManager::disconnectedPortsKey, "ORSDisconnectedSerialPortsKey");
}

// Arrival and removal

TEST_F(ORSSerialPortManagerTest, ArrivingDevicesAreAppendedInOneChangeAndPosted) {
  registry->arrive({device("ttyUSB0"), device("ttyUSB1")});
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttyFirst0", "ttySecond1", "ttyUSB0", "ttyUSB1"));
  expectChange(KeyChange::Kind::insertion, {2, 3});
  EXPECT_THAT(posted, ElementsAre("Connected ttyUSB0 ttyUSB1"));
}

TEST_F(ORSSerialPortManagerTest, ADeviceThatIsThereAlreadyIsNotAddedAgain) {
  registry->arrive({device("ttySecond1"), device("ttyUSB0")});
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttyFirst0", "ttySecond1", "ttyUSB0"));
  EXPECT_EQ(manager.availablePorts()[1], initial[1]);
  EXPECT_THAT(posted, ElementsAre("Connected ttyUSB0"));
}

TEST_F(ORSSerialPortManagerTest, AnArrivalOfNothingNewIsPostedWithNoPorts) {
  registry->arrive({device("ttyFirst0")});
  EXPECT_THAT(posted, ElementsAre("Connected"));
  EXPECT_THAT(changes, IsEmpty());
}

TEST_F(ORSSerialPortManagerTest, TheListHasChangedWhenTheNotificationComes) {
  std::size_t count = 0;
  const Observation observer = NotificationCenter::defaultCenter().addObserver(
      ORSSerialPortManager::wasConnectedNotification,
      [&](const Notification&) { count = manager.countOfAvailablePorts(); });
  registry->arrive({device("ttyUSB0")});
  EXPECT_EQ(count, 3U);
  const Observation other = NotificationCenter::defaultCenter().addObserver(
      ORSSerialPortManager::wasDisconnectedNotification,
      [&](const Notification&) { count = manager.countOfAvailablePorts(); });
  registry->remove({device("ttyUSB0"), device("ttyFirst0")});
  EXPECT_EQ(count, 1U);
}

TEST_F(ORSSerialPortManagerTest, RemovedDevicesLeaveInOneChangeAndArePostedAsFreshPorts) {
  Ports gone;
  const Observation observer = NotificationCenter::defaultCenter().addObserver(
      ORSSerialPortManager::wasDisconnectedNotification, [&](const Notification& notification) {
        gone =
            std::any_cast<const Ports&>(notification.userInfo.at(ORSSerialPortManager::disconnectedPortsKey));
      });
  manager.insertObjectInAvailablePortsAtIndex(portNamed("ttyUSB0"), 1);
  changes.clear();
  registry->remove({device("ttySecond1"), device("ttyFirst0")});
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttyUSB0"));
  expectChange(KeyChange::Kind::removal, {0, 2});
  EXPECT_THAT(posted, ElementsAre("Disconnected ttySecond1 ttyFirst0"));
  EXPECT_NE(gone[0], initial[1]);
  EXPECT_EQ(*gone[0], *initial[1]);
}

TEST_F(ORSSerialPortManagerTest, RemovalDoesNotTouchThePortThatAClientHolds) {
  RecordingPortDelegate client;
  const auto held = manager.objectInAvailablePortsAtIndex(0);
  held->setDelegate(client);
  registry->remove({held->device()});
  EXPECT_THAT(client.calls(), IsEmpty());
  held->setDelegate(nullptr);
}

TEST_F(ORSSerialPortManagerTest, RemovalOfAnUnknownDeviceIsPosted) {
  registry->remove({device("ttyUSB7")});
  EXPECT_THAT(posted, ElementsAre("Disconnected ttyUSB7"));
  EXPECT_THAT(changes, IsEmpty());
}

// The list

TEST_F(ORSSerialPortManagerTest, GivesPortsByIndex) {
  EXPECT_EQ(manager.countOfAvailablePorts(), 2U);
  EXPECT_EQ(manager.objectInAvailablePortsAtIndex(1), initial[1]);
  EXPECT_THROW(manager.objectInAvailablePortsAtIndex(2), std::out_of_range);
}

TEST_F(ORSSerialPortManagerTest, InsertsAtAnIndex) {
  manager.insertObjectInAvailablePortsAtIndex(portNamed("ttyUSB0"), 1);
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttyFirst0", "ttyUSB0", "ttySecond1"));
  expectChange(KeyChange::Kind::insertion, {1});
}

TEST_F(ORSSerialPortManagerTest, InsertsAtIndexesOfTheResult) {
  manager.insertAvailablePortsAtIndexes({portNamed("ttyA"), portNamed("ttyB"), portNamed("ttyC")}, {0, 2, 4});
  EXPECT_THAT(names(manager.availablePorts()),
              ElementsAre("ttyA", "ttyFirst0", "ttyB", "ttySecond1", "ttyC"));
  expectChange(KeyChange::Kind::insertion, {0, 2, 4});
}

TEST_F(ORSSerialPortManagerTest, RemovesAtAnIndex) {
  manager.removeObjectFromAvailablePortsAtIndex(0);
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttySecond1"));
  expectChange(KeyChange::Kind::removal, {0});
}

TEST_F(ORSSerialPortManagerTest, RemovesAtIndexes) {
  manager.insertObjectInAvailablePortsAtIndex(portNamed("ttyUSB0"), 1);
  changes.clear();
  manager.removeAvailablePortsAtIndexes({0, 2});
  EXPECT_THAT(names(manager.availablePorts()), ElementsAre("ttyUSB0"));
  expectChange(KeyChange::Kind::removal, {0, 2});
}

TEST_F(ORSSerialPortManagerTest, RefusesWhatDoesNotFitAndChangesNothing) {
  const auto port = portNamed("ttyUSB0");
  EXPECT_THROW(manager.insertObjectInAvailablePortsAtIndex(port, 3), std::out_of_range);
  EXPECT_THROW(manager.insertAvailablePortsAtIndexes({port, port}, {0}), std::logic_error);
  EXPECT_THROW(manager.insertAvailablePortsAtIndexes({port, port}, {1, 0}), std::logic_error);
  EXPECT_THROW(manager.insertObjectInAvailablePortsAtIndex(nullptr, 0), std::logic_error);
  EXPECT_THROW(manager.removeObjectFromAvailablePortsAtIndex(2), std::out_of_range);
  EXPECT_THROW(manager.removeAvailablePortsAtIndexes({0, 2}), std::out_of_range);
  EXPECT_THROW(manager.removeAvailablePortsAtIndexes({1, 1}), std::logic_error);
  EXPECT_EQ(manager.availablePorts(), initial);
  EXPECT_THAT(changes, IsEmpty());
}

TEST_F(ORSSerialPortManagerTest, ChangingNothingIsNoChange) {
  manager.insertAvailablePortsAtIndexes({}, {});
  manager.removeAvailablePortsAtIndexes({});
  EXPECT_THAT(changes, IsEmpty());
}

// Sleep

TEST_F(ORSSerialPortManagerTest, SleepClosesOpenPortsAndWakingOpensThemAgain) {
  const auto open = initial[0];
  const auto closed = initial[1];
  open->open();
  ASSERT_TRUE(runUntilOpen(*open, true));

  manager.systemWillSleep({.name = "sleep"});
  ASSERT_TRUE(runUntilOpen(*open, false));
  manager.systemDidWake({.name = "wake"});
  EXPECT_TRUE(open->isOpen());
  EXPECT_FALSE(closed->isOpen());

  open->close();
  ASSERT_TRUE(runUntilOpen(*open, false));
  manager.systemDidWake({.name = "wake"});
  EXPECT_FALSE(open->isOpen()) << "what was reopened once is forgotten";
}

TEST_F(ORSSerialPortManagerTest, APortOutsideTheListSleepsAsItIs) {
  const auto own = portNamed("ttyOwn0");
  own->open();
  manager.systemWillSleep({.name = "sleep"});
  manager.systemDidWake({.name = "wake"});
  EXPECT_EQ(terminalOf(*own).count(doubles::ScriptedTerminal::Call::setModemLines), 1U);
  own->close();
  ASSERT_TRUE(runUntilOpen(*own, false));
}

// What happens once in a process is looked at in processes of its own.
class ORSSerialPortManagerDeathTest : public ::testing::Test {
 protected:
  ORSSerialPortManagerDeathTest() { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

  static void useRegistry(const SerialDeviceRegistry::Devices& devices) {
    const auto registry = std::make_shared<ScriptedRegistry>();
    registry->present = devices;
    SerialDeviceRegistry::exchangeShared(registry);
  }

  static const char* yes(bool answer) { return answer ? "yes" : "no"; }

  /// One open port with a client, whose state is told on standard error after the manager's exit handler.
  static void openPortThatTellsItsEnd() {
    static TerminalAttributes initialAttributes;
    initialAttributes.speed = 300;
    static const auto terminal = std::make_shared<doubles::ScriptedTerminal>(initialAttributes);
    static const auto client = std::make_shared<RecordingPortDelegate>();
    useRegistry({doubles::scriptedDevice("ttyEnd0", terminal)});
    std::atexit([] {
      std::string calls;
      for (const auto& call : client->calls()) calls += " " + call.text;
      std::fprintf(stderr, "restored: %s, ports: %zu, client:%s\n", yes(terminal->attributes().speed == 300),
                   ORSSerialPortManager::sharedSerialPortManager().countOfAvailablePorts(), calls.c_str());
    });
    const auto port = ORSSerialPortManager::sharedSerialPortManager().objectInAvailablePortsAtIndex(0);
    port->setDelegate(*client);
    port->open();
    RunLoop::main().runUntil([] { return client->calls() == RecordedCalls{opened()}; }, 60s);
  }

  /// The same, beside an open port of another manager's, whose state is told, too.
  static void openPortOfAnotherManager() {
    static TerminalAttributes initialAttributes;
    initialAttributes.speed = 600;
    static const auto terminal = std::make_shared<doubles::ScriptedTerminal>(initialAttributes);
    const auto isRestored = [] { return terminal->attributes().speed == 600; };
    std::atexit(
        [] { std::fprintf(stderr, "other restored: %s\n", yes(terminal->attributes().speed == 600)); });
    openPortThatTellsItsEnd();
    const auto registry = std::make_shared<ScriptedRegistry>();
    { const ORSSerialPortManager gone(registry); }
    registry->present = {doubles::scriptedDevice("ttyOther0", terminal)};
    static ORSSerialPortManager& other = *new ORSSerialPortManager(registry);
    other.objectInAvailablePortsAtIndex(0)->open();
    std::fprintf(stderr, "open: %s, ", yes(!isRestored()));
  }
};

TEST_F(ORSSerialPortManagerDeathTest, AtExitPortsAreRemovedAndTheirTerminalsRestored) {
  EXPECT_EXIT(
      {
        openPortThatTellsItsEnd();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "restored: yes, ports: 0, client: opened\\(\\) removed\\(\\)");
}

TEST_F(ORSSerialPortManagerDeathTest, AtExitThePortsOfEveryManagerThatIsLeftAreClosed) {
  EXPECT_EXIT(
      {
        openPortOfAnotherManager();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0),
      "open: yes, restored: yes, ports: 0, client: opened\\(\\) removed\\(\\)\nother restored: yes");
}

TEST_F(ORSSerialPortManagerDeathTest, AtExitOnAnotherThreadTerminalsAreRestoredAndNobodyIsWaitedFor) {
  EXPECT_EXIT(
      {
        openPortThatTellsItsEnd();
        std::thread([] { std::exit(0); }).join();
      },
      ::testing::ExitedWithCode(0), "restored: yes, ports: 0, client: opened\\(\\)\n");
}

/// A port at a pseudo-terminal that nobody reads, with a thread that is stuck in the middle of a write.
void blockAWriter() {
  static simulators::PseudoTerminal device;
  static termios before{};
  tcgetattr(device.descriptor(), &before);
  std::atexit([] {
    termios after{};
    tcgetattr(device.descriptor(), &after);
    std::fprintf(stderr, "restored: %s\n", after.c_lflag == before.c_lflag ? "yes" : "no");
  });
  auto entry =
      *doubles::scriptedDevice("ttyStuck0", std::make_shared<LinuxTerminal>(std::make_shared<HastyDriver>()));
  entry.calloutPath = device.path();
  const auto registry = std::make_shared<ScriptedRegistry>();
  registry->present = {std::make_shared<SerialDevice>(std::move(entry))};
  SerialDeviceRegistry::exchangeShared(registry);
  const auto port = ORSSerialPortManager::sharedSerialPortManager().objectInAvailablePortsAtIndex(0);
  port->open();
  std::thread([port] { port->sendData(Bytes(300'000, 0x55)); }).detach();
  pollfd output{device.descriptor(), POLLIN, 0};
  poll(&output, 1, 60'000);
}

TEST_F(ORSSerialPortManagerDeathTest, AWriteThatNobodyReadsDoesNotKeepTheProcessFromItsEnd) {
  EXPECT_EXIT(
      {
        blockAWriter();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "restored: yes");
  EXPECT_EXIT(
      {
        blockAWriter();
        std::thread([] { std::exit(0); }).join();
      },
      ::testing::ExitedWithCode(0), "restored: yes");
}

TEST_F(ORSSerialPortManagerDeathTest, SaysWhenTheExitHandlerIsRefused) {
  EXPECT_EXIT(
      {
        useRegistry({});
        exchangeProcessHooks({.atExit = [](void (*)()) {
          errno = ENOMEM;
          return -1;
        }});
        const PrintedLines printed;
        ORSSerialPortManager::sharedSerialPortManager();
        for (const auto& line : printed.fixed()) std::fprintf(stderr, "%s\n", line.c_str());
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0),
      "^ORSSerialPort was unable to register its termination handler for serial port cleanup: 12\n$");
}

}  // namespace
}  // namespace tarsil
