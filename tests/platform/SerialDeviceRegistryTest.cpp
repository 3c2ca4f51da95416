#include "tarsil/platform/SerialDeviceRegistry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/platform/detail/UnitedDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<SerialDevice> device(std::optional<std::string> callout, std::optional<std::string> dialin) {
  auto device = std::make_shared<SerialDevice>();
  device->calloutPath = std::move(callout);
  device->dialinPath = std::move(dialin);
  return device;
}

TEST(SerialDeviceRegistryTest, FindsTheFirstDeviceWithThePath) {
  VirtualDeviceRegistry registry;
  const auto both = device("/dev/cu.one", "/dev/tty.one");
  const auto dialin = device("/dev/cu.two", "/dev/cu.one");
  const auto none = device(std::nullopt, std::nullopt);
  const auto empty = device("", "");
  for (const auto& each : {none, empty, both, dialin}) registry.add(each);

  EXPECT_EQ(registry.deviceFromBSDPath("/dev/cu.one"), both);
  EXPECT_EQ(registry.deviceFromBSDPath("/dev/tty.one"), both);
  EXPECT_EQ(registry.deviceFromBSDPath("/dev/cu.two"), dialin);
  EXPECT_EQ(registry.deviceFromBSDPath("/dev/cu.three"), nullptr);
  EXPECT_EQ(registry.deviceFromBSDPath("/dev/cu.on"), nullptr);
  EXPECT_EQ(registry.deviceFromBSDPath(""), nullptr);
  registry.remove("/dev/cu.one");
  EXPECT_EQ(registry.deviceFromBSDPath("/dev/cu.one"), dialin);
}

TEST(SerialDeviceRegistryTest, SharesTheSystemsDevicesAndTheVirtualOnes) {
  const auto ours = device("/dev/pts/lode", "/dev/pts/lode");
  VirtualDeviceRegistry::shared()->add(ours);
  const auto shared = SerialDeviceRegistry::shared()->devices();
  const auto system = systemSerialDeviceRegistry()->devices();
  ASSERT_EQ(shared.size(), system.size() + 1);
  for (std::size_t index = 0; index < system.size(); ++index) {
    EXPECT_EQ(shared[index]->calloutPath, system[index]->calloutPath);
  }
  EXPECT_EQ(shared.back(), ours);
  EXPECT_TRUE(VirtualDeviceRegistry::shared()->remove("/dev/pts/lode"));
  EXPECT_EQ(SerialDeviceRegistry::shared()->deviceFromBSDPath("/dev/pts/lode"), nullptr);
}

TEST(SerialDeviceRegistryTest, IsTheDefaultUnlessAnotherIsPutInItsPlace) {
  const auto usual = SerialDeviceRegistry::shared();
  ASSERT_NE(usual, nullptr);
  const auto other = std::make_shared<VirtualDeviceRegistry>();
  const auto before = SerialDeviceRegistry::exchangeShared(other);
  EXPECT_EQ(SerialDeviceRegistry::shared(), other);
  EXPECT_EQ(SerialDeviceRegistry::exchangeShared(before), other);
  EXPECT_EQ(SerialDeviceRegistry::shared(), usual);
}

TEST(UnitedDeviceRegistryTest, ListsOneRegistryAfterTheOther) {
  const auto first = std::make_shared<VirtualDeviceRegistry>();
  const auto second = std::make_shared<VirtualDeviceRegistry>();
  detail::UnitedDeviceRegistry united({first, second});
  EXPECT_THAT(united.devices(), IsEmpty());
  const auto early = device("/2", "/2");
  const auto late = device("/1", "/1");
  second->add(early);
  first->add(late);
  EXPECT_THAT(united.devices(), ElementsAre(late, early));
}

TEST(UnitedDeviceRegistryTest, TellsTheNewsOfAll) {
  const auto first = std::make_shared<VirtualDeviceRegistry>();
  const auto second = std::make_shared<VirtualDeviceRegistry>();
  detail::UnitedDeviceRegistry united({first, second});
  SerialDeviceRegistry::Devices arrived;
  SerialDeviceRegistry::Devices removed;
  Observation watch = united.watch(
      {.arrived = [&](const auto& devices) { arrived.insert(arrived.end(), devices.begin(), devices.end()); },
       .removed =
           [&](const auto& devices) { removed.insert(removed.end(), devices.begin(), devices.end()); }});
  const auto one = device("/1", "/1");
  const auto two = device("/2", "/2");
  first->add(one);
  second->add(two);
  first->remove("/1");
  RunLoop::main().processDue();
  EXPECT_THAT(arrived, ElementsAre(one, two));
  EXPECT_THAT(removed, ElementsAre(one));

  watch.reset();
  second->remove("/2");
  RunLoop::main().processDue();
  EXPECT_THAT(removed, ElementsAre(one));
}

}  // namespace
}  // namespace tarsil
