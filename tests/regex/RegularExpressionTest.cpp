#include "tarsil/regex/RegularExpression.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarsil {
namespace {

bool whole(const std::string& pattern, const std::string& text) {
  return RegularExpression(pattern).matchesWhole(text);
}
bool prefix(const std::string& pattern, const std::string& text) {
  return RegularExpression(pattern).matchesPrefix(text);
}

std::string refusal(const std::string& pattern) {
  try {
    RegularExpression expression(pattern);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "accepted";
}

TEST(RegularExpressionTest, KeepsItsPattern) {
  EXPECT_EQ(RegularExpression("a|b").pattern(), "a|b");
}

TEST(RegularExpressionTest, AWholeMatchReachesFromEndToEnd) {
  EXPECT_TRUE(whole("abc", "abc"));
  EXPECT_FALSE(whole("abc", "abcd"));
  EXPECT_FALSE(whole("abc", "xabc"));
  EXPECT_FALSE(whole("abc", "ab"));
  EXPECT_TRUE(whole("", ""));
  EXPECT_FALSE(whole("", "a"));
}

TEST(RegularExpressionTest, APrefixMatchIsAnchoredAtTheStartAndNeedNotReachTheEnd) {
  EXPECT_TRUE(prefix("abc", "abc"));
  EXPECT_TRUE(prefix("abc", "abcd"));
  EXPECT_FALSE(prefix("abc", "xabc"));
  EXPECT_FALSE(prefix("abc", "ab"));
  EXPECT_TRUE(prefix("", ""));
  EXPECT_TRUE(prefix("a*", "bbb"));
}

TEST(RegularExpressionTest, AlternativesAreAllTried) {
  EXPECT_TRUE(whole("a|ab", "ab"));
  EXPECT_TRUE(whole("(a|ab)(c|bcd)", "abcd"));
  EXPECT_TRUE(whole("x(?:|y)z", "xz"));
  EXPECT_TRUE(whole("a||b", ""));
  EXPECT_FALSE(whole("a|b", "ab"));
}

TEST(RegularExpressionTest, Quantifiers) {
  EXPECT_TRUE(whole("ab*c", "ac"));
  EXPECT_TRUE(whole("ab*c", "abbbc"));
  EXPECT_FALSE(whole("ab+c", "ac"));
  EXPECT_TRUE(whole("ab+c", "abbc"));
  EXPECT_TRUE(whole("ab?c", "ac"));
  EXPECT_FALSE(whole("ab?c", "abbc"));
  EXPECT_FALSE(whole("a{2}", "a"));
  EXPECT_TRUE(whole("a{2}", "aa"));
  EXPECT_FALSE(whole("a{2}", "aaa"));
  EXPECT_TRUE(whole("a{2,}", "aaaaa"));
  EXPECT_FALSE(whole("a{2,}", "a"));
  EXPECT_TRUE(whole("a{0}", ""));
  EXPECT_TRUE(whole("a{1,3}", "aaa"));
  EXPECT_FALSE(whole("a{1,3}", "aaaa"));
  EXPECT_TRUE(whole("(ab){2,3}", "ababab"));
  EXPECT_TRUE(whole("a+?b??c*?", "aac"));
  EXPECT_TRUE(whole("a{1000}", std::string(1000, 'a')));
  EXPECT_FALSE(whole("a{1000}", std::string(999, 'a')));
}

TEST(RegularExpressionTest, RepetitionsOfNothingEnd) {
  EXPECT_TRUE(whole("(a*)*", "aaa"));
  EXPECT_TRUE(whole("(a*)+b", "aab"));
  EXPECT_TRUE(whole("(|a)*b", "aab"));
  EXPECT_TRUE(whole("()*", ""));
  EXPECT_TRUE(whole("((((){1000}){1000}){1000}){1000}x", "x"));
  EXPECT_TRUE(whole("(^)*a($)*", "a"));
}

TEST(RegularExpressionTest, Classes) {
  EXPECT_TRUE(whole("[abc]+", "cab"));
  EXPECT_FALSE(whole("[abc]", "d"));
  EXPECT_TRUE(whole("[a-cx-z]+", "abczyx"));
  EXPECT_FALSE(whole("[^a-c]", "b"));
  EXPECT_TRUE(whole("[^a-c]", "\n"));
  EXPECT_TRUE(whole("[-a]+", "a-"));
  EXPECT_TRUE(whole("[a-]+", "a-"));
  EXPECT_TRUE(whole("[a^]+", "^a"));
  EXPECT_TRUE(whole("[.*+?(){}|$]+", ".*+?(){}|$"));
  EXPECT_TRUE(whole("[\\]\\[\\\\]+", "[]\\"));
  EXPECT_TRUE(whole("[\\d\\s_]+", "1 _\t2"));
  EXPECT_TRUE(whole("[^\\D]", "5"));
  EXPECT_FALSE(whole("[\\D\\d]{2}", "5"));
  EXPECT_TRUE(whole("[\\x02-\\x04]+", "\x02\x03\x04"));
  EXPECT_TRUE(whole("[z-z]", "z"));
}

TEST(RegularExpressionTest, Escapes) {
  EXPECT_TRUE(whole("\\d\\D\\w\\W\\s\\S", "1a_- b"));
  EXPECT_FALSE(whole("\\d", "a"));
  EXPECT_FALSE(whole("\\w", "\xC3\xA9"));
  EXPECT_TRUE(whole("\\W", "\xC3\xA9"));
  EXPECT_TRUE(whole("\\s+", " \t\n\v\f\r\xC2\x85\xC2\xA0\xE3\x80\x80"));
  EXPECT_TRUE(whole("\\s+", "\u1680\u2000\u200A\u2028\u2029\u202F\u205F"));
  EXPECT_TRUE(whole("\\S+", "\u167F\u1681\u1FFF\u200B\u2027\u202A\u202E\u2030\u205E\u2060\u2FFF\u3001"));
  EXPECT_TRUE(whole("\\t\\n\\r\\f\\a\\e", "\t\n\r\f\a\x1B"));
  EXPECT_TRUE(whole("\\x41\\x{42}\\x{1F600}\\u00e9", "AB\xF0\x9F\x98\x80\xC3\xA9"));
  EXPECT_TRUE(whole("\\.\\*\\(\\)\\[\\]\\{\\}\\^\\$\\|\\\\\\/\\-", ".*()[]{}^$|\\/-"));
  EXPECT_TRUE(whole("a]", "a]"));
}

TEST(RegularExpressionTest, ADotMatchesNoLineEnd) {
  EXPECT_TRUE(whole(".", "a"));
  EXPECT_TRUE(whole(".", "\t"));
  EXPECT_TRUE(whole(".", std::string(1, '\0')));
  for (const char* end : {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    EXPECT_FALSE(whole(".", end));
    EXPECT_TRUE(whole("\\s", end));
  }
}

TEST(RegularExpressionTest, Anchors) {
  EXPECT_TRUE(whole("^abc$", "abc"));
  EXPECT_FALSE(whole("a^b", "ab"));
  EXPECT_FALSE(whole("a$b", "ab"));
  EXPECT_TRUE(prefix("abc$", "abc"));
  EXPECT_FALSE(prefix("abc$", "abcd"));
  EXPECT_TRUE(whole("\\Aa\\z", "a"));
  EXPECT_FALSE(prefix("a\\z", "a\n"));
}

TEST(RegularExpressionTest, ADollarAlsoHoldsBeforeALineEndThatEndsTheText) {
  for (const char* end : {"\n", "\r", "\r\n", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8"}) {
    EXPECT_TRUE(prefix("a$", std::string("a") + end));
    EXPECT_TRUE(prefix("a\\Z", std::string("a") + end));
    EXPECT_FALSE(prefix("a$", std::string("a") + end + "b"));
    EXPECT_FALSE(whole("a$", std::string("a") + end));
    EXPECT_TRUE(whole(std::string("a$\\s+$"), std::string("a") + end));
  }
  EXPECT_FALSE(prefix("a$", "a\n\n"));
  EXPECT_FALSE(prefix("a\\r$", "a\r\n"));
  EXPECT_TRUE(prefix("\\s$", "\n"));
}

TEST(RegularExpressionTest, CharactersAreCodePoints) {
  EXPECT_TRUE(whole(".", "\xE4\xB8\xB2"));
  EXPECT_TRUE(whole("..", "\xF0\x9F\x98\x80\xC3\xA9"));
  EXPECT_TRUE(whole("[\xC3\xA0-\xC3\xBF]+", "\xC3\xA9\xC3\xA8"));
  EXPECT_TRUE(whole("\xC3\xA9*", "\xC3\xA9\xC3\xA9"));
}

TEST(RegularExpressionTest, EveryCharacterThatMayComeFirstIsTried) {
  EXPECT_TRUE(whole("^(?:a|[x-z]|\u00e9)b", "yb"));
  EXPECT_TRUE(whole("^(?:a|[x-z]|\u00e9)b",
                    "\xC3\xA9"
                    "b"));
  EXPECT_TRUE(whole("a?b*[^c]", "d"));
  EXPECT_TRUE(whole("a?b*[^c]", "\xF4\x8F\xBF\xBF"));
  EXPECT_TRUE(whole("a*$\\n", "\n"));
  EXPECT_TRUE(prefix("a*", "\x01"));
  EXPECT_FALSE(whole("a", "b"));
}

TEST(RegularExpressionTest, TextThatIsNoUtf8NeverMatches) {
  for (const char* bad :
       {"\x80", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF", "\xE2\x82"}) {
    EXPECT_FALSE(whole("[^a]*", bad));
    EXPECT_FALSE(prefix("", bad));
    EXPECT_FALSE(prefix("a", std::string("a") + bad));
    EXPECT_FALSE(prefix("a", std::string("ab") + bad + "c"));
  }
}

TEST(RegularExpressionTest, TheRecordOfABloodPressureMonitor) {
  const RegularExpression record(R"([0-9]{3,4}[A-Z]\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s[0]{0,1})");
  EXPECT_TRUE(record.matchesWhole("000A\n\r+0120\n\r+0080\n\r+0072\n\r"));
  EXPECT_TRUE(record.matchesWhole("0001B\n\r+0120\n\r-0080\n\rx0072\n\r0"));
  EXPECT_FALSE(record.matchesWhole("000A\n\r+0120\n\r+0080\n\r+0072\n\r00"));
  EXPECT_FALSE(record.matchesWhole("000A\n\r+0120\n\r+0080\n\r+0072\n"));
  EXPECT_FALSE(record.matchesWhole("000A\n\r\n0120\n\r+0080\n\r+0072\n\r"));
  EXPECT_FALSE(record.matchesWhole("x000A\n\r+0120\n\r+0080\n\r+0072\n\r"));
  EXPECT_TRUE(RegularExpression(R"([0-9]{4}%\s\s)").matchesWhole("0098%\n\r"));
}

TEST(RegularExpressionTest, RefusesWhatIsNoExpressionAndSaysWhere) {
  EXPECT_EQ(refusal("*a"), "regular expression, at character 1: nothing to repeat");
  EXPECT_EQ(refusal("ab)"), "regular expression, at character 2: ')' without '('");
  EXPECT_EQ(refusal("(ab"), "regular expression, at character 3: '(' without ')'");
  EXPECT_EQ(refusal("\xC3\xA9\x80"), "regular expression, at character 1: the pattern is not valid UTF-8");
  for (const char* pattern :
       {"*",   "a**",  "+a",   "?",     "(*a)",        "a|*",       "{2}",     "a{2}{3}",
        "a}",  "a{",   "a{}",  "a{,2}", "a{2",         "a{2,1}",    "a{1001}", "a{99999999999999999999}",
        "[",   "[]",   "[^]",  "[a",    "[b-a]",       "[a-\\d]",   "\\",      "[\\",
        "\\x", "\\x4", "\\x{", "\\x{}", "\\x{110000}", "\\x{D800}", "\\x{41",  "\\u12",
        "\xFF"}) {
    EXPECT_NE(refusal(pattern), "accepted") << pattern;
  }
}

TEST(RegularExpressionTest, RefusesTheSyntaxThatItDoesNotHave) {
  for (const char* pattern : {"(a)\\1", "(?=a)",  "(?!a)",  "(?<=a)", "(?i)a", "(?<n>a)",    "\\b",
                              "\\B",    "\\p{L}", "\\Q",    "\\0",    "\\c",   "a++",        "a*+",
                              "a?+",    "a{2}+",  "[a&&b]", "[a--b]", "[[a]]", "[[:alpha:]]"}) {
    EXPECT_NE(refusal(pattern), "accepted") << pattern;
  }
}

TEST(RegularExpressionTest, RefusesExpressionsThatGrowTooLarge) {
  EXPECT_THAT(refusal("((a{1000}){1000}){1000}"), testing::HasSubstr("too large"));
  EXPECT_THAT(refusal("(((a?){1000}){1000}){0,1000}"), testing::HasSubstr("too large"));
  EXPECT_THAT(refusal(std::string(100'000, '(') + std::string(100'000, ')')),
              testing::HasSubstr("nested too deep"));
  EXPECT_EQ(refusal(std::string(63, '(') + std::string(63, ')')), "accepted");
}

TEST(RegularExpressionTest, ALongTextNeedsNoStackAndNoExponentialTime) {
  const std::string text(200'000, 'a');
  EXPECT_TRUE(whole("(a|b)*", text));
  EXPECT_FALSE(whole("(a*)*b", text));
  EXPECT_FALSE(whole("(a|aa)+c", text));
  EXPECT_FALSE(whole("(.*.*.*)*\\x{00}", text));
  EXPECT_TRUE(prefix("(a*)*$", text));
}

// The standard library's engine as the judge, on the syntax that both share.
TEST(RegularExpressionTest, AgreesWithAnotherEngineOnRandomExpressions) {
  std::mt19937 random(20240301);
  const auto pick = [&](unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(random); };
  const std::vector<std::string> pieces = {"a",     "b",     ".",      "[ab]", "[^a]",
                                           "(a|b)", "(ab|)", "(?:ba)", "\\d",  "c|"};
  const std::vector<std::string> quantifiers = {"", "", "", "*", "+", "?", "{2}", "{1,2}", "*?"};
  int matches = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string pattern;
    for (unsigned n = pick(5) + 1; n > 0; --n) {
      const std::string& piece = pieces[pick(static_cast<unsigned>(pieces.size()))];
      pattern += piece;
      if (piece.back() != '|') pattern += quantifiers[pick(static_cast<unsigned>(quantifiers.size()))];
    }
    const RegularExpression ours(pattern);
    const std::regex theirs(pattern);
    for (int i = 0; i < 20; ++i) {
      std::string text;
      for (unsigned n = pick(7); n > 0; --n) text += "abc1"[pick(4)];
      ASSERT_EQ(ours.matchesWhole(text), std::regex_match(text, theirs)) << pattern << " on " << text;
      ASSERT_EQ(ours.matchesPrefix(text),
                std::regex_search(text, theirs, std::regex_constants::match_continuous))
          << pattern << " on " << text;
      matches += ours.matchesWhole(text) ? 1 : 0;
    }
  }
  EXPECT_GT(matches, 1000);
}

}  // namespace
}  // namespace tarsil
