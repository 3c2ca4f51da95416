#include "tarsil/guard/detail/GuardedDriver.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tarsil/guard/detail/Containment.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

TEST(GuardedDriverTest, TakesNewDriversForOneThatWouldHaveStopped) {
  const Containment containment;
  DeviceModel model = standardCatalogue().modelNamed("LodeTreadmill").value();
  std::vector<std::shared_ptr<KivStressDevice>> made;
  model.makeDevice = [&made, make = model.makeDevice] { return made.emplace_back(make()); };
  std::vector<std::string> reasons;
  GuardedDriver::Listener listener;
  listener.event = [&](const Event::What& what) { reasons.push_back(std::get<DriverReplaced>(what).reason); };
  GuardedDriver driver(model, std::move(listener));
  ASSERT_EQ(made.size(), 2U);  // one that sends, one that reads

  driver.command([](KivStressDevice&) { fatalError("no number"); });
  EXPECT_EQ(reasons, std::vector<std::string>{"no number"});
  ASSERT_EQ(made.size(), 4U);
  driver.command([&](KivStressDevice& sender) { EXPECT_EQ(&sender, made[2].get()); });
}

}  // namespace
}  // namespace tarsil::detail
