#include "tarsil/serial/detail/PacketMatcher.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using testing::ElementsAre;

// The positions behind which the sequence ends.
std::vector<std::size_t> ends(std::string_view sequence, std::string_view stream) {
  SequenceFinder finder(text(sequence));
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    if (finder.feed(static_cast<std::uint8_t>(stream[i]))) found.push_back(i + 1);
  }
  return found;
}

TEST(SequenceFinderTest, FindsEveryOccurrence) {
  EXPECT_THAT(ends("ab", "xabyab"), ElementsAre(3, 6));
  EXPECT_THAT(ends("a", "aab"), ElementsAre(1, 2));
  EXPECT_THAT(ends("abc", "ababab"), ElementsAre());
}

TEST(SequenceFinderTest, OccurrencesMayOverlap) {
  EXPECT_THAT(ends("aa", "aaaa"), ElementsAre(2, 3, 4));
  EXPECT_THAT(ends("aba", "ababa"), ElementsAre(3, 5));
}

TEST(SequenceFinderTest, AFalseStartMayHoldTheRealOne) {
  EXPECT_THAT(ends("aab", "aaab"), ElementsAre(4));
  EXPECT_THAT(ends("abcabd", "abcabcabd"), ElementsAre(9));
  EXPECT_THAT(ends("aabaaab", "aabaabaaab"), ElementsAre(10));
}

TEST(SequenceFinderTest, KnowsHowMuchMayBeTheBeginning) {
  SequenceFinder finder(text("aab"));
  finder.feed('a');
  EXPECT_EQ(finder.matched(), 1U);
  finder.feed('a');
  finder.feed('a');
  EXPECT_EQ(finder.matched(), 2U);
  EXPECT_TRUE(finder.feed('b'));
  EXPECT_EQ(finder.matched(), 3U);
  finder.feed('x');
  EXPECT_EQ(finder.matched(), 0U);
}

TEST(SequenceFinderTest, PassesOverAllButTheByteThatCompletesTheSequence) {
  SequenceFinder finder(text("aab"));
  EXPECT_EQ(finder.pass(text("xaxaab")), 5U);
  EXPECT_TRUE(finder.feed('b'));
  EXPECT_EQ(finder.pass({}), 0U);
  EXPECT_EQ(finder.pass(text("xa")), 2U);
  EXPECT_EQ(finder.matched(), 1U);
  EXPECT_EQ(finder.pass(text("aab")), 2U) << "what has begun goes on";
  EXPECT_TRUE(finder.feed('b'));
  SequenceFinder overlapping(text("aa"));
  EXPECT_EQ(overlapping.pass(text("aa")), 1U);
  EXPECT_TRUE(overlapping.feed('a'));
  EXPECT_EQ(overlapping.pass(text("a")), 0U) << "the end of one begins the next";
}

TEST(SequenceFinderTest, ForgetsWhenReset) {
  SequenceFinder finder(text("ab"));
  finder.feed('a');
  finder.reset();
  EXPECT_FALSE(finder.feed('b'));
}

}  // namespace
}  // namespace tarsil::detail
