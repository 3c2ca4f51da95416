#include "tarsil/serial/detail/PacketMatcher.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
using Evaluated = ORSSerialPacketDescriptor::Evaluated;
using Expression = ORSSerialPacketDescriptor::Expression;
using FixedPacket = ORSSerialPacketDescriptor::FixedPacket;
using PrefixAndSuffix = ORSSerialPacketDescriptor::PrefixAndSuffix;

/// A packet and the number of bytes after which it was found.
using Found = std::pair<std::size_t, Bytes>;

template <class Shape>
Descriptor descriptor(Shape shape) {
  return std::make_shared<ORSSerialPacketDescriptor>(std::move(shape));
}

std::vector<Found> found(const Descriptor& descriptor, ByteView stream) {
  const auto matcher = PacketMatcher::make(descriptor);
  const auto sparing = PacketMatcher::make(descriptor);
  std::vector<Found> result;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const auto packet = matcher->append(stream[i]);
    // One that does not see the bytes which it calls useless finds the same.
    const bool isUseless = sparing->useless(stream.subspan(i, 1)) == 1;
    EXPECT_EQ(isUseless ? std::nullopt : sparing->append(stream[i]), packet);
    if (packet) result.emplace_back(i + 1, *packet);
  }
  return result;
}

// The same, passed over in chunks of this size.
std::vector<Found> foundInChunks(const Descriptor& descriptor, ByteView stream, std::size_t chunkSize) {
  const auto matcher = PacketMatcher::make(descriptor);
  std::vector<Found> result;
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t endOfChunk = std::min(stream.size(), (at / chunkSize + 1) * chunkSize);
    at += matcher->pass(stream.subspan(at, endOfChunk - at));
    if (at == endOfChunk) continue;
    if (const auto packet = matcher->append(stream[at])) result.emplace_back(at + 1, *packet);
    ++at;
  }
  return result;
}

// The definition, word for word.
std::optional<Bytes> shortestAcceptedTail(const ORSSerialPacketDescriptor& descriptor, ByteView buffer) {
  for (std::size_t n = 1; n <= buffer.size(); ++n) {
    const ByteView tail = buffer.last(n);
    if (descriptor.dataIsValidPacket(tail)) return Bytes(tail.begin(), tail.end());
  }
  return std::nullopt;
}

std::vector<Found> foundByDefinition(const Descriptor& descriptor, ByteView stream) {
  std::vector<Found> result;
  Bytes buffer;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    buffer.push_back(stream[i]);
    if (buffer.size() > descriptor->maximumPacketLength()) buffer.erase(buffer.begin());
    const auto packet = shortestAcceptedTail(*descriptor, buffer);
    EXPECT_EQ(descriptor->packetMatchingAtEndOfBuffer(buffer), packet) << "in " << hexText(buffer);
    if (packet) {
      result.emplace_back(i + 1, *packet);
      buffer.clear();
    }
  }
  return result;
}

TEST(PacketMatcherTest, FindsAPacketBetweenPrefixAndSuffixOnce) {
  const auto line =
      descriptor(PrefixAndSuffix{.prefix = hex("24"), .suffix = hex("0d 0a"), .maximumPacketLength = 10});
  EXPECT_THAT(found(line, hex("24 41 42 0d 0a")), ElementsAre(Found(5, hex("24 41 42 0d 0a"))));
  // The stream begins anew: what came before is no part of a packet any more.
  EXPECT_THAT(found(line, hex("24 41 42 0d 0a 0d 0a 43 0d 0a")),
              ElementsAre(Found(5, hex("24 41 42 0d 0a"))));
}

TEST(PacketMatcherTest, APrefixThatFellOutOfAFullBufferIsGone) {
  const auto line =
      descriptor(PrefixAndSuffix{.prefix = hex("24"), .suffix = hex("0a"), .maximumPacketLength = 4});
  EXPECT_THAT(found(line, hex("24 01 02 0a")), ElementsAre(Found(4, hex("24 01 02 0a"))));
  EXPECT_THAT(found(line, hex("24 01 02 03 0a")), IsEmpty());
  EXPECT_THAT(found(line, hex("24 01 24 03 04 0a")), ElementsAre(Found(6, hex("24 03 04 0a"))));
}

