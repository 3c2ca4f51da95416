// The Bluetooth oximeter as a host uses it: the real bluetoothd and kernel, an oximeter in the air. Run in
// the guest, where the whole machine belongs to it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulators/radio/SimulatedOximeter.hpp"
#include "tarsil/bluetooth/bluez/makeBluezCentral.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tests/guest/bluetooth/BluezGuest.hpp"
#include "tests/helpers/ChildProcess.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RelayingCentralDelegate.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

GuestPrograms programs;

/// A host of the oximeter, with everything that it would set up.
class Station {
 public:
  explicit Station(std::optional<bool> handleDisconnect) {
    oximeter->kiv_delegate = host;
    oximeter->btManager = central;
    oximeter->handleDisconnect = handleDisconnect;
    central->setDelegate(relay);
  }

  std::vector<float> takeReports() { return std::exchange(host->reports, {}); }

  struct Host : KivStressPortDelegate {
    void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
      EXPECT_EQ(status, 1);
      EXPECT_TRUE(RunLoop::isMainThread());
      reports.push_back(SpO2);
      if (onReport) onReport();
    }
    std::vector<float> reports;
    std::function<void()> onReport;
  };

  std::shared_ptr<Host> host = std::make_shared<Host>();
  std::shared_ptr<BluetoothCentral> central = makeBluezCentral();
  std::shared_ptr<MEDXINGSpO2> oximeter = std::make_shared<MEDXINGSpO2>();
  std::shared_ptr<RelayingCentralDelegate> relay = std::make_shared<RelayingCentralDelegate>(oximeter);
};

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::uint64_t steadyNanoseconds() {
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

class BluezGuestTest : public testing::Test {
 protected:
  bool until(const std::function<bool()>& condition, Duration timeout = 30s) {
    return RunLoop::main().runUntil(condition, timeout);
  }

  bool hears(Station& station, const std::string& line) {
    return until([&] { return station.relay->hasHeard(line); });
  }

  /// A connection up to the subscription.
  bool subscribes(Station& station) {
    return until([&] {
      const auto& peripheral = station.oximeter->peripheral;
      if (!peripheral || peripheral->state() != BluetoothPeripheralState::connected) return false;
      for (const auto& service : peripheral->services()) {
        for (const auto& characteristic : service->characteristics()) {
          if (characteristic->UUID() == "FFB2" && characteristic->isNotifying()) return true;
        }
      }
      return false;
    });
  }

  struct Notification {
    float saturation;
    std::uint64_t delay;  // in nanoseconds
  };

  /// What the bare client has heard, connection by connection; it ends.
  std::vector<std::vector<Notification>> heardBy(ChildProcess& bareClient) {
    bareClient.closeInput();
    EXPECT_TRUE(until([&] { return !bareClient.lines().empty() && bareClient.lines().back() == "end"; }));
    std::vector<std::vector<Notification>> connections(1);
    for (const auto& line : bareClient.lines()) {
      std::istringstream words(line);
      Notification notification{};
      if (words >> notification.saturation >> notification.delay) connections.back().push_back(notification);
      if (line == "disconnected") connections.emplace_back();
    }
    return connections;
  }

  /// Lets the oximeter measure this often; each measurement differs from the one before it. Checks that every
  /// one of them arrives, in order.
  void expectEveryReport(Station& station, std::size_t count) {
    ASSERT_THAT(station.takeReports(), IsEmpty());
    guest->radio().writeLine("measure " + std::to_string(count));
    EXPECT_TRUE(until([&] { return station.host->reports.size() >= count; }));
    EXPECT_TRUE(guest->radio().waitForLine("measured"));
    const auto reports = station.takeReports();
    std::vector<float> expected;
    for (std::size_t i = 0; i < count; ++i) expected.push_back(static_cast<float>(99 - (sent_ + i) % 20));
    sent_ += count;
    reported_ += reports.size();
    EXPECT_EQ(reports, expected);
  }

  std::unique_ptr<BluezGuest> guest = std::make_unique<BluezGuest>(programs);
  std::size_t sent_ = 0;
  std::size_t reported_ = 0;
};

TEST_F(BluezGuestTest, TellsOfBluetoothSwitchedOffAndOn) {
  Station station(false);
  ASSERT_TRUE(hears(station, "poweredOn"));
  station.relay->take();
  PrintedLines printed;
  guest->switchBluetooth(false);
  ASSERT_TRUE(hears(station, "poweredOff"));
  EXPECT_THAT(printed.fixed(), ElementsAre("蓝牙关闭，请先打开蓝牙"));
  station.relay->take();
  guest->switchBluetooth(true);
  ASSERT_TRUE(hears(station, "poweredOn"));
  EXPECT_THAT(printed.fixed(), ElementsAre("蓝牙关闭，请先打开蓝牙", "蓝牙已打开, 请扫描外设!"));
}

TEST_F(BluezGuestTest, IgnoresAPeripheralWhoseNameOnlyBeginsRight) {
  guest->radio().writeLine("advertise off");
  Station station(false);
  ASSERT_TRUE(hears(station, "discovered MEDXING-SpO2-B"));
  EXPECT_EQ(station.oximeter->peripheral, nullptr);
  guest->radio().writeLine("advertise on");
  ASSERT_TRUE(subscribes(station));
  EXPECT_EQ(station.oximeter->peripheral->name(), "MEDXING-SpO2");
  EXPECT_EQ(station.relay->count("discovered MEDXING-SpO2-B"), 1U);
}

TEST_F(BluezGuestTest, FindsANameThatComesLate) {
  guest->radio().writeLine("name off");
  Station station(false);
  ASSERT_TRUE(hears(station, "discovered ?"));
  EXPECT_EQ(station.oximeter->peripheral, nullptr);
  guest->radio().writeLine("name on");
  EXPECT_TRUE(subscribes(station));
}

TEST_F(BluezGuestTest, ReportsOnlyChangedValues) {
  Station station(false);
  ASSERT_TRUE(subscribes(station));
  guest->radio().writeLine("repeat 3");
  guest->radio().writeLine("measure 30");
  ASSERT_TRUE(guest->radio().waitForLine("measured"));
  EXPECT_TRUE(until([&] { return station.host->reports.size() >= 10; }));
  EXPECT_THAT(station.takeReports(), ElementsAre(99, 98, 97, 96, 95, 94, 93, 92, 91, 90));
}

TEST_F(BluezGuestTest, StaysAwayAfterADisconnectUnlessItIsHandledHere) {
  for (const std::optional<bool> choice : {std::optional(true), std::optional<bool>()}) {
    Station station(choice);
    // The first discovery only stores the oximeter; the host connects.
    ASSERT_TRUE(until([&] { return station.oximeter->peripheral != nullptr; }));
    station.central->connect(station.oximeter->peripheral);
    ASSERT_TRUE(subscribes(station));
    guest->radio().writeLine("bye");
    ASSERT_TRUE(guest->radio().waitForLine("disconnected 19"));
    ASSERT_TRUE(hears(station, "disconnected unknown"));
    station.relay->take();
    // The oximeter advertises every 0.1 s: a scan or a connection would be noticed.
    RunLoop::main().runFor(3s);
    EXPECT_THAT(station.relay->take(), IsEmpty());
    EXPECT_THAT(guest->radio().lines(), IsEmpty());
    // A host that wants it back connects to the stored oximeter.
    station.central->connect(station.oximeter->peripheral);
    ASSERT_TRUE(subscribes(station));
    station.central->cancelPeripheralConnection(station.oximeter->peripheral);
    EXPECT_TRUE(hears(station, "disconnected"));
  }
}

TEST_F(BluezGuestTest, ConnectsToAnOximeterThatComesIntoReachLater) {
  Station station(std::nullopt);
  ASSERT_TRUE(until([&] { return station.oximeter->peripheral != nullptr; }));
  guest->radio().writeLine("advertise off");
  station.central->connect(station.oximeter->peripheral);
  RunLoop::main().runFor(3s);
  EXPECT_FALSE(station.relay->hasHeard("connected"));
  guest->radio().writeLine("advertise on");
  ASSERT_TRUE(subscribes(station));
  expectEveryReport(station, 10);
}

TEST_F(BluezGuestTest, TakesOverAConnectionThatAnEarlierProgramLeft) {
  {
    Station earlier(std::nullopt);
    ASSERT_TRUE(until([&] { return earlier.oximeter->peripheral != nullptr; }));
    ASSERT_TRUE(until([&] { return !guest->isScanning(); }));
    guest->connectOximeter();
  }
  ASSERT_TRUE(guest->radio().waitForLine("connected MEDXING-SpO2"));
  // Connected, the oximeter does not advertise: no scan hears it.
  Station station(false);
  ASSERT_TRUE(subscribes(station));
  expectEveryReport(station, 10);
  EXPECT_THAT(guest->radio().lines(), IsEmpty());
}

TEST_F(BluezGuestTest, ACentralThatIsDroppedEndsItsConnection) {
  {
    Station station(false);
    ASSERT_TRUE(subscribes(station));
  }
  EXPECT_TRUE(guest->radio().waitForLine("disconnected 22"));
}

// Another client of the bus hears each connection's notifications too: up to the end of a connection, what we
// report is what it heard, from our subscription on. (bluetoothd renews the subscription by itself before we
// ask for it, so the other one may have heard more at the beginning.)
TEST_F(BluezGuestTest, LosesNothingOfAStreamWhenALinkBreaks) {
  Station station(false);
  ASSERT_TRUE(subscribes(station));
  ChildProcess bareClient({programs.bareClient});
  ASSERT_TRUE(bareClient.waitForLine("listening"));
  guest->radio().writeLine("interval 10");
  guest->radio().writeLine("measure -1");
  const std::vector<std::string> losses = {"lose", "bye", "lose", "bye"};
  std::vector<std::vector<float>> reports;
  for (const auto& loss : losses) {
    ASSERT_TRUE(until([&] { return station.host->reports.size() >= 40; }));
    station.relay->take();
    guest->radio().writeLine(loss);
    ASSERT_TRUE(hears(station, "disconnected unknown"));
    reports.push_back(station.takeReports());
  }
  const auto heardByOther = heardBy(bareClient);
  ASSERT_GE(heardByOther.size(), reports.size());
  for (std::size_t i = 0; i < reports.size(); ++i) {
    std::vector<float> other;
    for (const auto& notification : heardByOther[i]) other.push_back(notification.saturation);
    std::printf("stream %zu: %zu reports, %zu heard by another client of the bus\n", i + 1, reports[i].size(),
                other.size());
    ASSERT_GE(other.size(), reports[i].size());
    other.erase(other.begin(), other.end() - static_cast<std::ptrdiff_t>(reports[i].size()));
    EXPECT_EQ(reports[i], other);
  }
}

// What can befall a session in use, and what brings it back.
struct Fault {
  const char* name;
  std::function<void(BluezGuest&, Station&, const std::function<bool(const std::string&)>&)> happens;
};

std::vector<Fault> faults() {
  return {
      {"link lost",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.radio().writeLine("lose");
         EXPECT_TRUE(hears("disconnected unknown"));
       }},
      {"peripheral disconnects",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.radio().writeLine("bye");
         EXPECT_TRUE(hears("disconnected unknown"));
       }},
      {"silence until the supervision time-out",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.radio().writeLine("silent on");
         EXPECT_TRUE(hears("disconnected unknown"));
         guest.radio().writeLine("silent off");
       }},
      {"oximeter switched off and on",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.radio().writeLine("power off");
         EXPECT_TRUE(hears("disconnected unknown"));
         guest.radio().writeLine("power on");
       }},
      {"adapter pulled out and put back",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.radio().writeLine("eject");
         EXPECT_TRUE(hears("unsupported"));
         guest.radio().writeLine("insert");
         EXPECT_TRUE(hears("poweredOn"));
       }},
      {"bluetoothd restarted",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.stopDaemon();
         EXPECT_TRUE(hears("resetting"));
         guest.startDaemon();
         EXPECT_TRUE(hears("poweredOn"));
       }},
      {"Bluetooth switched off and on",
       [](BluezGuest& guest, Station&, auto&& hears) {
         guest.switchBluetooth(false);
         EXPECT_TRUE(hears("poweredOff"));
         guest.switchBluetooth(true);
         EXPECT_TRUE(hears("poweredOn"));
       }},
  };
}

