#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <limits>
#include <stdexcept>
#include <string>

#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::Eq;
using testing::Optional;
using Kind = ORSSerialPacketDescriptor::Kind;
using PrefixAndSuffix = ORSSerialPacketDescriptor::PrefixAndSuffix;

ORSSerialPacketDescriptor::ResponseEvaluator isOneOf(std::vector<Bytes> packets) {
  return [packets](ByteView bytes) {
    for (const Bytes& packet : packets) {
      if (std::ranges::equal(bytes, packet)) return true;
    }
    return false;
  };
}

TEST(ORSSerialPacketDescriptorTest, NeedsAShape) {
  try {
    ORSSerialPacketDescriptor descriptor;
    FAIL() << "made a descriptor without a shape";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(
        error.what(),
        "You must initialize ORSSerialPacketDescriptor with its designated initializers, or one of its "
        "convenience initializers.");
  }
}

TEST(ORSSerialPacketDescriptorTest, KeepsWhatAnEvaluatedPacketIsMadeFrom) {
  const ORSSerialPacketDescriptor descriptor(
      {.maximumPacketLength = 9, .userInfo = std::string("mine"), .responseEvaluator = isOneOf({hex("01")})});
  EXPECT_EQ(descriptor.kind(), Kind::evaluated);
  EXPECT_EQ(descriptor.maximumPacketLength(), 9U);
  EXPECT_EQ(std::any_cast<std::string>(descriptor.userInfo()), "mine");
  EXPECT_TRUE(descriptor.responseEvaluator()(hex("01")));
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("01")));
  EXPECT_FALSE(descriptor.dataIsValidPacket(hex("02")));
  EXPECT_FALSE(descriptor.packetData());
  EXPECT_FALSE(descriptor.prefix());
  EXPECT_FALSE(descriptor.suffix());
  EXPECT_FALSE(descriptor.regularExpression());
}

TEST(ORSSerialPacketDescriptorTest, WithoutAnEvaluatorAnyBytesAreAPacket) {
  const ORSSerialPacketDescriptor descriptor(ORSSerialPacketDescriptor::Evaluated{.maximumPacketLength = 9});
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("00")));
  EXPECT_TRUE(descriptor.dataIsValidPacket(Bytes(100)));
  EXPECT_FALSE(descriptor.dataIsValidPacket({}));
  EXPECT_FALSE(descriptor.userInfo().has_value());
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("01 02")), Optional(hex("02")));
}

TEST(ORSSerialPacketDescriptorTest, AFixedPacketIsExactlyItsBytes) {
  const ORSSerialPacketDescriptor descriptor({.packetData = hex("01 02 03"), .userInfo = 7});
  EXPECT_EQ(descriptor.kind(), Kind::fixedPacket);
  EXPECT_THAT(descriptor.packetData(), Optional(hex("01 02 03")));
  EXPECT_EQ(descriptor.maximumPacketLength(), 3U);
  EXPECT_EQ(std::any_cast<int>(descriptor.userInfo()), 7);
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("01 02 03")));
  for (const char* other : {"", "01 02", "01 02 03 04", "00 01 02 03", "01 02 04"}) {
    EXPECT_FALSE(descriptor.dataIsValidPacket(hex(other))) << other;
  }
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("00 01 02 03")), Optional(hex("01 02 03")));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer(hex("01 02 03 00")));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer(hex("02 03")));
}

TEST(ORSSerialPacketDescriptorTest, AnEmptyFixedPacketNeverComes) {
  const ORSSerialPacketDescriptor descriptor({.packetData = {}});
  EXPECT_EQ(descriptor.maximumPacketLength(), 0U);
  EXPECT_TRUE(descriptor.dataIsValidPacket({}));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer({}));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer(hex("01")));
}

TEST(ORSSerialPacketDescriptorTest, APacketHasItsPrefixAndItsSuffix) {
  const ORSSerialPacketDescriptor descriptor(
      {.prefix = hex("24"), .suffix = hex("0d 0a"), .maximumPacketLength = 10, .userInfo = 7});
  EXPECT_EQ(descriptor.kind(), Kind::prefixAndSuffix);
  EXPECT_THAT(descriptor.prefix(), Optional(hex("24")));
  EXPECT_THAT(descriptor.suffix(), Optional(hex("0d 0a")));
  EXPECT_EQ(descriptor.maximumPacketLength(), 10U);
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("24 0d 0a")));
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("24 41 42 0d 0a")));
  for (const char* other : {"", "24", "0d 0a", "24 0d", "24 0a", "41 24 0d 0a", "24 0d 0a 41"}) {
    EXPECT_FALSE(descriptor.dataIsValidPacket(hex(other))) << other;
  }
  // The verdict does not look at the length.
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("24 00 01 02 03 04 05 06 07 08 09 0d 0a")));
}

