#include "tarsil/codec/BinaryDecimalHex.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace tarsil {
namespace {

using std::string_view_literals::operator""sv;
using testing::Optional;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

std::string ones(std::size_t count) {
  return std::string(count, '1');
}

TEST(GetBinaryByHexTest, GivesFourBinaryDigitsForEachHexadecimalDigit) {
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("1f"), "00011111");
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("0123456789ABCDEF"),
            "0000000100100011010001010110011110001001101010111100110111101111");
}

TEST(GetBinaryByHexTest, TakesEitherCase) {
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("abcdef"), BinaryDecimalHex::getBinaryByHex("ABCDEF"));
}

TEST(GetBinaryByHexTest, SkipsWhatIsNoHexadecimalDigit) {
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("1 f"), "00011111");
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("-g1\0z串f\xff"sv), "00011111");
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex("@G`g/:"), "")
      << "the neighbours of the digits in the ASCII table";
}

TEST(GetBinaryByHexTest, GivesNothingForNothing) {
  EXPECT_EQ(BinaryDecimalHex::getBinaryByHex(""), "");
}

TEST(GetDecimalByBinaryTest, AddsThePowersOfTwo) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1"), 1);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("00011111"), 31);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1111111111111111"), 65535);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(""), 0);
}

TEST(GetDecimalByBinaryTest, CountsEveryOtherCharacterAsAZeroInItsPlace) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("102"), 4);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1 0"), 4);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("-1"), 1);
}

TEST(GetDecimalByBinaryTest, CountsPlacesInCharactersNotInBytes) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1串口"), 4);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1\xff"), 2);
}

TEST(GetDecimalByBinaryTest, IsExactUpToFiftyThreeBitsAndRoundsAbove) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(53)), (std::int64_t{1} << 53) - 1);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(54)), std::int64_t{1} << 54);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(62)), std::int64_t{1} << 62);
  // Half of the last place is added first and lost at the step that outgrows it.
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1" + std::string(52, '0') + "1"), std::int64_t{1} << 53);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1" + std::string(51, '0') + "11"),
            (std::int64_t{1} << 53) + 4);
}

TEST(GetDecimalByBinaryTest, StaysAtTheLargestIntegerFromTwoToTheSixtyThirdOn) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1" + std::string(62, '0')), std::int64_t{1} << 62);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1" + std::string(63, '0')), largest);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(63)), largest);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(64)), largest);
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(ones(5000)), largest) << "beyond the exponents of a double";
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary("1" + std::string(5000, '0')), largest);
}

TEST(GetDecimalByBinaryTest, IgnoresLeadingZerosHoweverMany) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalByBinary(std::string(5000, '0') + "101"), 5);
}

TEST(BinaryToHexTest, GivesOneDigitForEveryFour) {
  EXPECT_EQ(BinaryDecimalHex::BinaryToHex("00011111"), "1F");
  EXPECT_EQ(BinaryDecimalHex::BinaryToHex("0000000100100011010001010110011110001001101010111100110111101111"),
            "0123456789ABCDEF");
  EXPECT_EQ(BinaryDecimalHex::BinaryToHex(""), "");
}

TEST(BinaryToHexTest, ShowsAGroupThatIsNoDigit) {
  EXPECT_EQ(BinaryDecimalHex::BinaryToHex("00021111"), "(null)F");
  EXPECT_EQ(BinaryDecimalHex::BinaryToHex("串口串口0001"), "(null)1");
}

TEST(BinaryToHexTest, ThrowsForALengthThatIsNoMultipleOfFour) {
  for (const auto* binary : {"1", "11", "111", "11111", "0000000", "串口1"}) {
    EXPECT_THROW(BinaryDecimalHex::BinaryToHex(binary), std::out_of_range) << binary;
  }
}

TEST(BinaryToHexTest, UndoesGetBinaryByHex) {
  for (const auto* hex : {"", "0", "00", "3D", "BB3D", "DEADBEEF"}) {
    EXPECT_EQ(BinaryDecimalHex::BinaryToHex(BinaryDecimalHex::getBinaryByHex(hex)), hex);
  }
}

TEST(GetDecimalToHexTest, ReadsHexadecimalDigits) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("ff"), 255);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("7D0"), 2000);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex(""), 0);
}

TEST(GetDecimalToHexTest, SkipsWhatIsNoDigit) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("1G"), 1);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("-10"), 16);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("范围越界"), 0);
}

TEST(GetDecimalToHexTest, Saturates) {
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("7FFFFFFFFFFFFFFF"), largest);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex("8000000000000000"), largest);
  EXPECT_EQ(BinaryDecimalHex::getDecimalToHex(std::string(1000, 'F')), largest);
}

TEST(GetDecimalToHexTest, ReadsEveryByteThatHexStringFromDataWrites) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const Bytes bytes{static_cast<std::uint8_t>(byte)};
    EXPECT_EQ(BinaryDecimalHex::getDecimalToHex(BinaryDecimalHex::hexStringFromData(bytes)), byte);
  }
}

