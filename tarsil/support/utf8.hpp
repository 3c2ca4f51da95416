#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

/// Text as UTF-8, counted and cut by characters. A character is a Unicode code point; in bytes that are no
/// UTF-8 every byte that belongs to no code point counts as a character of its own, so that every text can be
/// walked. The views that come back look into the text that was handed in. Any thread.
namespace tarsil::utf8 {

/// Strict: no overlong forms, no surrogates, nothing above U+10FFFF. The empty text is valid.
bool isValid(std::string_view bytes);

std::size_t characterCount(std::string_view text);

/// The first character, empty only when the text is.
std::string_view firstCharacter(std::string_view text);
/// The last character, empty only when the text is. Costs the same however long the text is.
std::string_view lastCharacter(std::string_view text);

/// The code point that the text begins with; none when the text is empty or begins with no valid one.
std::optional<char32_t> firstScalar(std::string_view text);

/// `count` characters from position `first` (from 0) on; fewer, or none, where the text ends before.
/// Costs as much as the characters up to there, whatever follows.
std::string_view characters(std::string_view text, std::size_t first, std::size_t count);
/// The last `count` characters, or the whole text when it has no more. Costs as much as these characters.
std::string_view lastCharacters(std::string_view text, std::size_t count);

}  // namespace tarsil::utf8
