#include "tarsil/platform/linux/KnownDevices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

FoundDevice adapter(const std::string& systemPath, const std::string& serialNumber) {
  SerialDevice device;
  device.usb = UsbIdentity{.vendorId = "0403",
                           .productId = "6001",
                           .serialNumber = serialNumber,
                           .manufacturer = "",
                           .product = ""};
  return {systemPath, std::make_shared<SerialDevice>(device)};
}

class KnownDevicesTest : public testing::Test {
 protected:
  const FoundDevice first = adapter("/sys/1", "A");
  const FoundDevice second = adapter("/sys/2", "B");
  KnownDevices known{{first}};
};

TEST_F(KnownDevicesTest, AnArrivalIsNewsOnce) {
  const auto news = known.add(second);
  EXPECT_THAT(news.arrived, ElementsAre(second.device));
  EXPECT_THAT(news.removed, IsEmpty());
  EXPECT_THAT(known.add(second).arrived, IsEmpty());
  EXPECT_THAT(known.add(adapter("/sys/1", "A")).arrived, IsEmpty());
}

TEST_F(KnownDevicesTest, ARemovalHandsBackTheDeviceAsItArrived) {
  known.add(adapter("/sys/1", "A"));
  const auto news = known.remove("/sys/1");
  EXPECT_THAT(news.removed, ElementsAre(first.device));
  EXPECT_THAT(news.arrived, IsEmpty());
  EXPECT_THAT(known.remove("/sys/1").removed, IsEmpty());
  EXPECT_THAT(known.remove("/sys/never").removed, IsEmpty());
}

TEST_F(KnownDevicesTest, AnotherAdapterInTheSamePlaceIsARemovalAndAnArrival) {
  const auto other = adapter("/sys/1", "Z");
  const auto news = known.add(other);
  EXPECT_THAT(news.removed, ElementsAre(first.device));
  EXPECT_THAT(news.arrived, ElementsAre(other.device));
  EXPECT_THAT(known.remove("/sys/1").removed, ElementsAre(other.device));
}

TEST_F(KnownDevicesTest, ALookAroundTellsTheDifference) {
  const auto third = adapter("/sys/3", "C");
  const auto changed = adapter("/sys/2", "Z");
  known.add(second);
  const auto news = known.replace({changed, third});
  EXPECT_THAT(news.removed, ElementsAre(first.device, second.device));
  EXPECT_THAT(news.arrived, ElementsAre(changed.device, third.device));

  const auto same = known.replace({changed, third});
  EXPECT_THAT(same.removed, IsEmpty());
  EXPECT_THAT(same.arrived, IsEmpty());
  EXPECT_THAT(known.replace({}).removed, ElementsAre(changed.device, third.device));
}

}  // namespace
}  // namespace tarsil
