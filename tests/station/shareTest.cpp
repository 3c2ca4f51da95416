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
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/ScopedOverride.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;

std::vector<std::string> namesOf(const std::optional<StressECGDeviceManager::Devices>& devices) {
  std::vector<std::string> names;
  for (const auto& device : devices.value()) names.push_back(device->name.value());
  return names;
}

std::vector<std::string> namesOf(const std::vector<DeviceModel>& models) {
  std::vector<std::string> names;
  for (const auto& model : models) names.push_back(model.name);
  return names;
}

TEST(ShareTest, IsOneManagerForEverybody) {
  auto& manager = StressECGDeviceManager::share();
  EXPECT_EQ(&manager, &StressECGDeviceManager::share());
  EXPECT_EQ(manager.shared_from_this().get(), &manager) << "it can become a port's delegate";
}

TEST(ShareTest, AnotherOneMayTakeItsPlace) {
  StressECGDeviceManager::share().isTango = true;
  const auto before = StressECGDeviceManager::exchangeShared(nullptr);
  ASSERT_NE(before, nullptr);
  EXPECT_TRUE(before->isTango);
  EXPECT_NE(&StressECGDeviceManager::share(), before.get());
  EXPECT_FALSE(StressECGDeviceManager::share().isTango);
  {
    const auto own = std::make_shared<StressECGDeviceManager>(standardCatalogue());
    const ScopedOverride<StressECGDeviceManager> shared(own);
    EXPECT_EQ(&StressECGDeviceManager::share(), own.get());
  }
  StressECGDeviceManager::exchangeShared(before);
  EXPECT_EQ(&StressECGDeviceManager::share(), before.get());
}

TEST(ShareTest, OffersTheRealDevices) {
  auto& manager = StressECGDeviceManager::share();
  const auto catalogue = standardCatalogue();
  EXPECT_EQ(namesOf(manager.getDeviceByType("Treadmill")), namesOf(catalogue.treadmills));
  EXPECT_EQ(namesOf(manager.getDeviceByType("Ergometer")), namesOf(catalogue.ergometers));
  EXPECT_EQ(namesOf(manager.getSpO2Devices()), namesOf(catalogue.oximeters));
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
