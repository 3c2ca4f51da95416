#include "tarsil/serial/detail/SlidingBytes.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <random>

#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

TEST(SlidingBytesTest, HoldsTheNewestBytes) {
  SlidingBytes bytes(4);
  bytes.append(hex("01 02 03"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("01 02 03")));
  bytes.append(hex("04 05 06"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("03 04 05 06")));
  bytes.append(hex("11 12 13 14 15 16 17"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("14 15 16 17")));
}

TEST(SlidingBytesTest, AMaximumOfZeroHoldsNothing) {
  SlidingBytes bytes(0);
  bytes.append(hex("01 02"));
  EXPECT_THAT(bytes.view(), IsEmpty());
}

TEST(SlidingBytesTest, AHugeMaximumAllocatesNothingAhead) {
  SlidingBytes bytes(std::numeric_limits<std::int64_t>::max());
  bytes.append(hex("01 02"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("01 02")));
}

TEST(SlidingBytesTest, DropsFromTheFrontAndStopsWhenEmpty) {
  SlidingBytes bytes(10);
  bytes.append(hex("01 02 03 04"));
  bytes.dropFront(1);
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("02 03 04")));
  bytes.dropFront(0);
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("02 03 04")));
  bytes.dropFront(5);
  EXPECT_THAT(bytes.view(), IsEmpty());
  bytes.append(hex("05"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("05")));
}

TEST(SlidingBytesTest, ClearsAndGoesOn) {
  SlidingBytes bytes(3);
  bytes.append(hex("01 02 03 04"));
  bytes.clear();
  EXPECT_THAT(bytes.view(), IsEmpty());
  bytes.append(hex("05"));
  EXPECT_THAT(bytes.view(), ElementsAreArray(hex("05")));
}

TEST(SlidingBytesTest, BehavesAsAQueueOfBytes) {
  std::mt19937 random(1);
  for (const std::size_t maximum : {1U, 2U, 3U, 7U, 64U}) {
    SlidingBytes bytes(maximum);
    std::deque<std::uint8_t> expected;
    for (int round = 0; round < 2000; ++round) {
      Bytes piece(random() % 5);
      for (auto& byte : piece) byte = static_cast<std::uint8_t>(random());
      bytes.append(piece);
      expected.insert(expected.end(), piece.begin(), piece.end());
      while (expected.size() > maximum) expected.pop_front();
      if (random() % 4 == 0) {
        const std::size_t count = random() % 4;
        bytes.dropFront(count);
        for (std::size_t i = 0; i < count && !expected.empty(); ++i) expected.pop_front();
      }
      ASSERT_EQ(bytes.size(), expected.size());
      ASSERT_THAT(bytes.view(), ElementsAreArray(expected));
    }
  }
}

}  // namespace
}  // namespace tarsil::detail