TEST(GetDataForStringTest, GivesTheBytesAsText) {
  EXPECT_THAT(BinaryDecimalHex::getDataForString(Bytes{'B', '1', '2', '0', '\r'}),
              Optional(std::string("B120\r")));
  EXPECT_THAT(BinaryDecimalHex::getDataForString(Bytes{0xE4, 0xB8, 0xB2}), Optional(std::string("串")));
  EXPECT_THAT(BinaryDecimalHex::getDataForString(Bytes{}), Optional(std::string()));
  EXPECT_THAT(BinaryDecimalHex::getDataForString(Bytes{0x00, 'a'}), Optional(std::string("\0a", 2)));
}

TEST(GetDataForStringTest, GivesNothingForBytesThatAreNotUtf8) {
  EXPECT_EQ(BinaryDecimalHex::getDataForString(Bytes{'B', 0xFF}), std::nullopt);
  EXPECT_EQ(BinaryDecimalHex::getDataForString(Bytes{0xE4, 0xB8}), std::nullopt) << "a character cut short";
}

TEST(HexStringFromDataTest, GivesTwoLowerCaseDigitsAByte) {
  EXPECT_EQ(BinaryDecimalHex::hexStringFromData(Bytes{0x0A, 0xFF, 0x00}), "0aff00");
  EXPECT_EQ(BinaryDecimalHex::hexStringFromData(Bytes{}), "");
}

TEST(ConvertHexStrToDataTest, GivesTheBytesOfPairs) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("0D0a"), Optional(Bytes{0x0D, 0x0A}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("494e49540a0d"),
              Optional(Bytes{0x49, 0x4E, 0x49, 0x54, 0x0A, 0x0D}));
}

TEST(ConvertHexStrToDataTest, GivesNothingForTheEmptyText) {
  EXPECT_EQ(BinaryDecimalHex::convertHexStrToData(""), std::nullopt);
}

TEST(ConvertHexStrToDataTest, LetsTheFirstDigitOfAnOddNumberStandAlone) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("abc"), Optional(Bytes{0x0A, 0xBC}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("7"), Optional(Bytes{0x07}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("23E30061a00b2"),
              Optional(Bytes{0x02, 0x3E, 0x30, 0x06, 0x1A, 0x00, 0xB2}));
}

TEST(ConvertHexStrToDataTest, ReadsTheDigitsThatAPairBeginsWith) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("413.0D"), Optional(Bytes{0x41, 0x03, 0x0D}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("F "), Optional(Bytes{0x0F}));
}

TEST(ConvertHexStrToDataTest, RepeatsTheByteBeforeAPairThatBeginsWithNoDigit) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("41.30D"), Optional(Bytes{0x41, 0x41, 0x0D}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("41 5-6xx0D"),
              Optional(Bytes{0x41, 0x41, 0x41, 0x41, 0x0D}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("413.-1"), Optional(Bytes{0x41, 0x03, 0x03}));
}

TEST(ConvertHexStrToDataTest, GivesZeroForAFirstPieceThatBeginsWithNoDigit) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData(".0"), Optional(Bytes{0x00}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("-"), Optional(Bytes{0x00}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData(" 5.041"), Optional(Bytes{0x00, 0x00, 0x41}));
}

TEST(ConvertHexStrToDataTest, ReadsAHexadecimalPrefixAsItsZero) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("410x0X0D"), Optional(Bytes{0x41, 0x00, 0x00, 0x0D}));
}

TEST(ConvertHexStrToDataTest, CutsBetweenCharactersNotBytes) {
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("41串口0D"), Optional(Bytes{0x41, 0x41, 0x0D}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("4串0D"), Optional(Bytes{0x04, 0x0D}));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("4é0D"), Optional(Bytes{0x04, 0x0D}))
      << "four characters in five bytes";
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData("串410D"), Optional(Bytes{0x00, 0x41, 0x0D}))
      << "odd length";
}

TEST(ConvertHexStrToDataTest, UndoesHexStringFromData) {
  Bytes all;
  for (unsigned byte = 0; byte < 256; ++byte) all.push_back(static_cast<std::uint8_t>(byte));
  EXPECT_THAT(BinaryDecimalHex::convertHexStrToData(BinaryDecimalHex::hexStringFromData(all)), Optional(all));
}

TEST(AsciiTest, GivesTheCodePointOfTheFirstCharacter) {
  EXPECT_EQ(ascii("A"), 65);
  EXPECT_EQ(ascii("AB"), 65);
  EXPECT_EQ(ascii("串口"), 0x4E32);
  EXPECT_EQ(ascii("😀"), 0x1F600);
}

TEST(AsciiTest, GivesZeroWhereThereIsNoCharacter) {
  EXPECT_EQ(ascii(""), 0);
  EXPECT_EQ(ascii("\xff"), 0);
}

}  // namespace
}  // namespace tarsil
