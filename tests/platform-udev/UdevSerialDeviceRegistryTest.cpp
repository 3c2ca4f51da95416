#include "tarsil/platform/linux/UdevSerialDeviceRegistry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/linux/udevScan.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/platform-udev/Testbed.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> names(const SerialDeviceRegistry::Devices& devices) {
  std::vector<std::string> names;
  for (const auto& device : devices) names.push_back(device->terminalName.value_or("(none)"));
  return names;
}

class UdevSerialDeviceRegistryTest : public testing::Test {
 protected:
  std::shared_ptr<const SerialDevice> only() {
    const auto devices = registry.devices();
    EXPECT_EQ(devices.size(), 1u);
    return devices.empty() ? std::make_shared<SerialDevice>() : devices.front();
  }

  Observation watch() {
    return registry.watch({.arrived =
                               [this](const auto& devices) {
                                 for (const auto& device : devices) news.push_back({"arrived", device});
                               },
                           .removed =
                               [this](const auto& devices) {
                                 for (const auto& device : devices) news.push_back({"removed", device});
                               }});
  }
  /// Waits for this many news.
  bool hear(std::size_t count) {
    return RunLoop::main().runUntil([&] { return news.size() >= count; }, 10s);
  }

  void setUartType(const std::string& systemPath, const std::string& type) const {
    std::ofstream(testbed.root() / systemPath.substr(1) / "type") << type << '\n';
  }

  struct News {
    std::string kind;
    std::shared_ptr<const SerialDevice> device;
  };
  Testbed testbed;
  UdevSerialDeviceRegistry registry;
  std::vector<News> news;
};

TEST_F(UdevSerialDeviceRegistryTest, ReadsWhatAUsbAdapterSaysOfItself) {
  testbed.plug({});
  const auto device = only();
  EXPECT_EQ(device->calloutPath, "/dev/ttyUSB0");
  EXPECT_EQ(device->dialinPath, "/dev/ttyUSB0");
  EXPECT_EQ(device->terminalName, "ttyUSB0");
  EXPECT_EQ(device->baseName, "ttyUSB");
  EXPECT_EQ(device->suffix, "0");
  EXPECT_EQ(device->clientType, "IOSerialStream");
  EXPECT_EQ(device->terminal, systemTerminal());
  EXPECT_EQ(device->usb, (UsbIdentity{.vendorId = "0403",
                                      .productId = "6001",
                                      .serialNumber = "A50285BI",
                                      .manufacturer = "FTDI",
                                      .product = "FT232R USB UART"}));
}

TEST_F(UdevSerialDeviceRegistryTest, LeavesEmptyWhatAnAdapterDoesNotTell) {
  testbed.plug(
      {.vendorId = "1a86", .productId = "7523", .serialNumber = "", .manufacturer = "", .product = ""});
  EXPECT_EQ(
      only()->usb,
      (UsbIdentity{
          .vendorId = "1a86", .productId = "7523", .serialNumber = "", .manufacturer = "", .product = ""}));
}

TEST_F(UdevSerialDeviceRegistryTest, ListsOnlyTerminalsWithHardwareBehindThem) {
  for (const char* name : {"console", "tty1", "ptmx"}) testbed.addTerminal("/devices/virtual", name);
  // The kernel keeps a place for UARTs that may be added some day.
  for (const char* name : {"ttyS1", "ttyS2", "ttyS3"}) testbed.addUart("platform/serial8250", name, "0");
  EXPECT_THAT(registry.devices(), IsEmpty());

  testbed.addUart("pnp0/00:00", "ttyS0", "4");
  const auto device = only();
  EXPECT_EQ(device->calloutPath, "/dev/ttyS0");
  EXPECT_EQ(device->usb, std::nullopt);
  EXPECT_EQ(device->stablePath, std::nullopt);
}

TEST_F(UdevSerialDeviceRegistryTest, TakesAnAdapterThatIsPulledOutWhileItIsReadForNoOther) {
  const std::string path = testbed.plug({});
  const UdevContext context(udev_new());
  const UdevDevice terminal(udev_device_new_from_subsystem_sysname(context.get(), "tty", "ttyUSB0"));
  EXPECT_TRUE(serialPortOf(terminal.get()));
  testbed.unplug(path);
  EXPECT_FALSE(serialPortOf(terminal.get()));
}

TEST_F(UdevSerialDeviceRegistryTest, ListsDevicesByNameWithTheirNumbersInOrder) {
  testbed.plug({.socket = "1-2", .terminalName = "ttyUSB10"});
  testbed.plug({.socket = "1-3", .terminalName = "ttyUSB9"});
  testbed.addUart("pnp0/00:02", "ttyS10", "4");
  testbed.addUart("pnp0/00:03", "ttyS2", "4");
  testbed.plug({.socket = "1-1", .terminalName = "ttyACM0"});
  EXPECT_THAT(names(registry.devices()), ElementsAre("ttyACM0", "ttyS2", "ttyS10", "ttyUSB9", "ttyUSB10"));
}