TEST_F(BluezGuestTest, ComesBackAfterEveryFaultTwentyTimes) {
  constexpr std::size_t cycles = 21;  // each fault three times
  constexpr std::size_t reportsEach = 25;
  Station station(false);
  guest->radio().writeLine("interval 10");
  ASSERT_TRUE(subscribes(station));
  expectEveryReport(station, reportsEach);

  std::vector<std::size_t> descriptors;
  std::vector<std::size_t> heap;
  // So that what is written down here does not grow while the heap is measured.
  descriptors.reserve(cycles);
  heap.reserve(cycles);
  const auto all = faults();
  for (std::size_t cycle = 0; cycle < cycles; ++cycle) {
    const Fault& fault = all[cycle % all.size()];
    SCOPED_TRACE(fault.name);
    station.relay->take();
    while (guest->radio().waitForLine("", 0s)) {
    }
    const auto start = std::chrono::steady_clock::now();
    fault.happens(*guest, station, [&](const std::string& line) { return hears(station, line); });
    ASSERT_TRUE(subscribes(station)) << "the host heard " << testing::PrintToString(station.relay->heard)
                                     << ", the radio " << testing::PrintToString(guest->radio().lines());
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    expectEveryReport(station, reportsEach);
    descriptors.push_back(openDescriptors());
    heap.push_back(mallinfo2().uordblks);
    std::string heard;
    for (const auto& line : station.relay->heard) heard += (heard.empty() ? "" : ", ") + line;
    std::printf(
        "cycle %2zu, %s: subscribed again after %.2f s; %zu of %zu reports; %zu descriptors, %zu bytes; %s\n",
        cycle + 1, fault.name, took.count(), reported_, sent_, descriptors.back(), heap.back(),
        heard.c_str());
    if (HasFailure()) return;
  }
  EXPECT_EQ(reported_, (cycles + 1) * reportsEach);
  // The same fault leaves the same behind, however often it happened.
  const std::size_t last = cycles - all.size();
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(descriptors[last + i], descriptors[last + i - all.size()]) << all[i].name;
    EXPECT_LE(heap[last + i], heap[last + i - all.size()] + 4096) << all[i].name;
  }
}

