#include "tarsil/codec/CRC16.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace tarsil {
namespace {

using testing::ElementsAre;

std::vector<std::uint16_t> valuesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST(CRC16Test, GivesTheCheckValueLowByteFirst) {
  EXPECT_THAT(CRC16::calculateCRC(valuesOf("123456789")), ElementsAre("3D", "BB"));
}

TEST(CRC16Test, GivesZerosForNoValues) {
  EXPECT_THAT(CRC16::calculateCRC({}), ElementsAre("00", "00"));
}

TEST(CRC16Test, TakesOnlyTheLowByteOfAValue) {
  EXPECT_EQ(CRC16::calculateCRC(std::vector<std::uint16_t>{0x0141}),
            CRC16::calculateCRC(std::vector<std::uint16_t>{0x41}));
  EXPECT_THAT(CRC16::calculateCRC(std::vector<std::uint16_t>{0xFF00}), ElementsAre("00", "00"));
}

TEST(CRC16Test, PadsEachByteToTwoDigits) {
  EXPECT_THAT(CRC16::calculateCRC(std::vector<std::uint16_t>{5}), ElementsAre("C0", "03"));
}

TEST(CRC16Test, ChecksALodeFrame) {
  EXPECT_THAT(CRC16::calculateCRC(std::vector<std::uint16_t>{0x02, 0x05, 0x02, 0x00, 0x32}),
              ElementsAre("59", "19"));
  EXPECT_THAT(CRC16::calculateCRC(std::vector<std::uint16_t>{0x02, 0x07, 0x02, 0x00, 0x19}),
              ElementsAre("18", "BE"));
}

}  // namespace
}  // namespace tarsil
