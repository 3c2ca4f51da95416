#include "tarsil/drivers/SerialDriver.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/helpers/FatalStop.hpp"
#include "tests/helpers/ScriptedPort.hpp"

namespace tarsil {
namespace {

/// A driver of a host's own.
class OwnDriver : public SerialDriver {
 public:
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& /*data*/) override {}
};

TEST(SerialDriverTest, ADriverThatNoSharedPointerOwnsStopsTheProcessWhenItGetsAPort) {
  const ScriptedPort port;
  OwnDriver driver;
  EXPECT_EQ(fatalReason([&] { driver.setSerialPort(port); }),
            "a driver becomes its port's delegate, so it must live in a std::shared_ptr");
  EXPECT_EQ(driver.serialPort(), nullptr);
  EXPECT_EQ(fatalReason([&] { driver.setSerialPort(nullptr); }), std::nullopt);
}

}  // namespace
}  // namespace tarsil