TEST(ORSSerialPacketDescriptorTest, TheShortestTailIsThePacket) {
  const ORSSerialPacketDescriptor descriptor(
      {.prefix = hex("24"), .suffix = hex("0a"), .maximumPacketLength = 10});
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("24 41 24 42 0a")), Optional(hex("24 42 0a")));
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("24 41 0a 42 0a")), Optional(hex("24 41 0a 42 0a")));
}

TEST(ORSSerialPacketDescriptorTest, PrefixAndSuffixMayOverlap) {
  const ORSSerialPacketDescriptor same({.prefix = hex("7e"), .suffix = hex("7e"), .maximumPacketLength = 10});
  EXPECT_THAT(same.packetMatchingAtEndOfBuffer(hex("41 7e")), Optional(hex("7e")));
  const ORSSerialPacketDescriptor overlapping(
      {.prefix = hex("01 02 03"), .suffix = hex("02 03 04"), .maximumPacketLength = 10});
  EXPECT_THAT(overlapping.packetMatchingAtEndOfBuffer(hex("01 02 03 04")), Optional(hex("01 02 03 04")));
  const ORSSerialPacketDescriptor contained(
      {.prefix = hex("01"), .suffix = hex("01 02 01 03"), .maximumPacketLength = 10});
  EXPECT_THAT(contained.packetMatchingAtEndOfBuffer(hex("01 02 01 03")), Optional(hex("01 02 01 03")));
}

TEST(ORSSerialPacketDescriptorTest, OneOfPrefixAndSuffixMayBeAbsent) {
  const ORSSerialPacketDescriptor prefixed({.prefix = hex("01 02"), .maximumPacketLength = 10});
  EXPECT_TRUE(prefixed.dataIsValidPacket(hex("01 02 03")));
  EXPECT_FALSE(prefixed.dataIsValidPacket(hex("01")));
  EXPECT_THAT(prefixed.packetMatchingAtEndOfBuffer(hex("01 02 01 02 03")), Optional(hex("01 02 03")));
  const ORSSerialPacketDescriptor suffixed({.suffix = hex("01 02"), .maximumPacketLength = 10});
  EXPECT_TRUE(suffixed.dataIsValidPacket(hex("00 01 02")));
  EXPECT_FALSE(suffixed.dataIsValidPacket(hex("02")));
  EXPECT_THAT(suffixed.packetMatchingAtEndOfBuffer(hex("01 02 01 02")), Optional(hex("01 02")));
  EXPECT_FALSE(suffixed.packetMatchingAtEndOfBuffer(hex("01 02 03")));
}

TEST(ORSSerialPacketDescriptorTest, WithoutPrefixAndSuffixNothingIsAPacket) {
  const ORSSerialPacketDescriptor descriptor(PrefixAndSuffix{.maximumPacketLength = 10});
  EXPECT_FALSE(descriptor.dataIsValidPacket({}));
  EXPECT_FALSE(descriptor.dataIsValidPacket(hex("01")));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer(hex("01 02")));
}

TEST(ORSSerialPacketDescriptorTest, AnEmptyPrefixOrSuffixIsAlwaysThere) {
  for (const PrefixAndSuffix& shape :
       {PrefixAndSuffix{.prefix = Bytes{}, .maximumPacketLength = 10},
        PrefixAndSuffix{.suffix = Bytes{}, .maximumPacketLength = 10},
        PrefixAndSuffix{.prefix = Bytes{}, .suffix = Bytes{}, .maximumPacketLength = 10}}) {
    const ORSSerialPacketDescriptor descriptor(shape);
    EXPECT_TRUE(descriptor.dataIsValidPacket({}));
    EXPECT_TRUE(descriptor.dataIsValidPacket(hex("01")));
    EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer({}));
    EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("01 02")), Optional(hex("02")));
  }
  const ORSSerialPacketDescriptor suffixed(
      {.prefix = Bytes{}, .suffix = hex("0a"), .maximumPacketLength = 10});
  EXPECT_THAT(suffixed.packetMatchingAtEndOfBuffer(hex("01 0a")), Optional(hex("0a")));
}