TEST(PacketMatcherTest, ThePacketBeginsAtTheNewestPrefixThatLeavesRoomForTheSuffix) {
  const auto overlapping =
      descriptor(PrefixAndSuffix{.prefix = hex("01"), .suffix = hex("01 01 01"), .maximumPacketLength = 20});
  EXPECT_THAT(found(overlapping, hex("01 05 01 01 01")), ElementsAre(Found(5, hex("01 01 01"))));
  const auto flag =
      descriptor(PrefixAndSuffix{.prefix = hex("7e"), .suffix = hex("7e"), .maximumPacketLength = 20});
  EXPECT_THAT(found(flag, hex("7e 01 7e")), ElementsAre(Found(1, hex("7e")), Found(3, hex("7e"))));
}

TEST(PacketMatcherTest, APrefixOrSuffixAloneIsAPacketWhenComplete) {
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.prefix = hex("01 02"), .maximumPacketLength = 9}),
                    hex("00 01 02 03 01 02")),
              ElementsAre(Found(3, hex("01 02")), Found(6, hex("01 02"))));
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.suffix = hex("01 02"), .maximumPacketLength = 9}),
                    hex("00 01 02 03 01 02")),
              ElementsAre(Found(3, hex("01 02")), Found(6, hex("01 02"))));
}

TEST(PacketMatcherTest, ABufferTooSmallForThePacketHoldsNone) {
  const Bytes stream = hex("01 02 03 04 01 02 03 04");
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.prefix = hex("01 02"), .maximumPacketLength = 1}), stream),
              IsEmpty());
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.suffix = hex("01 02"), .maximumPacketLength = 0}), stream),
              IsEmpty());
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{
                        .prefix = hex("01"), .suffix = hex("03 04"), .maximumPacketLength = 3}),
                    stream),
              IsEmpty());
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.prefix = Bytes{}, .maximumPacketLength = 0}), stream),
              IsEmpty());
  EXPECT_THAT(found(descriptor(Evaluated{.maximumPacketLength = 0}), stream), IsEmpty());
  EXPECT_THAT(found(descriptor(FixedPacket{}), stream), IsEmpty());
}

TEST(PacketMatcherTest, TheLargestMaximumIsAsGoodAsAny) {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{
                        .prefix = hex("01"), .suffix = hex("03"), .maximumPacketLength = largest}),
                    hex("01 02 03")),
              ElementsAre(Found(3, hex("01 02 03"))));
  EXPECT_THAT(
      found(descriptor(Evaluated{.maximumPacketLength = largest,
                                 .responseEvaluator = [](ByteView bytes) { return bytes.size() == 2; }}),
            hex("01 02 03")),
      ElementsAre(Found(2, hex("01 02"))));
}

TEST(PacketMatcherTest, WithoutPrefixAndSuffixNothingIsFound) {
  EXPECT_THAT(found(descriptor(PrefixAndSuffix{.maximumPacketLength = 10}), hex("01 02 03")), IsEmpty());
}

TEST(PacketMatcherTest, ExpressionsAreFoundWhenTheLastCharacterIsComplete) {
  const auto degrees =
      descriptor(Expression{.regularExpression = RegularExpression("[0-9]+°"), .maximumPacketLength = 10});
  EXPECT_THAT(found(degrees, text("x12°")), ElementsAre(Found(5, text("2°"))));
}

class RandomStreams : public testing::Test {
 protected:
  std::size_t pick(std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(random_);
  }

  Bytes bytes(std::size_t length, std::size_t alphabet) {
    Bytes result(length);
    for (auto& byte : result) byte = static_cast<std::uint8_t>('a' + pick(alphabet));
    return result;
  }

