// A guarded exercise on a treadmill behind an adapter whose plug is pulled and put back, again and again,
// whose cable is disturbed, and whose line another program sets to its own speed. Run in the guest.

#include <gtest/gtest.h>
#include <malloc.h>

#include <any>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/NotificationCenter.hpp"
#include "tarsil/serial/ORSSerialPortManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/guard/StationRules.hpp"
#include "tests/guest/serial/SerialGuest.hpp"
#include "tests/guest/serial/UsbAdapter.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

std::size_t entriesOf(const std::string& folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// What this process has of the system.
struct Holdings {
  std::size_t descriptors = entriesOf("/proc/self/fd");
  std::size_t threads = entriesOf("/proc/self/task");
  std::size_t heap = mallinfo2().uordblks;
};

/// A treadmill behind a USB adapter, and its host.
class PlugCyclesTest : public testing::Test {
 protected:
  static constexpr float fastest = 2.0F;

  PlugCyclesTest() {
    const auto count = [](const char* key, int& counter) {
      return [key, &counter](const Notification& notification) {
        counter += static_cast<int>(
            std::any_cast<ORSSerialPortManager::Ports>(notification.userInfo.at(key)).size());
      };
    };
    auto& center = NotificationCenter::defaultCenter();
    connected_ = center.addObserver(ORSSerialPortManager::wasConnectedNotification,
                                    count(ORSSerialPortManager::connectedPortsKey, connections));
    disconnected_ = center.addObserver(ORSSerialPortManager::wasDisconnectedNotification,
                                       count(ORSSerialPortManager::disconnectedPortsKey, disconnections));
    Limits limits;
    limits.speed.highest = fastest;
    const auto opening = GuardedStation::open({.exercise = {"LodeTreadmill", "ttyUSB0"},
                                               .limits = limits,
                                               // However slow the guest is, its host is not frozen.
                                               .heartbeat = 10s,
                                               .watcher = serialPrograms().watcher,
                                               .journal = JournalFile()});
    EXPECT_TRUE(opening) << opening.answer().reason();
    station = opening.station();
    station->onEvent([this](const Event& event) { hear(event); });
  }

  /// Closes in order.
  ~PlugCyclesTest() override {
    station->close();
    EXPECT_TRUE(passesUntil([this] { return station->isClosed(); }));
    station.reset();  // before those who listen to it
  }

  /// The host comes round while it waits.
  bool passesUntil(const std::function<bool()>& condition) {
    return until([&] {
      station->alive();
      rules_.check(*station);
      return condition();
    });
  }

  void hear(const Event& event) {
    rules_.hear(event);
    if (std::holds_alternative<LineVanished>(event.what)) ++vanished;
    if (std::holds_alternative<LineReturned>(event.what)) ++returned;
    if (const auto* stop = std::get_if<ProtectiveStop>(&event.what)) causes.insert(stop->cause);
    if (const auto* load = std::get_if<LoadMeasured>(&event.what)) measured = load->load.speed;
    if (std::holds_alternative<StandstillSeen>(event.what)) standstillSeen = true;
  }

  /// Walks, as soon as the station allows it.
  void begin() {
    measured = 0;
    standstillSeen = false;
    ASSERT_TRUE(passesUntil([this] {
      return station->readiness().isAccepted() && station->start().isAccepted();
    })) << station->readiness().reason();
    ASSERT_TRUE(station->setLoad({.speed = fastest}).isAccepted());
    ASSERT_TRUE(passesUntil([this] { return measured > 0.5F; }));
    EXPECT_TRUE(does("belt running, "));
  }

  void pull() {
    adapter.pullOut();
    ++pulls;
    ASSERT_TRUE(passesUntil([this] { return vanished >= pulls && disconnections >= pulls; }));
  }

  void plugIn() {
    adapter.plugIn();
    ASSERT_TRUE(passesUntil([this] { return returned >= pulls && connections >= pulls; }));
  }

  /// After a protective stop it stands before anything else happens.
  void comeToRest() {
    ASSERT_TRUE(passesUntil([this] { return standstillSeen; }));
    EXPECT_TRUE(does("belt stopped, 0.0 km/h, grade 0.0 %"));
    EXPECT_TRUE(station->isLatched());
    EXPECT_FALSE(station->start().isAccepted());
    ASSERT_TRUE(passesUntil([this] { return station->reset().isAccepted(); }));
  }

  /// Whether this is what the treadmill does, whatever anybody says of it. What the driver did to the adapter
  /// until now is forgotten.
  bool does(const std::string& truth) {
    adapter.program().writeLine("status");
    return adapter.program().waitForLine(truth, 60s);
  }

  DeviceDaemon daemon;
  UsbAdapter adapter{0, "A1", "LodeTreadmill"};
  ORSSerialPortManager ports{systemSerialDeviceRegistry()};
  std::shared_ptr<GuardedStation> station;

  int pulls = 0;
  int vanished = 0;
  int returned = 0;
  int connections = 0;
  int disconnections = 0;
  std::set<AlarmKind> causes;
  float measured = 0;
  bool standstillSeen = false;

 private:
  static Limits limitsOf() {
    Limits limits;
    limits.speed.highest = fastest;
    return limits;
  }

  StationRules rules_{*standardCatalogue().modelNamed("LodeTreadmill"), limitsOf(),
                      [](const std::string& what) { ADD_FAILURE() << what; }};
  Observation connected_;
  Observation disconnected_;
};

TEST_F(PlugCyclesTest, AreHeardOnceEachAndLeaveNothingBehind) {
  std::vector<Holdings> holdings;
  // At once, or the list itself would count as what is left behind.
  holdings.reserve(static_cast<std::size_t>(serialPrograms().plugCycles));
  const auto began = std::chrono::steady_clock::now();
  while (pulls < serialPrograms().plugCycles && !HasFailure()) {
    begin();
    pull();
    plugIn();
    // Twice more while the stop is on its way.
    for (int more = 0; more < 2; ++more) {
      pull();
      plugIn();
    }
    comeToRest();
    EXPECT_EQ(vanished, pulls);
    EXPECT_EQ(returned, pulls);
    EXPECT_EQ(disconnections, pulls);
    EXPECT_EQ(connections, pulls);
    EXPECT_TRUE(causes.contains(AlarmKind::lineLost));
    holdings.emplace_back();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - began;
    std::printf("pulled out %d times in %.0f s: %zu descriptors, %zu threads, %zu bytes\n", pulls,
                time.count(), holdings.back().descriptors, holdings.back().threads, holdings.back().heap);
  }
  // The first time leaves behind what is made once. Of threads that rest there are some more or fewer.
  ASSERT_GE(holdings.size(), 2U);
  EXPECT_EQ(holdings.back().descriptors, holdings[1].descriptors);
  EXPECT_LE(holdings.back().heap, holdings[1].heap + 4096);
  EXPECT_TRUE(passesUntil([&] { return Holdings().threads <= holdings[1].threads + 2; }));
}

TEST_F(PlugCyclesTest, ATransferThatFailsStopsTheBeltAndTheLineComesBackByItself) {
  begin();
  adapter.program().writeLine("stumble");
  ASSERT_TRUE(passesUntil([this] { return returned == 1; }));
  comeToRest();
  EXPECT_EQ(vanished, 1);
  EXPECT_EQ(returned, 1);
  // Nobody has pulled anything out.
  EXPECT_EQ(disconnections, 0);
  EXPECT_EQ(connections, 0);
  begin();
}

TEST_F(PlugCyclesTest, ASpeedThatAnotherProgramSetsIsSetBack) {
  begin();
  ASSERT_EQ(adapter.settings(), "");
  ChildProcess program(otherProgram("/dev/ttyUSB0", "root", "fast"));
  // What the chip makes of 115,200.
  ASSERT_TRUE(passesUntil([&] { return adapter.settings() == "115385 8N1"; }));
  ASSERT_TRUE(passesUntil([&] { return station->alarms() == std::vector{AlarmKind::exerciseSilent}; }));
  ASSERT_TRUE(passesUntil([&] { return adapter.settings() == "38400 8N1"; }));
  ASSERT_TRUE(passesUntil([&] { return station->alarms().empty(); }));
  // Whatever did not get through is asked for anew.
  ASSERT_TRUE(passesUntil([this] { return measured > 1.9F; }));
  EXPECT_TRUE(program.isRunning());
  EXPECT_TRUE(causes.empty());
  EXPECT_TRUE(does("belt running, 2.0 km/h"));
  EXPECT_TRUE(station->stop().isAccepted());
  ASSERT_TRUE(passesUntil([this] { return standstillSeen; }));
  EXPECT_TRUE(does("belt stopped, 0.0 km/h"));
}

}  // namespace
}  // namespace tarsil
