#include "tarsil/bluetooth/uuid.hpp"

#include <gtest/gtest.h>

namespace tarsil {
namespace {

TEST(BluetoothUUIDText, WritesA16BitUUIDAsFourUpperCaseDigits) {
  EXPECT_EQ(bluetoothUUIDText("0000ffb0-0000-1000-8000-00805f9b34fb"), "FFB0");
  EXPECT_EQ(bluetoothUUIDText("0000FFB2-0000-1000-8000-00805F9B34FB"), "FFB2");
  EXPECT_EQ(bluetoothUUIDText("ffb2"), "FFB2");
  EXPECT_EQ(bluetoothUUIDText("0000180f"), "180F");
}

TEST(BluetoothUUIDText, WritesEveryOtherUUIDAsUpperCase128BitText) {
  EXPECT_EQ(bluetoothUUIDText("6e400001-b5a3-f393-e0a9-e50e24dcca9e"),
            "6E400001-B5A3-F393-E0A9-E50E24DCCA9E");
  EXPECT_EQ(bluetoothUUIDText("0001ffb0"), "0001FFB0-0000-1000-8000-00805F9B34FB");
  // One digit away from the short form at either end.
  EXPECT_EQ(bluetoothUUIDText("0001ffb0-0000-1000-8000-00805f9b34fb"),
            "0001FFB0-0000-1000-8000-00805F9B34FB");
  EXPECT_EQ(bluetoothUUIDText("0000ffb0-0000-1000-8000-00805f9b34fc"),
            "0000FFB0-0000-1000-8000-00805F9B34FC");
}

TEST(BluetoothUUIDText, KnowsWhatIsNoUUID) {
  for (const char* text : {"", "ffb", "ffb00", "0x12", "ffbg", "0000ffb0-0000-1000-8000-00805f9b34f",
                           "0000ffb0-0000-1000-8000-00805f9b34fb0", "0000ffb0_0000-1000-8000-00805f9b34fb"}) {
    EXPECT_EQ(bluetoothUUIDText(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace tarsil
