#include "tarsil/serial/ORSSerialRequest.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <memory>
#include <sstream>
#include <string>

#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

using testing::IsNull;
using testing::MatchesRegex;
using testing::NotNull;

auto fixed(const char* bytes) {
  return std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::FixedPacket{.packetData = hex(bytes)});
}

std::string address(const ORSSerialRequest& request) {
  std::ostringstream text;
  text << static_cast<const void*>(&request);
  return text.str();
}

TEST(ORSSerialRequestTest, KeepsWhatItIsMadeFrom) {
  const auto descriptor = fixed("05");
  const ORSSerialRequest request({.dataToSend = hex("01 02"),
                                  .userInfo = std::string("mine"),
                                  .timeoutInterval = 1.5,
                                  .responseDescriptor = descriptor});
  EXPECT_EQ(request.dataToSend(), hex("01 02"));
  EXPECT_EQ(std::any_cast<std::string>(request.userInfo()), "mine");
  EXPECT_EQ(request.timeoutInterval(), 1.5);
  EXPECT_EQ(request.responseDescriptor(), descriptor);
  EXPECT_TRUE(request.dataIsValidResponse(hex("05")));
  EXPECT_FALSE(request.dataIsValidResponse(hex("06")));

  const auto made = ORSSerialRequest::requestWithDataToSend(hex("01"), 7, 2.0, descriptor);
  EXPECT_EQ(made->dataToSend(), hex("01"));
  EXPECT_EQ(std::any_cast<int>(made->userInfo()), 7);
  EXPECT_EQ(made->timeoutInterval(), 2.0);
  EXPECT_EQ(made->responseDescriptor(), descriptor);
}

TEST(ORSSerialRequestTest, WithoutADescriptorEveryResponseIsValid) {
  const auto request = ORSSerialRequest::requestWithDataToSend(hex("01"), {}, 0, nullptr);
  EXPECT_THAT(request->responseDescriptor(), IsNull());
  EXPECT_TRUE(request->dataIsValidResponse({}));
  EXPECT_TRUE(request->dataIsValidResponse(hex("05")));
}

TEST(ORSSerialRequestTest, AnEvaluatorBecomesADescriptor) {
  const auto request = ORSSerialRequest::requestWithDataToSend(
      hex("01"), 7, 0.5, [](ByteView bytes) { return bytes.size() == 3; });
  ASSERT_THAT(request->responseDescriptor(), NotNull());
  EXPECT_EQ(request->responseDescriptor()->maximumPacketLength(), std::uint64_t{9223372036854775807});
  EXPECT_FALSE(request->responseDescriptor()->userInfo().has_value());
  EXPECT_TRUE(request->dataIsValidResponse(hex("01 02 03")));
  EXPECT_FALSE(request->dataIsValidResponse(hex("01 02")));

  const ORSSerialRequest anything(ORSSerialRequest::WithEvaluator{.dataToSend = hex("01")});
  EXPECT_TRUE(anything.dataIsValidResponse(hex("00")));
  EXPECT_FALSE(anything.dataIsValidResponse({}));
}

TEST(ORSSerialRequestTest, EachHasAUuidOfItsOwn) {
  const ORSSerialRequest one({.dataToSend = hex("01"), .responseDescriptor = nullptr});
  const ORSSerialRequest other({.dataToSend = hex("01"), .responseDescriptor = nullptr});
  EXPECT_THAT(one.UUIDString(),
              MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
  EXPECT_NE(one.UUIDString(), other.UUIDString());
}

TEST(ORSSerialRequestTest, DescribesItself) {
  const ORSSerialRequest tango({.dataToSend = hex("49 4e 49 54 0a 0d"),
                                .userInfo = std::string("tango"),
                                .timeoutInterval = 1.0,
                                .responseDescriptor = nullptr});
  EXPECT_EQ(tango.description(), "<ORSSerialRequest: " + address(tango) +
                                     "> data: <494e4954 0a0d> userInfo: tango timeout interval: 1.000000");

  const ORSSerialRequest bare({.timeoutInterval = 0.0000007, .responseDescriptor = nullptr});
  EXPECT_EQ(bare.description(),
            "<ORSSerialRequest: " + address(bare) + "> data: <> userInfo: (null) timeout interval: 0.000001");

  const ORSSerialRequest literal({.userInfo = "text", .responseDescriptor = nullptr});
  EXPECT_THAT(literal.description(), testing::HasSubstr("userInfo: text timeout"));
  const ORSSerialRequest object({.userInfo = 5, .responseDescriptor = nullptr});
  EXPECT_THAT(object.description(), testing::HasSubstr("userInfo: (object) timeout"));
}

TEST(ORSSerialRequestTest, DescribesEveryInterval) {
  const auto end = [](double interval) {
    const auto text =
        ORSSerialRequest({.timeoutInterval = interval, .responseDescriptor = nullptr}).description();
    return text.substr(text.rfind(' ') + 1);
  };
  EXPECT_EQ(end(-2.5), "-2.500000");
  EXPECT_EQ(end(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(end(std::numeric_limits<double>::max()).size(), 309U + 7U);
  EXPECT_EQ(end(std::numeric_limits<double>::lowest()).size(), 309U + 8U);
}

}  // namespace
}  // namespace tarsil
