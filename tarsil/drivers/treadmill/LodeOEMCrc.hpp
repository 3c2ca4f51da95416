#pragma once

#include <array>
#include <string>
#include <string_view>

#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil {

/// The check of a Lode OEM treadmill's frames: CRC-16/ARC over the low bytes of their tokens, texts of
/// hexadecimal digits. The reverse of `LodeCrc`: exactly the tokens of two characters are left out, so that a
/// well-formed frame has the check 00 00. The treadmill is driven so.
class LodeOEMCrc {
 public:
  void add(std::string_view token);
  /// Low byte, then high byte, as two upper-case hexadecimal digits each. Stops the process when a token
  /// stood for more than 16 bits.
  std::array<std::string, 2> textOrStop() const;

 private:
  Crc16Register crc_;
  // Not noticed before the check is asked for: a reply's first entries may be anything until then.
  bool exceeded16Bits_ = false;
};

}  // namespace tarsil
