#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <typeindex>
#include <vector>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/VirtualTime.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;

std::vector<std::string> namesOf(const std::optional<StressECGDeviceManager::Devices>& devices) {
  std::vector<std::string> names;
  for (const auto& device : devices.value()) names.push_back(device->name.value());
  return names;
}

TEST(ShareTest, IsOneManagerForEverybody) {
  auto& manager = StressECGDeviceManager::share();
  EXPECT_EQ(&manager, &StressECGDeviceManager::share());
  EXPECT_EQ(manager.shared_from_this().get(), &manager) << "it can become a port's delegate";
}

TEST(ShareTest, OffersTheRealDevices) {
  auto& manager = StressECGDeviceManager::share();
  EXPECT_THAT(namesOf(manager.getDeviceByType("Treadmill")),
              ElementsAre("TM-400V2", "LodeOEMTreadmill", "LodeTreadmill", "TrackMaster"));
  EXPECT_THAT(
      namesOf(manager.getDeviceByType("Ergometer")),
      ElementsAre("KivBicycle", "Ergometer38K4", "ErgolineK2.4P10", "ErgosanaK4.8P10", "ErgometricsK2.4P3"));
  EXPECT_THAT(namesOf(manager.getSpO2Devices()), ElementsAre("MEDXINGPort"));
}

TEST(ShareTest, MakesARealMonitorForItsPort) {
  static VirtualTime& time = *new VirtualTime;  // the shared port manager lives in it to the end
  const auto registry = std::make_shared<VirtualDeviceRegistry>();
  SerialDeviceRegistry::exchangeShared(registry);
  registry->add("/dev/none", "monitor");
  time.settle();
  auto& manager = StressECGDeviceManager::share();
  EXPECT_THAT(manager.getPort(false), ElementsAre("monitor"));
  manager.selectedPort("monitor", PortType::BP);
  ASSERT_NE(manager.BPD, nullptr);
  const auto& device = *manager.BPD;
  EXPECT_EQ(std::type_index(typeid(device)), std::type_index(typeid(BPDevice)));
  const auto& monitor = dynamic_cast<const BPDevice&>(device);
  EXPECT_EQ(monitor.taskJoint, "");
  EXPECT_TRUE(monitor.isINIT);
  EXPECT_TRUE(monitor.isBPcommand);
  EXPECT_EQ(monitor.type, std::nullopt);
  EXPECT_EQ(monitor.baud, 9600);
}

}  // namespace
}  // namespace tarsil
