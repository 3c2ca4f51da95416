#include "tarsil/platform/VirtualDeviceRegistry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/runtime/RunLoop.hpp"

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

class VirtualDeviceRegistryTest : public testing::Test {
 protected:
  Observation watchInto(std::vector<std::string>& heard) {
    return registry.watch({.arrived =
                               [&](const auto& devices) {
                                 for (const auto& name : names(devices)) heard.push_back("+" + name);
                               },
                           .removed =
                               [&](const auto& devices) {
                                 for (const auto& name : names(devices)) heard.push_back("-" + name);
                               }});
  }

  VirtualDeviceRegistry registry;
  std::vector<std::string> news;
};

TEST_F(VirtualDeviceRegistryTest, ListsDevicesInTheOrderInWhichTheyCame) {
  EXPECT_THAT(registry.devices(), IsEmpty());
  registry.add("/dev/pts/7", "lode10");
  const auto own = std::make_shared<SerialDevice>();
  registry.add(own);
  registry.add("/dev/pts/3", "ergoline");
  ASSERT_EQ(registry.devices().size(), 3u);
  EXPECT_EQ(registry.devices()[1], own);
  EXPECT_THAT(names(registry.devices()), ElementsAre("lode10", "(none)", "ergoline"));
  EXPECT_EQ(registry.devices()[0]->calloutPath, "/dev/pts/7");
  EXPECT_EQ(registry.devices()[0]->baseName, "lode");
  EXPECT_EQ(registry.devices()[0]->suffix, "10");
  EXPECT_EQ(registry.devices()[0]->terminal, systemTerminal());
}

TEST_F(VirtualDeviceRegistryTest, RemovesByCalloutPath) {
  registry.add("/dev/pts/7", "lode");
  registry.add("/dev/pts/3", "ergoline");
  EXPECT_FALSE(registry.remove("/dev/pts/4"));
  EXPECT_FALSE(registry.remove(""));
  EXPECT_TRUE(registry.remove("/dev/pts/7"));
  EXPECT_FALSE(registry.remove("/dev/pts/7"));
  EXPECT_THAT(names(registry.devices()), ElementsAre("ergoline"));
}

TEST_F(VirtualDeviceRegistryTest, RefusesNoDevice) {
  EXPECT_THROW(registry.add(nullptr), std::invalid_argument);
  EXPECT_THAT(registry.devices(), IsEmpty());
}

TEST_F(VirtualDeviceRegistryTest, RefusesASecondDeviceAtAPath) {
  registry.add("/dev/pts/7", "lode");
  const Observation watch = watchInto(news);
  EXPECT_THROW(registry.add("/dev/pts/7", "ergoline"), std::invalid_argument);
  EXPECT_THAT(names(registry.devices()), ElementsAre("lode"));
  RunLoop::main().processDue();
  EXPECT_THAT(news, IsEmpty());
  EXPECT_TRUE(registry.remove("/dev/pts/7"));
  registry.add("/dev/pts/7", "ergoline");
  EXPECT_THAT(names(registry.devices()), ElementsAre("ergoline"));
  // Devices without a path are told apart by nothing, and never opened.
  registry.add(std::make_shared<SerialDevice>());
  registry.add(std::make_shared<SerialDevice>());
  EXPECT_THAT(names(registry.devices()), ElementsAre("ergoline", "(none)", "(none)"));
}

TEST_F(VirtualDeviceRegistryTest, TellsWatchersOfChangesFromTheirRunLoop) {
  registry.add("/dev/pts/1", "before");
  const Observation watch = watchInto(news);
  registry.add("/dev/pts/7", "lode");
  registry.remove("/dev/pts/1");
  registry.remove("/dev/pts/7");
  EXPECT_THAT(news, IsEmpty());
  RunLoop::main().processDue();
  EXPECT_THAT(news, ElementsAre("+lode", "-before", "-lode"));
}

TEST_F(VirtualDeviceRegistryTest, RemovalTellsOfTheVeryDevice) {
  registry.add("/dev/pts/7", "lode");
  const auto device = registry.devices().front();
  SerialDeviceRegistry::Devices removed;
  const Observation watch =
      registry.watch({.arrived = {}, .removed = [&](const auto& devices) { removed = devices; }});
  registry.add("/dev/pts/8", "unheard");
  registry.remove("/dev/pts/7");
  RunLoop::main().processDue();
  EXPECT_THAT(removed, ElementsAre(device));
}

TEST_F(VirtualDeviceRegistryTest, TellsNothingAfterTheObservationIsDropped) {
  Observation watch = watchInto(news);
  registry.add("/dev/pts/7", "lode");
  watch.reset();
  registry.add("/dev/pts/8", "ergoline");
  RunLoop::main().processDue();
  EXPECT_THAT(news, IsEmpty());
}

TEST_F(VirtualDeviceRegistryTest, AWatcherMayEndItsObservationAndChangeTheRegistry) {
  Observation watch;
  watch = registry.watch({.arrived =
                              [&](const auto&) {
                                news.emplace_back("heard");
                                watch.reset();
                                registry.remove("/dev/pts/7");
                              },
                          .removed = [&](const auto&) { news.emplace_back("too much"); }});
  registry.add("/dev/pts/7", "lode");
  registry.add("/dev/pts/8", "ergoline");
  RunLoop::main().processDue();
  RunLoop::main().processDue();
  EXPECT_THAT(news, ElementsAre("heard"));
  EXPECT_THAT(names(registry.devices()), ElementsAre("ergoline"));
}

TEST_F(VirtualDeviceRegistryTest, AnObservationMayOutliveTheRegistry) {
  auto shortLived = std::make_unique<VirtualDeviceRegistry>();
  Observation watch = shortLived->watch({});
  shortLived.reset();
  watch.reset();
}

TEST_F(VirtualDeviceRegistryTest, EveryWatcherHearsOnItsOwnThread) {
  std::atomic<bool> watching = false;
  std::thread other([&] {
    bool heardHere = false;
    const auto self = std::this_thread::get_id();
    const Observation watch = registry.watch(
        {.arrived = [&](const auto&) { heardHere = std::this_thread::get_id() == self; }, .removed = {}});
    watching = true;
    EXPECT_TRUE(RunLoop::current().runUntil([&] { return heardHere; }, 10s));
  });
  const Observation watch = watchInto(news);
  while (!watching) std::this_thread::yield();
  registry.add("/dev/pts/7", "lode");
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !news.empty(); }, 10s));
  other.join();
}

TEST_F(VirtualDeviceRegistryTest, AllWatchersHearTheChangesOfManyThreadsInOneOrder) {
  std::vector<std::string> otherNews;
  const Observation first = watchInto(news);
  const Observation second = watchInto(otherNews);
  constexpr int threadCount = 4;
  constexpr int devicesEach = 50;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([this, thread] {
      for (int device = 0; device < devicesEach; ++device) {
        const std::string path = std::to_string(thread) + "/" + std::to_string(device);
        registry.add(path, path);
        EXPECT_TRUE(registry.remove(path));
      }
    });
  }
  EXPECT_TRUE(
      RunLoop::main().runUntil([&] { return otherNews.size() == 2 * threadCount * devicesEach; }, 20s));
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(news, otherNews);
  EXPECT_THAT(registry.devices(), IsEmpty());
}

TEST_F(VirtualDeviceRegistryTest, TheSharedOneIsOne) {
  EXPECT_EQ(VirtualDeviceRegistry::shared(), VirtualDeviceRegistry::shared());
}

}  // namespace
}  // namespace tarsil
