#include "tarsil/support/numberText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace tarsil {
namespace {

using std::string_view_literals::operator""sv;
using testing::Optional;

constexpr std::array notNumbers = {
    ""sv,      " "sv,     "5 "sv,       " 5"sv,  "80\r"sv, "5\n"sv,      "."sv,     "+"sv,
    "-"sv,     "-."sv,    "e5"sv,       ".e5"sv, "5e"sv,   "5e+"sv,      "5e-"sv,   "5e1.0"sv,
    "5e 1"sv,  "1.2.3"sv, "1,5"sv,      "5f"sv,  "0x10"sv, "0x1p3"sv,    "inf"sv,   "+inf"sv,
    "-inf"sv,  "nan"sv,   "-nan"sv,     "NaN"sv, "INF"sv,  "infinity"sv, "++5"sv,   "+-5"sv,
    "--5"sv,   "5-"sv,    "范围越界"sv, "５"sv,  "5\0"sv,  "\0"sv,       "1e5e5"sv, "nan(1)"sv,
    "1'000"sv, "1_000"sv, "5.e"sv,      "A"sv,   "-e1"sv,  "5 W"sv,      "\xff"sv,  "1e+-5"sv,
};

struct Reading {
  std::string_view text;
  double value;
};

constexpr std::array numbers = {
    Reading{"0", 0},        Reading{"80", 80},
    Reading{"080", 80},     Reading{"+80", 80},
    Reading{"-80", -80},    Reading{"5.", 5},
    Reading{".5", 0.5},     Reading{"-.5", -0.5},
    Reading{"+.5", 0.5},    Reading{"5.0", 5},
    Reading{"-0120", -120}, Reading{"1e3", 1000},
    Reading{"1E3", 1000},   Reading{"1e+3", 1000},
    Reading{"5e-1", 0.5},   Reading{"5.e1", 50},
    Reading{".5e1", 5},     Reading{"1e-05", 1e-05},
    Reading{"00e00", 0},    Reading{"87.5", 87.5},
    Reading{"0.1", 0.1},    Reading{"1e0000000000000000001", 10},
};

TEST(ReadDoubleTest, ReadsEveryFormOfANumber) {
  for (const Reading& reading : numbers)
    EXPECT_THAT(readDouble(reading.text), Optional(reading.value)) << reading.text;
}

TEST(ReadFloatTest, ReadsEveryFormOfANumber) {
  for (const Reading& reading : numbers) {
    EXPECT_THAT(readFloat(reading.text), Optional(static_cast<float>(reading.value))) << reading.text;
  }
}

TEST(ReadDoubleTest, ReadsNothingElse) {
  for (const auto text : notNumbers) EXPECT_EQ(readDouble(text), std::nullopt) << '"' << text << '"';
}

TEST(ReadFloatTest, ReadsNothingElse) {
  for (const auto text : notNumbers) EXPECT_EQ(readFloat(text), std::nullopt) << '"' << text << '"';
}

TEST(ReadFloatTest, KeepsTheSignOfZero) {
  EXPECT_TRUE(std::signbit(readFloat("-0").value()));
  EXPECT_FALSE(std::signbit(readFloat("+0").value()));
}

TEST(ReadFloatTest, RoundsOnceToTheNearestFloat) {
  EXPECT_THAT(readFloat("16777217"), Optional(16777216.0F)) << "a tie goes to the even neighbour";
  EXPECT_THAT(readFloat("16777219"), Optional(16777220.0F));
  // Just above a tie, by less than a double can hold: rounding to double first would lose it.
  EXPECT_THAT(readFloat("16777217.0000000001"), Optional(16777218.0F));
  EXPECT_THAT(readFloat("16777217." + std::string(1000, '0') + "1"), Optional(16777218.0F));
}

TEST(ReadFloatTest, GivesInfinityAboveTheLargestFloat) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  EXPECT_THAT(readFloat("3.4028235e38"), Optional(std::numeric_limits<float>::max()));
  EXPECT_THAT(readFloat("3.4028236e38"), Optional(infinity));
  EXPECT_THAT(readFloat("1e39"), Optional(infinity));
  EXPECT_THAT(readFloat("-1e39"), Optional(-infinity));
  EXPECT_THAT(readFloat("1e99999999999999999999999"), Optional(infinity));
  EXPECT_THAT(readFloat("1" + std::string(5000, '0')), Optional(infinity));
}

TEST(ReadFloatTest, GivesZeroBelowTheSmallestFloat) {
  EXPECT_THAT(readFloat("1e-45"), Optional(std::numeric_limits<float>::denorm_min()));
  EXPECT_THAT(readFloat("1e-46"), Optional(0.0F));
  EXPECT_TRUE(std::signbit(readFloat("-1e-46").value()));
  EXPECT_THAT(readFloat("1e-99999999999999999999999"), Optional(0.0F));
  EXPECT_THAT(readFloat("0e99999999999999999999999"), Optional(0.0F));
  EXPECT_THAT(readFloat("0." + std::string(5000, '0') + "1"), Optional(0.0F));
}

