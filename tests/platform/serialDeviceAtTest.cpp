#include "tarsil/platform/detail/serialDeviceAt.hpp"

#include <gtest/gtest.h>

#include "tarsil/platform/SystemPlatform.hpp"

namespace tarsil::detail {
namespace {

TEST(serialDeviceAtTest, CallsOutAndDialsInByOnePath) {
  const SerialDevice device = serialDeviceAt("/dev/ttyUSB0", "ttyUSB0");
  EXPECT_EQ(device.calloutPath, "/dev/ttyUSB0");
  EXPECT_EQ(device.dialinPath, "/dev/ttyUSB0");
  EXPECT_EQ(device.terminalName, "ttyUSB0");
  EXPECT_EQ(device.clientType, "IOSerialStream");
  EXPECT_EQ(device.terminal, systemTerminal());
  EXPECT_EQ(device.usb, std::nullopt);
  EXPECT_EQ(device.stablePath, std::nullopt);
}

TEST(serialDeviceAtTest, SplitsTheNameWhereTheTrailingDigitsBegin) {
  struct Name {
    std::string whole, base, suffix;
  };
  for (const Name& name :
       {Name{"ttyUSB0", "ttyUSB", "0"}, Name{"ttyS10", "ttyS", "10"}, Name{"lode", "lode", ""},
        Name{"p10-1a2", "p10-1a", "2"}, Name{"007", "", "007"}, Name{"", "", ""}}) {
    const SerialDevice device = serialDeviceAt("/dev/x", name.whole);
    EXPECT_EQ(device.terminalName, name.whole);
    EXPECT_EQ(device.baseName, name.base);
    EXPECT_EQ(device.suffix, name.suffix);
  }
}

}  // namespace
}  // namespace tarsil::detail
