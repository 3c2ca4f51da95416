#include "tarsil/codec/Crc16Register.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "tarsil/codec/CRC16.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;

// The polynomial division as the definition has it, most significant bit first, to compare with the mirrored
// form.
std::uint16_t crcByDefinition(const std::vector<std::uint16_t>& bytes) {
  unsigned remainder = 0;
  for (const std::uint16_t byte : bytes) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      const bool divides = ((remainder >> 15) & 1U) != ((unsigned{byte} >> bit) & 1U);
      remainder = (remainder << 1) & 0xFFFFU;
      if (divides) remainder ^= 0x8005U;
    }
  }
  unsigned mirrored = 0;
  for (unsigned bit = 0; bit < 16; ++bit) mirrored |= ((remainder >> bit) & 1U) << (15 - bit);
  return static_cast<std::uint16_t>(mirrored);
}

TEST(Crc16RegisterTest, StartsAtZero) {
  EXPECT_EQ(Crc16Register().value(), 0);
  EXPECT_THAT(Crc16Register().text(), ElementsAre("00", "00"));
}

TEST(Crc16RegisterTest, GivesTheCheckValue) {
  Crc16Register crc;
  for (const char digit : {'1', '2', '3', '4', '5', '6', '7', '8', '9'})
    crc.add(static_cast<std::uint8_t>(digit));
  EXPECT_EQ(crc.value(), 0xBB3D);
  EXPECT_THAT(crc.text(), ElementsAre("3D", "BB"));
}

TEST(Crc16RegisterTest, AgreesWithTheWholeCalculationAfterEveryByte) {
  std::mt19937 random(20240301);
  std::vector<std::uint16_t> bytes;
  Crc16Register running;
  for (int i = 0; i < 500; ++i) {
    bytes.push_back(static_cast<std::uint16_t>(random() & 0xFF));
    running.add(static_cast<std::uint8_t>(bytes.back()));
    ASSERT_EQ(running.text(), CRC16::calculateCRC(bytes)) << bytes.size() << " bytes";
    ASSERT_EQ(running.value(), crcByDefinition(bytes)) << bytes.size() << " bytes";
  }
}

TEST(Crc16RegisterTest, CopiesGoTheirOwnWay) {
  Crc16Register first;
  first.add(0x02);
  Crc16Register second = first;
  EXPECT_EQ(first, second);
  second.add(0x05);
  EXPECT_NE(first, second);
}

TEST(Crc16RegisterTest, IsZeroAgainAfterItsOwnBytesLowOneFirst) {
  Crc16Register crc;
  for (const std::uint8_t byte : Bytes{0x02, 0x05, 0x02, 0x00, 0x32, 0x59, 0x19}) crc.add(byte);
  EXPECT_EQ(crc.value(), 0);
}

}  // namespace
}  // namespace tarsil