TEST_F(UdevSerialDeviceRegistryTest, ListsNothingWhereTheSystemTellsNothing) {
  testbed.plug({});
  std::filesystem::remove_all(testbed.root() / "sys");
  EXPECT_THAT(registry.devices(), IsEmpty());
}

constexpr const char* byId = "/dev/serial/by-id/usb-FTDI_FT232R_USB_UART_A50285BI-if00-port0";
constexpr const char* byPath = "/dev/serial/by-path/pci-0000:00:01.2-usb-0:1:1.0-port0";

// The daemon tells its links with the news of a device.
TEST_F(UdevSerialDeviceRegistryTest, AnAdapterWithASerialNumberHasAPathByIt) {
  const Observation watching = watch();
  testbed.announce(testbed.plug({.links = std::string(byPath) + " " + byId}), "add");
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].device->stablePath, byId);
}

TEST_F(UdevSerialDeviceRegistryTest, AnAdapterWithoutASerialNumberHasAPathByItsSocket) {
  const Observation watching = watch();
  testbed.announce(testbed.plug({.serialNumber = "", .links = std::string(byId) + " " + byPath}), "add");
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].device->stablePath, byPath);
}

TEST_F(UdevSerialDeviceRegistryTest, HasNoStablePathWhereNobodyMadeOne) {
  const Observation watching = watch();
  testbed.announce(testbed.plug({.links = "/dev/modem"}), "add");
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].device->stablePath, std::nullopt);
}

TEST_F(UdevSerialDeviceRegistryTest, FindsALinkThatStandsInTheFolder) {
  testbed.plug({.socket = "1-1", .terminalName = "ttyUSB0", .serialNumber = "A"});
  testbed.plug({.socket = "1-2", .terminalName = "ttyUSB1", .serialNumber = "B"});
  const auto folder = testbed.root() / "dev/serial/by-id";
  std::filesystem::create_directories(folder);
  std::filesystem::create_symlink("../../gone", folder / "usb-dangling");
  std::filesystem::create_symlink("../../ttyUSB1", folder / "usb-B");
  std::filesystem::create_directory(folder / "ttyUSB0");
  const auto devices = registry.devices();
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0]->stablePath, std::nullopt);
  EXPECT_EQ(devices[1]->stablePath, "/dev/serial/by-id/usb-B");
}

TEST_F(UdevSerialDeviceRegistryTest, TellsOfAnArrivalWithWhatTheAdapterSaysOfItself) {
  const Observation watching = watch();
  const auto path = testbed.plug({.links = byId});
  testbed.announce(path, "add");
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].kind, "arrived");
  EXPECT_EQ(news[0].device->calloutPath, "/dev/ttyUSB0");
  EXPECT_EQ(news[0].device->terminalName, "ttyUSB0");
  EXPECT_EQ(news[0].device->usb->serialNumber, "A50285BI");
  EXPECT_EQ(news[0].device->stablePath, byId);
}

TEST_F(UdevSerialDeviceRegistryTest, TellsOfARemovalWithTheDeviceAsItWas) {
  const auto path = testbed.plug({});
  const Observation watching = watch();
  testbed.announce(path, "remove");
  testbed.unplug(path);
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].kind, "removed");
  EXPECT_EQ(news[0].device->calloutPath, "/dev/ttyUSB0");
  EXPECT_EQ(news[0].device->usb->serialNumber, "A50285BI");
  EXPECT_EQ(news[0].device->usb->product, "FT232R USB UART");
}

TEST_F(UdevSerialDeviceRegistryTest, AnAdapterComesBackUnderAnotherNumber) {
  const auto before = testbed.plug({});
  const Observation watching = watch();
  testbed.announce(before, "remove");
  testbed.unplug(before);
  const auto after = testbed.plug({.terminalName = "ttyUSB1"});
  testbed.announce(after, "add");
  ASSERT_TRUE(hear(2));
  EXPECT_EQ(news[0].kind, "removed");
  EXPECT_EQ(news[0].device->terminalName, "ttyUSB0");
  EXPECT_EQ(news[1].kind, "arrived");
  EXPECT_EQ(news[1].device->terminalName, "ttyUSB1");
  EXPECT_EQ(news[1].device->usb, news[0].device->usb);
}

TEST_F(UdevSerialDeviceRegistryTest, TellsOnlyWhatIsNews) {
  const auto known = testbed.plug({});
  const auto placeholder = testbed.addUart("platform/serial8250", "ttyS1", "0");
  const auto console = testbed.addTerminal("/devices/virtual", "tty1");
  const Observation watching = watch();
  testbed.announce(known, "add");
  testbed.announce(known, "change");
  testbed.announce(placeholder, "add");
  testbed.announce(placeholder, "remove");
  testbed.announce(console, "add");
  testbed.announce(console, "remove");
  // The news that ends the wait.
  testbed.announce(testbed.plug({.socket = "1-2", .terminalName = "ttyUSB1"}), "add");
  ASSERT_TRUE(hear(1));
  EXPECT_EQ(news[0].kind, "arrived");
  EXPECT_EQ(news[0].device->terminalName, "ttyUSB1");
}

