#include "tarsil/serial/ORSSerialBuffer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

TEST(ORSSerialBufferTest, NeedsAMaximumLength) {
  try {
    ORSSerialBuffer buffer;
    FAIL() << "made a buffer without a maximum length";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "Use -[ORSSerialBuffer initWithMaximumLength:]");
  }
}

TEST(ORSSerialBufferTest, IsEmptyAtFirst) {
  const ORSSerialBuffer buffer(5);
  EXPECT_EQ(buffer.maximumLength(), 5U);
  EXPECT_THAT(buffer.data(), IsEmpty());
}

TEST(ORSSerialBufferTest, HoldsTheNewestBytes) {
  ORSSerialBuffer buffer(4);
  for (const std::uint8_t byte : hex("01 02 03 04 05 06")) buffer.appendData({&byte, 1});
  EXPECT_EQ(buffer.data(), hex("03 04 05 06"));
  EXPECT_THAT(buffer.view(), ElementsAreArray(hex("03 04 05 06")));
  buffer.appendData(hex("07 08 09 0a 0b 0c"));
  EXPECT_EQ(buffer.data(), hex("09 0a 0b 0c"));
}

TEST(ORSSerialBufferTest, IsEmptyWhenCleared) {
  ORSSerialBuffer buffer(4);
  buffer.appendData(hex("01 02"));
  buffer.clearBuffer();
  EXPECT_THAT(buffer.data(), IsEmpty());
  buffer.appendData(hex("03"));
  EXPECT_EQ(buffer.data(), hex("03"));
}

TEST(ORSSerialBufferTest, AMaximumOfZeroHoldsNothing) {
  ORSSerialBuffer buffer(0);
  buffer.appendData(hex("01"));
  EXPECT_THAT(buffer.data(), IsEmpty());
}

TEST(ORSSerialBufferTest, AnyMaximumWillDo) {
  ORSSerialBuffer buffer(std::numeric_limits<std::uint64_t>::max());
  buffer.appendData(hex("01"));
  EXPECT_EQ(buffer.data(), hex("01"));
}

TEST(ORSSerialBufferTest, TellsObserversOfItsData) {
  ORSSerialBuffer buffer(4);
  int changes = 0;
  const auto observation = buffer.observe("data", [&](const KeyChange& change) {
    EXPECT_EQ(change.key, "data");
    ++changes;
  });
  buffer.appendData(hex("01 02"));
  EXPECT_EQ(changes, 1);
  buffer.clearBuffer();
  EXPECT_EQ(changes, 2);
}

}  // namespace
}  // namespace tarsil
