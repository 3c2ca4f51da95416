#include "tarsil/serial/detail/PacketListener.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Descriptor = PacketListener::Descriptor;

class PacketListenerTest : public testing::Test {
 protected:
  static Descriptor fixed(const char* bytes) {
    return std::make_shared<ORSSerialPacketDescriptor>(
        ORSSerialPacketDescriptor::FixedPacket{.packetData = hex(bytes)});
  }

  static Descriptor between(const char* prefix, const char* suffix) {
    return std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::PrefixAndSuffix{
        .prefix = hex(prefix), .suffix = hex(suffix), .maximumPacketLength = 10});
  }

  void receive(const char* bytes) {
    const Bytes chunk = hex(bytes);
    listener_.begin(chunk);
    for (std::size_t at = listener_.next(); at < chunk.size(); at = std::max(at + 1, listener_.next()))
      listener_.append(chunk, at);
  }

  using Reported = std::pair<Bytes, Descriptor>;
  std::vector<Reported> reported_;
  PacketListener listener_{[this](Bytes packet, const Descriptor& descriptor) {
    reported_.emplace_back(std::move(packet), descriptor);
  }};
};

TEST_F(PacketListenerTest, ReportsNothingUnasked) {
  receive("01 02 03");
  EXPECT_THAT(reported_, IsEmpty());
  EXPECT_THAT(listener_.descriptors(), IsEmpty());
}

TEST_F(PacketListenerTest, ReportsEveryPacketOfEveryDescriptor) {
  const auto first = fixed("01 02");
  const auto second = fixed("02 03");
  EXPECT_TRUE(listener_.start(first));
  EXPECT_TRUE(listener_.start(second));
  receive("01 02 03 01 02");
  EXPECT_THAT(reported_, ElementsAre(Reported(hex("01 02"), first), Reported(hex("02 03"), second),
                                     Reported(hex("01 02"), first)));
}

TEST_F(PacketListenerTest, PacketsThatEndAtTheSameByteComeInTheOrderOfListening) {
  const std::vector<Descriptor> descriptors = {fixed("02"), fixed("01 02"), fixed("02"), between("01", "02")};
  for (const auto& descriptor : descriptors) listener_.start(descriptor);
  EXPECT_THAT(listener_.descriptors(), testing::ElementsAreArray(descriptors));
  receive("01 02");
  EXPECT_THAT(reported_,
              ElementsAre(Reported(hex("02"), descriptors[0]), Reported(hex("01 02"), descriptors[1]),
                          Reported(hex("02"), descriptors[2]), Reported(hex("01 02"), descriptors[3])));
}

TEST_F(PacketListenerTest, ADescriptorHearsWhatComesAfterItBegan) {
  const auto descriptor = fixed("01 02");
  receive("01");
  listener_.start(descriptor);
  receive("02");
  EXPECT_THAT(reported_, IsEmpty());
}

TEST_F(PacketListenerTest, ADescriptorThatListensAlreadyKeepsItsBytesAndItsPlace) {
  const auto first = fixed("01 02");
  const auto second = fixed("02");
  listener_.start(first);
  listener_.start(second);
  receive("01");
  EXPECT_FALSE(listener_.start(first));
  receive("02");
  EXPECT_THAT(reported_, ElementsAre(Reported(hex("01 02"), first), Reported(hex("02"), second)));
}

TEST_F(PacketListenerTest, StoppingForgetsTheBytes) {
  const auto descriptor = fixed("01 02");
  const auto other = fixed("01 02");
  listener_.start(descriptor);
  listener_.start(other);
  receive("01");
  listener_.stop(*descriptor);
  EXPECT_THAT(listener_.descriptors(), ElementsAre(other));
  EXPECT_TRUE(listener_.start(descriptor));
  EXPECT_THAT(listener_.descriptors(), ElementsAre(other, descriptor));
  receive("02");
  EXPECT_THAT(reported_, ElementsAre(Reported(hex("01 02"), other)));
}

TEST_F(PacketListenerTest, PassesOverBytesThatCompleteNoPacket) {
  const Bytes chunk = hex("00 00 24 01 0d 00 00 31 00");
  listener_.begin(chunk);
  EXPECT_GE(listener_.next(), chunk.size()) << "nobody listens";
  listener_.start(between("24", "0d"));
  listener_.start(fixed("31 32"));
  listener_.begin(chunk);
  std::vector<std::size_t> seen;
  for (std::size_t at = listener_.next(); at < chunk.size(); at = listener_.next()) {
    seen.push_back(at);
    listener_.append(chunk, at);
  }
  EXPECT_THAT(seen, ElementsAre(2, 4));
  EXPECT_EQ(reported_.size(), 1U);
}

TEST_F(PacketListenerTest, StoppingWhatDoesNotListenChangesNothing) {
  const auto descriptor = fixed("01");
  listener_.start(descriptor);
  listener_.stop(*fixed("01"));
  EXPECT_THAT(listener_.descriptors(), ElementsAre(descriptor));
}

}  // namespace
}  // namespace tarsil::detail