// As in a container: the kernel is heard, the daemon's word of what there is now is not.
TEST_F(UdevSerialDeviceRegistryTest, LooksAroundAfterTheKernelHadNews) {
  VirtualTime time;
  const auto path = testbed.addUart("platform/serial8250", "ttyS1", "0");
  const Observation watching = watch();
  setUartType(path, "4");
  testbed.announce(path, "change");
  time.advance(1900ms);
  EXPECT_THAT(news, IsEmpty());
  time.advance(100ms);
  ASSERT_EQ(news.size(), 1u);
  EXPECT_EQ(news[0].kind, "arrived");
  EXPECT_EQ(news[0].device->terminalName, "ttyS1");

  setUartType(path, "0");
  testbed.announce(path, "change");
  time.advance(2s);
  ASSERT_EQ(news.size(), 2u);
  EXPECT_EQ(news[1].kind, "removed");
  EXPECT_EQ(news[1].device->terminalName, "ttyS1");
  time.advance(10s);
  EXPECT_EQ(news.size(), 2u);
}

TEST_F(UdevSerialDeviceRegistryTest, DoesNotLookAroundOnceTheObservationIsDropped) {
  VirtualTime time;
  const auto path = testbed.addUart("platform/serial8250", "ttyS1", "0");
  Observation watching = watch();
  setUartType(path, "4");
  testbed.announce(path, "change");
  time.advance(1s);
  watching.reset();
  time.advance(2s);
  EXPECT_THAT(news, IsEmpty());
}

TEST_F(UdevSerialDeviceRegistryTest, TellsNothingAfterTheObservationIsDropped) {
  Observation dropped = watch();
  bool heard = false;
  const Observation watching = registry.watch({.arrived = [&](const auto&) { heard = true; }, .removed = {}});
  dropped.reset();
  testbed.announce(testbed.plug({}), "add");
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return heard; }, 10s));
  EXPECT_THAT(news, IsEmpty());
}

TEST_F(UdevSerialDeviceRegistryTest, AWatcherMayEndItsObservation) {
  int heard = 0;
  Observation watching;
  watching = registry.watch({.arrived =
                                 [&](const auto&) {
                                   ++heard;
                                   watching.reset();
                                 },
                             .removed = {}});
  const Observation other = watch();
  testbed.announce(testbed.plug({.socket = "1-1", .terminalName = "ttyUSB0"}), "add");
  testbed.announce(testbed.plug({.socket = "1-2", .terminalName = "ttyUSB1"}), "add");
  ASSERT_TRUE(hear(2));
  RunLoop::main().processDue();
  EXPECT_EQ(heard, 1);
}

TEST_F(UdevSerialDeviceRegistryTest, GoesOnAfterAWatcherThrew) {
  int heard = 0;
  const Observation watching = registry.watch({.arrived =
                                                   [&](const auto&) {
                                                     if (++heard == 1)
                                                       throw std::runtime_error("a host's fault");
                                                   },
                                               .removed = {}});
  testbed.announce(testbed.plug({.socket = "1-1", .terminalName = "ttyUSB0"}), "add");
  EXPECT_THROW(RunLoop::main().runUntil([&] { return heard == 2; }, 10s), std::runtime_error);
  testbed.announce(testbed.plug({.socket = "1-2", .terminalName = "ttyUSB1"}), "add");
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return heard == 2; }, 10s));
}

TEST_F(UdevSerialDeviceRegistryTest, AWatcherHearsOnTheThreadThatBeganToWatch) {
  std::atomic<bool> watching = false;
  std::thread other([&] {
    bool heardHere = false;
    const auto self = std::this_thread::get_id();
    const Observation observation = registry.watch(
        {.arrived = [&](const auto&) { heardHere = std::this_thread::get_id() == self; }, .removed = {}});
    watching = true;
    EXPECT_TRUE(RunLoop::current().runUntil([&] { return heardHere; }, 10s));
  });
  while (!watching) std::this_thread::yield();
  testbed.announce(testbed.plug({}), "add");
  other.join();
}

TEST_F(UdevSerialDeviceRegistryTest, StaysQuietWhereTheSystemGivesNoNews) {
  testbed.plug({});
  EXPECT_EQ(registry.devices().size(), 1u);
  // No descriptor to be had for listening, nor for looking.
  rlimit none{};
  getrlimit(RLIMIT_NOFILE, &none);
  const rlimit before = none;
  none.rlim_cur = 0;
  RunLoop::main();
  setrlimit(RLIMIT_NOFILE, &none);
  const Observation nothing = registry.watch({});
  const auto found = registry.devices();
  // A sanitizer needs descriptors for its own checks of what is asserted.
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(found, IsEmpty());
  EXPECT_EQ(registry.devices().size(), 1u);
}

}  // namespace
}  // namespace tarsil