  std::optional<Bytes> maybeBytes(std::size_t longest, std::size_t alphabet) {
    if (pick(6) == 0) return std::nullopt;
    return bytes(pick(longest + 1), alphabet);
  }

  void compare(const Descriptor& descriptor, ByteView stream) {
    const auto expected = foundByDefinition(descriptor, stream);
    ASSERT_EQ(found(descriptor, stream), expected) << describe(*descriptor) << " in " << hexText(stream);
    const std::size_t chunkSize = 1 + pick(stream.size() + 1);
    ASSERT_EQ(foundInChunks(descriptor, stream, chunkSize), expected)
        << describe(*descriptor) << " in " << hexText(stream) << " by " << chunkSize;
    packets_ += expected.size();
  }

  static std::string describe(const ORSSerialPacketDescriptor& descriptor) {
    const auto part = [](const std::optional<Bytes>& bytes) {
      return bytes ? "<" + hexText(*bytes) + ">" : "none";
    };
    return "fixed " + part(descriptor.packetData()) + " prefix " + part(descriptor.prefix()) + " suffix " +
           part(descriptor.suffix()) + " maximum " + std::to_string(descriptor.maximumPacketLength());
  }

  std::mt19937 random_{20240301};
  std::size_t packets_ = 0;
};

TEST_F(RandomStreams, PrefixesAndSuffixesAreFoundAsDefined) {
  for (int round = 0; round < 6000; ++round) {
    const std::size_t alphabet = 1 + pick(3);
    const std::uint64_t maximum = pick(8) == 0 ? std::numeric_limits<std::int64_t>::max() : pick(14);
    compare(descriptor(PrefixAndSuffix{.prefix = maybeBytes(4, alphabet),
                                       .suffix = maybeBytes(4, alphabet),
                                       .maximumPacketLength = maximum}),
            bytes(pick(60), alphabet));
  }
  EXPECT_GT(packets_, 10'000U);
}

TEST_F(RandomStreams, FixedPacketsAreFoundAsDefined) {
  for (int round = 0; round < 3000; ++round) {
    const std::size_t alphabet = 1 + pick(3);
    compare(descriptor(FixedPacket{.packetData = bytes(pick(7), alphabet)}), bytes(pick(60), alphabet));
  }
  EXPECT_GT(packets_, 3'000U);
}

TEST_F(RandomStreams, EvaluatedPacketsAreFoundAsDefined) {
  for (int round = 0; round < 1000; ++round) {
    const std::size_t modulus = 2 + pick(5);
    compare(descriptor(Evaluated{.maximumPacketLength = pick(10),
                                 .responseEvaluator =
                                     [modulus](ByteView bytes) {
                                       std::size_t sum = bytes.size();
                                       for (const std::uint8_t byte : bytes) sum += byte;
                                       return sum % modulus == 0;
                                     }}),
            bytes(pick(60), 3));
  }
  EXPECT_GT(packets_, 1'000U);
}

TEST_F(RandomStreams, ExpressionsAreFoundAsDefined) {
  const std::vector<std::string> patterns = {"ab", "a.*b", "a+b$", "^[^a]c", "(a|bc)+c", "", "é?b", "\\w{3}"};
  const std::vector<Bytes> letters = {text("a"), text("b"), text("c"), text("é"),
                                      hex("c3"), hex("ff"), text("\n")};
  for (int round = 0; round < 1000; ++round) {
    Bytes stream;
    for (std::size_t n = pick(40); n > 0; --n) {
      const Bytes& letter = letters[pick(letters.size())];
      stream.insert(stream.end(), letter.begin(), letter.end());
    }
    compare(descriptor(Expression{.regularExpression = RegularExpression(patterns[pick(patterns.size())]),
                                  .maximumPacketLength = pick(12)}),
            stream);
  }
  EXPECT_GT(packets_, 1'000U);
}

}  // namespace
}  // namespace tarsil::detail
