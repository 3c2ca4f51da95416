#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Conversions between bytes and texts of hexadecimal and binary digits. The drivers write their frames as
/// hexadecimal text ("494e49540a0d" stands for 49 4E 49 54 0A 0D) and read replies in the same form.
/// Characters are Unicode code points. Pure functions, any thread.
class BinaryDecimalHex {
 public:
  /// Four binary digits for each hexadecimal digit of either case; every other character is skipped.
  /// "1f" and "1 f" give "00011111".
  static std::string getBinaryByHex(std::string_view hex);

  /// The number that binary digits stand for. Only "1" counts as one, every other character is a zero in its
  /// place: "102" gives 4. The sum is rounded to 53 significant bits after each digit, from the last to the
  /// first, and stays at the largest 64-bit integer once it reaches 2^63.
  static std::int64_t getDecimalByBinary(std::string_view binary);

  /// One upper-case hexadecimal digit for every four binary digits; "(null)" for four characters that are no
  /// such group. Throws std::out_of_range when the length is no multiple of four.
  static std::string BinaryToHex(std::string_view binary);

  /// The number that hexadecimal digits stand for (the name says the opposite). Other characters are skipped:
  /// "1G" gives 1. Rounds and saturates as `getDecimalByBinary` does.
  static std::int64_t getDecimalToHex(std::string_view hex);

  /// The bytes as UTF-8 text; none when they are not valid UTF-8.
  static std::optional<std::string> getDataForString(ByteView data);

  /// Two lower-case hexadecimal digits a byte; the empty text for no bytes.
  static std::string hexStringFromData(ByteView data);

  /// The bytes that pairs of hexadecimal digits of either case stand for; none for the empty text. With an
  /// odd number of characters the first stands alone: "abc" gives 0A BC. A pair gives the value of the digits
  /// that it begins with ("3." gives 03); one that begins with no digit repeats the byte before it, or gives
  /// 00 when it comes first.
  static std::optional<Bytes> convertHexStrToData(std::string_view hex);
};

/// The code point of the first character ("A" gives 65); 0 for an empty text and for one that begins with no
/// valid character.
std::int64_t ascii(std::string_view text);

}  // namespace tarsil