TEST(ReadDoubleTest, GivesInfinityAboveTheLargestDoubleAndZeroBelowTheSmallest) {
  EXPECT_THAT(readDouble("1.7976931348623157e308"), Optional(std::numeric_limits<double>::max()));
  EXPECT_THAT(readDouble("1e309"), Optional(std::numeric_limits<double>::infinity()));
  EXPECT_THAT(readDouble("-1e309"), Optional(-std::numeric_limits<double>::infinity()));
  EXPECT_THAT(readDouble("5e-324"), Optional(std::numeric_limits<double>::denorm_min()));
  EXPECT_THAT(readDouble("1e-324"), Optional(0.0));
}

TEST(ReadDoubleTest, DoesNotReadBeyondItsView) {
  constexpr std::string_view text = "12345";
  EXPECT_THAT(readDouble(text.substr(1, 2)), Optional(23.0));
}

TEST(ReadDoubleTest, DoesNotDependOnTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  // Any locale with a decimal comma will do; a machine may have none.
  for (const auto* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "nl_NL.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  }
  EXPECT_THAT(readDouble("2.5"), Optional(2.5));
  EXPECT_EQ(readDouble("2,5"), std::nullopt);
  std::setlocale(LC_ALL, before.c_str());
}

TEST(ReadAllowingNonFiniteTest, ReadsWhatAFloatsTextCanBe) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_THAT(readDoubleAllowingNonFinite("inf"), Optional(infinity));
  EXPECT_THAT(readDoubleAllowingNonFinite("-inf"), Optional(-infinity));
  EXPECT_TRUE(std::isnan(readDoubleAllowingNonFinite("nan").value()));
  EXPECT_THAT(readDoubleAllowingNonFinite("5.0"), Optional(5.0));
  EXPECT_THAT(readFloatAllowingNonFinite("inf"), Optional(std::numeric_limits<float>::infinity()));
  EXPECT_THAT(readFloatAllowingNonFinite("-inf"), Optional(-std::numeric_limits<float>::infinity()));
  EXPECT_TRUE(std::isnan(readFloatAllowingNonFinite("nan").value()));
  EXPECT_THAT(readFloatAllowingNonFinite("1e39"), Optional(std::numeric_limits<float>::infinity()));
}

TEST(ReadAllowingNonFiniteTest, ReadsNothingElse) {
  for (const auto text : notNumbers) {
    if (text == "inf" || text == "-inf" || text == "nan") continue;
    EXPECT_EQ(readDoubleAllowingNonFinite(text), std::nullopt) << '"' << text << '"';
    EXPECT_EQ(readFloatAllowingNonFinite(text), std::nullopt) << '"' << text << '"';
  }
}

TEST(ReadIntegerTest, ReadsSignedDecimalDigits) {
  EXPECT_THAT(readInteger("0"), Optional(0));
  EXPECT_THAT(readInteger("0031"), Optional(31));
  EXPECT_THAT(readInteger("+5"), Optional(5));
  EXPECT_THAT(readInteger("-5"), Optional(-5));
  EXPECT_THAT(readInteger("9223372036854775807"), Optional(std::numeric_limits<std::int64_t>::max()));
  EXPECT_THAT(readInteger("-9223372036854775808"), Optional(std::numeric_limits<std::int64_t>::min()));
  EXPECT_THAT(readInteger(std::string(100, '0') + "7"), Optional(7));
}

TEST(ReadIntegerTest, ReadsNothingElse) {
  for (const auto text : {""sv, "+"sv, "-"sv, "+-5"sv, "-+5"sv, "5.0"sv, "2."sv, "1e3"sv, " 5"sv, "5 "sv,
                          "0x5"sv, "A"sv, "00A1"sv, "５"sv, "5\0"sv, "inf"sv, "范围越界"sv}) {
    EXPECT_EQ(readInteger(text), std::nullopt) << '"' << text << '"';
  }
}

TEST(ReadIntegerTest, ReadsNothingThatDoesNotFit) {
  EXPECT_EQ(readInteger("9223372036854775808"), std::nullopt);
  EXPECT_EQ(readInteger("-9223372036854775809"), std::nullopt);
  EXPECT_EQ(readInteger("99999999999999999999999"), std::nullopt);
}

TEST(HexadecimalTextTest, WritesLowerCaseDigitsWithoutPadding) {
  EXPECT_EQ(hexadecimalText(0), "0");
  EXPECT_EQ(hexadecimalText(10), "a");
  EXPECT_EQ(hexadecimalText(50), "32");
  EXPECT_EQ(hexadecimalText(256), "100");
  EXPECT_EQ(hexadecimalText(std::numeric_limits<std::int64_t>::max()), "7fffffffffffffff");
}

TEST(HexadecimalTextTest, WritesAMinusSign) {
  EXPECT_EQ(hexadecimalText(-1), "-1");
  EXPECT_EQ(hexadecimalText(-0x200), "-200");
  EXPECT_EQ(hexadecimalText(std::numeric_limits<std::int64_t>::min()), "-8000000000000000");
}

}  // namespace
}  // namespace tarsil