double milliseconds(std::vector<std::uint64_t> delays, double quantile) {
  std::sort(delays.begin(), delays.end());
  return static_cast<double>(
             delays[static_cast<std::size_t>(quantile * static_cast<double>(delays.size() - 1))]) /
         1e6;
}

TEST_F(BluezGuestTest, MeasuresTheTimeFromANotificationToTheDelegate) {
  constexpr std::size_t count = 1000;
  Station station(false);
  ASSERT_TRUE(subscribes(station));
  ChildProcess bareClient({programs.bareClient});
  ASSERT_TRUE(bareClient.waitForLine("listening"));

  std::vector<std::uint64_t> delays;
  station.host->onReport = [&] {
    const auto now = steadyNanoseconds();
    const auto value = station.oximeter->SpO2service->characteristics().back()->value();
    delays.push_back(now - simulators::SimulatedOximeter::timeIn(value.value()));
  };
  guest->radio().writeLine("interval 20");
  guest->radio().writeLine("measure " + std::to_string(count));
  ASSERT_TRUE(until([&] { return delays.size() >= count; }, 60s));
  std::vector<std::uint64_t> bareDelays;
  const auto heardByOther = heardBy(bareClient);
  for (const auto& notification : heardByOther.front()) bareDelays.push_back(notification.delay);
  ASSERT_EQ(delays.size(), count);
  ASSERT_EQ(bareDelays.size(), count);
  std::printf("From notification to delegate, %zu notifications: median %.2f ms, 99th percentile %.2f ms\n",
              count, milliseconds(delays, 0.5), milliseconds(delays, 0.99));
  std::printf("A bare D-Bus client beside it:                    median %.2f ms, 99th percentile %.2f ms\n",
              milliseconds(bareDelays, 0.5), milliseconds(bareDelays, 0.99));
}

}  // namespace
}  // namespace tarsil

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (argc != 4) {
    std::fputs("usage: tests-guest-bluetooth SIMULATOR BARE-CLIENT BUS-CONFIGURATION\n", stderr);
    return 2;
  }
  tarsil::programs = {argv[1], argv[2], argv[3]};
  return RUN_ALL_TESTS();
}
