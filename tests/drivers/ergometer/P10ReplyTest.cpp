#include "tarsil/drivers/ergometer/P10Reply.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tarsil {
namespace {

P10Reply replyOf(std::string_view text) {
  P10Reply reply;
  reply.append(text);
  return reply;
}

TEST(P10Reply, KnowsWhichCharactersHaveBeenSeen) {
  P10Reply reply;
  EXPECT_FALSE(reply.contains('B'));
  reply.append("x");
  reply.append("yB");
  EXPECT_TRUE(reply.contains('B'));
  EXPECT_TRUE(reply.contains('x'));
  EXPECT_FALSE(reply.contains('b'));
  reply.append("120\r");
  EXPECT_TRUE(reply.contains('B'));
  EXPECT_TRUE(reply.contains('\r'));
}

TEST(P10Reply, HasAsFieldTheSecondToFourthCharacter) {
  EXPECT_EQ(replyOf("B120\r").field(), "120");
  EXPECT_EQ(replyOf("B80\r").field(), "80\r");
  EXPECT_EQ(replyOf("B8").field(), "8");
  EXPECT_EQ(replyOf("B1234567").field(), "123");
}

TEST(P10Reply, HasAReplacementForAMissingField) {
  EXPECT_EQ(replyOf("").field(), "范围越界");
  EXPECT_EQ(replyOf("B").field(), "范围越界");
}

TEST(P10Reply, JoinsTheFieldFromPieces) {
  P10Reply reply;
  for (const char* piece : {"B", "1", "2", "", "0", "\r", "n060\r"}) reply.append(piece);
  EXPECT_EQ(reply.field(), "120");
}

TEST(P10Reply, CountsCodePoints) {
  EXPECT_EQ(replyOf("é1瓦3x").field(), "1瓦3");
  EXPECT_EQ(replyOf("😀120").field(), "120");
}

TEST(P10Reply, ForgetsEverythingWhenCleared) {
  P10Reply reply = replyOf("B120\r");
  reply.clear();
  EXPECT_FALSE(reply.contains('B'));
  EXPECT_EQ(reply.field(), "范围越界");
  reply.append("n060\r");
  EXPECT_EQ(reply.field(), "060");
}

TEST(P10Reply, ReadsTheFieldAsANumber) {
  EXPECT_EQ(replyOf("B120\r").numberOrStop(), 120.0F);
  EXPECT_EQ(replyOf("B1.5\r").numberOrStop(), 1.5F);
  EXPECT_EQ(replyOf("B-12\r").numberOrStop(), -12.0F);
}

class FieldThatIsNoNumber : public testing::TestWithParam<const char*> {};

TEST_P(FieldThatIsNoNumber, StopsTheProcess) {
  EXPECT_DEATH(replyOf(GetParam()).numberOrStop(),
               "tarsil: fatal error: P10 ergometer: the field .* is no number");
}

INSTANTIATE_TEST_SUITE_P(P10Reply, FieldThatIsNoNumber,
                         testing::Values("", "B", "B80\r", "B 80", "B80 ", "Babc", "B0x1", "Binf", "Bnan",
                                         "\rB12", "B1e\r", "B٣٣٣"));

}  // namespace
}  // namespace tarsil