TEST(ORSSerialPacketDescriptorTest, TextsStandForTheirUtf8Bytes) {
  const ORSSerialPacketDescriptor descriptor(
      {.prefixString = "$", .suffixString = "°\r\n", .maximumPacketLength = 10, .userInfo = 7});
  EXPECT_EQ(descriptor.kind(), Kind::prefixAndSuffix);
  EXPECT_THAT(descriptor.prefix(), Optional(hex("24")));
  EXPECT_THAT(descriptor.suffix(), Optional(hex("c2 b0 0d 0a")));
  EXPECT_EQ(std::any_cast<int>(descriptor.userInfo()), 7);
  EXPECT_TRUE(descriptor.dataIsValidPacket(hex("24 41 c2 b0 0d 0a")));

  const ORSSerialPacketDescriptor absent(
      ORSSerialPacketDescriptor::PrefixAndSuffixStrings{.suffixString = "", .maximumPacketLength = 10});
  EXPECT_FALSE(absent.prefix());
  EXPECT_THAT(absent.suffix(), Optional(Bytes{}));
}

TEST(ORSSerialPacketDescriptorTest, AnExpressionMatchesAtTheStartOfUtf8Text) {
  const ORSSerialPacketDescriptor descriptor(
      {.regularExpression = RegularExpression("[A-Z]\\d+"), .maximumPacketLength = 10, .userInfo = 7});
  EXPECT_EQ(descriptor.kind(), Kind::expression);
  ASSERT_TRUE(descriptor.regularExpression());
  EXPECT_EQ(descriptor.regularExpression()->pattern(), "[A-Z]\\d+");
  EXPECT_TRUE(descriptor.dataIsValidPacket(text("A12")));
  EXPECT_TRUE(descriptor.dataIsValidPacket(text("A12 and more")));
  EXPECT_FALSE(descriptor.dataIsValidPacket(text(" A12")));
  EXPECT_FALSE(descriptor.dataIsValidPacket(text("A")));
  EXPECT_FALSE(descriptor.dataIsValidPacket({}));
  EXPECT_FALSE(descriptor.dataIsValidPacket(hex("41 31 ff")));
  EXPECT_FALSE(descriptor.dataIsValidPacket(hex("41 31 c3")));
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(text("A1B2")), Optional(text("B2")));
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(text("A1 ")), Optional(text("A1 ")));
  // A tail may not begin within a character.
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("c3 a9 41 31")), Optional(hex("41 31")));
  EXPECT_TRUE(
      ORSSerialPacketDescriptor({.regularExpression = RegularExpression("a*"), .maximumPacketLength = 1})
          .dataIsValidPacket({}));
}

TEST(ORSSerialPacketDescriptorTest, AnEvaluatorIsAskedAboutTailsFromTheShortestOn) {
  std::vector<std::size_t> asked;
  const ORSSerialPacketDescriptor descriptor(
      {.maximumPacketLength = 3, .responseEvaluator = [&](ByteView bytes) {
         asked.push_back(bytes.size());
         return bytes.size() == 4 || bytes.size() == 5;
       }});
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("01 02 03 04 05 06")), Optional(hex("03 04 05 06")));
  EXPECT_THAT(asked, testing::ElementsAre(1, 2, 3, 4));
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer(hex("01 02 03")));
}

TEST(ORSSerialPacketDescriptorTest, TheEmptyBufferHoldsNoPacket) {
  const ORSSerialPacketDescriptor descriptor(
      {.maximumPacketLength = 3, .responseEvaluator = [](ByteView) { return true; }});
  EXPECT_FALSE(descriptor.packetMatchingAtEndOfBuffer({}));
  EXPECT_THAT(descriptor.packetMatchingAtEndOfBuffer(hex("01 02")), Optional(hex("02")));
}

TEST(ORSSerialPacketDescriptorTest, IsEqualOnlyToItself) {
  const ORSSerialPacketDescriptor one({.packetData = hex("01")});
  const ORSSerialPacketDescriptor other({.packetData = hex("01")});
  EXPECT_EQ(one, one);
  EXPECT_NE(one, other);
  EXPECT_NE(one.uuid(), other.uuid());
  EXPECT_EQ(one.hash(), one.uuid().hash());
  EXPECT_NE(one.hash(), other.hash());
}

}  // namespace
}  // namespace tarsil
