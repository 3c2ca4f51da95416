#include "tarsil/support/utf8.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tarsil::utf8 {
namespace {

using std::string_view_literals::operator""sv;
using testing::Optional;

std::string encoded(char32_t scalar) {
  const auto byte = [](char32_t bits) { return static_cast<char>(static_cast<unsigned char>(bits)); };
  const auto trail = [&](unsigned shift) { return byte(0x80U | ((scalar >> shift) & 0x3FU)); };
  if (scalar < 0x80) return {byte(scalar)};
  if (scalar < 0x800) return {byte(0xC0U | (scalar >> 6U)), trail(0)};
  if (scalar < 0x10000) return {byte(0xE0U | (scalar >> 12U)), trail(6), trail(0)};
  return {byte(0xF0U | (scalar >> 18U)), trail(12), trail(6), trail(0)};
}

constexpr std::array invalid = {
    "\x80"sv,              // a continuation byte without a lead
    "\xBF"sv,              //
    "\xC0\x80"sv,          // overlong forms
    "\xC1\xBF"sv,          //
    "\xE0\x80\x80"sv,      //
    "\xE0\x9F\xBF"sv,      //
    "\xF0\x80\x80\x80"sv,  //
    "\xF0\x8F\xBF\xBF"sv,  //
    "\xED\xA0\x80"sv,      // surrogates, alone and as a pair
    "\xED\xBF\xBF"sv,      //
    "\xED\xA0\xBD\xED\xB8\x80"sv,
    "\xF4\x90\x80\x80"sv,  // above U+10FFFF
    "\xF5\x80\x80\x80"sv,  //
    "\xF8\x88\x80\x80\x80"sv,
    "\xFE"sv,
    "\xFF"sv,
    "\xC2"sv,  // cut short
    "\xE4\xB8"sv,
    "\xF0\x9F\x98"sv,
    "\xE4\xB8\x41"sv,  // a letter where a continuation byte belongs
    "\xC2\xC2\xA0"sv,
    "a\x80"sv,
    "串\xFF"sv,
};

TEST(Utf8IsValidTest, AcceptsText) {
  EXPECT_TRUE(isValid(""));
  EXPECT_TRUE(isValid("B120\r"));
  EXPECT_TRUE(isValid("\0"sv));
  EXPECT_TRUE(isValid("串口未初始化 请先调用getPortWithIsSpO2方法"));
  EXPECT_TRUE(isValid("\xEF\xBB\xBFtext")) << "a byte-order mark is a character";
}

TEST(Utf8IsValidTest, AcceptsTheEndsOfEveryLength) {
  for (const char32_t scalar :
       {0x00U, 0x7FU, 0x80U, 0x7FFU, 0x800U, 0xD7FFU, 0xE000U, 0xFFFFU, 0x10000U, 0x10FFFFU}) {
    EXPECT_TRUE(isValid(encoded(scalar))) << testing::PrintToString(scalar);
  }
}

TEST(Utf8IsValidTest, RejectsEverythingElse) {
  for (const auto bytes : invalid) EXPECT_FALSE(isValid(bytes)) << testing::PrintToString(bytes);
}

TEST(Utf8IsValidTest, AcceptsExactlyTheScalarsAmongAllOneTwoAndThreeByteTexts) {
  std::size_t valid = 0;
  std::string text(3, '\0');
  for (unsigned value = 0; value < 0x1000000; ++value) {
    text[0] = static_cast<char>(static_cast<unsigned char>(value >> 16U));
    text[1] = static_cast<char>(static_cast<unsigned char>(value >> 8U));
    text[2] = static_cast<char>(static_cast<unsigned char>(value));
    if (isValid(text)) ++valid;
  }
  // Three of one byte; one of one and one of two, in both orders; one of three.
  constexpr std::size_t one = 0x80;
  constexpr std::size_t two = 0x800 - 0x80;
  constexpr std::size_t three = 0x10000 - 0x800 - 0x800;
  EXPECT_EQ(valid, one * one * one + 2 * one * two + three);
}

TEST(Utf8FirstScalarTest, DecodesEveryScalar) {
  for (char32_t scalar = 0; scalar <= 0x10FFFF; ++scalar) {
    if (scalar == 0xD800) scalar = 0xE000;
    ASSERT_EQ(firstScalar(encoded(scalar)), std::optional(scalar));
  }
}

TEST(Utf8FirstScalarTest, LooksAtTheFirstCharacterOnly) {
  EXPECT_THAT(firstScalar("A\xFF"), Optional(U'A'));
  EXPECT_THAT(firstScalar("串口"), Optional(U'串'));
}

TEST(Utf8FirstScalarTest, GivesNothingWithoutAValidCharacter) {
  EXPECT_EQ(firstScalar(""), std::nullopt);
  EXPECT_EQ(firstScalar("\xFFZ"), std::nullopt);
  EXPECT_EQ(firstScalar("\xE4\xB8"), std::nullopt);
  EXPECT_EQ(firstScalar("\xE0\x80\x80"), std::nullopt) << "an overlong form";
}

TEST(Utf8CharacterCountTest, CountsCodePoints) {
  EXPECT_EQ(characterCount(""), 0U);
  EXPECT_EQ(characterCount("abc"), 3U);
  EXPECT_EQ(characterCount("串口"), 2U);
  EXPECT_EQ(characterCount("a串😀"), 3U);
  EXPECT_EQ(characterCount("\r\n"), 2U);
  EXPECT_EQ(characterCount("e\u0301"), 2U) << "a combining accent is a code point of its own";
  EXPECT_EQ(characterCount("a\0b"sv), 3U);
}

TEST(Utf8CharacterCountTest, CountsEveryByteThatBelongsToNoCodePoint) {
  EXPECT_EQ(characterCount("\xFF\xFF"), 2U);
  EXPECT_EQ(characterCount("\xE4\xB8"), 2U);
  EXPECT_EQ(characterCount("\xE4\xB8串"), 3U);
  EXPECT_EQ(characterCount("\xED\xA0\x80"), 3U);
}

TEST(Utf8CharactersTest, CutsByCodePoints) {
  EXPECT_EQ(characters("B120\r", 1, 3), "120");
  EXPECT_EQ(characters("a串口b", 1, 2), "串口");
  EXPECT_EQ(characters("a串口b", 0, 2), "a串");
}

TEST(Utf8CharactersTest, StopsWhereTheTextEnds) {
  EXPECT_EQ(characters("B1", 1, 3), "1");
  EXPECT_EQ(characters("B", 1, 3), "");
  EXPECT_EQ(characters("", 1, 3), "");
  EXPECT_EQ(characters("abc", 7, 1), "");
  EXPECT_EQ(characters("abc", 1, std::string_view::npos), "bc");
  EXPECT_EQ(characters("abc", 1, 0), "");
}

TEST(Utf8LastCharactersTest, CutsByCodePoints) {
  EXPECT_EQ(lastCharacters("0000100.0", 3), "0.0");
  EXPECT_EQ(lastCharacters("a串口", 2), "串口");
  EXPECT_EQ(lastCharacters("abc", 0), "");
  EXPECT_EQ(lastCharacters("abc", 28), "abc");
  EXPECT_EQ(lastCharacters("", 3), "");
}

TEST(Utf8LastCharacterTest, TakesWholeCodePointsOrSingleBytes) {
  EXPECT_EQ(lastCharacter(""), "");
  EXPECT_EQ(lastCharacter("ab"), "b");
  EXPECT_EQ(lastCharacter("a😀"), "😀");
  EXPECT_EQ(lastCharacter("a\xFF"), "\xFF");
  EXPECT_EQ(lastCharacter("a\x80"), "\x80");
  EXPECT_EQ(lastCharacter("串\x80"), "\x80");
}

// Texts of four pieces each, valid and not, taken apart from both ends.
TEST(Utf8LastCharacterTest, FindsTheSameCharactersAsTheWalkFromTheFront) {
  constexpr std::array pieces = {"a"sv,        "é"sv,        "串"sv,   "😀"sv,    "\x80"sv,
                                 "\xE4\xB8"sv, "\xF0\x9F"sv, "\xFF"sv, "\xC3"sv, "\xED\xA0\x80"sv,
                                 "\xF4\x90"sv, ""sv};
  for (const auto first : pieces) {
    for (const auto second : pieces) {
      for (const auto third : pieces) {
        for (const auto fourth : pieces) {
          std::string text;
          text.append(first).append(second).append(third).append(fourth);
          std::size_t fromTheBack = 0;
          for (std::string_view rest = text; !rest.empty(); ++fromTheBack) {
            const auto last = lastCharacter(rest);
            ASSERT_EQ(characters(text, characterCount(text) - fromTheBack - 1, 1).data(), last.data());
            rest.remove_suffix(last.size());
          }
          ASSERT_EQ(fromTheBack, characterCount(text));
        }
      }
    }
  }
}

}  // namespace
}  // namespace tarsil::utf8
