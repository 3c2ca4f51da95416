#pragma once

#include <array>
#include <string>
#include <string_view>

#include "tarsil/codec/Crc16Register.hpp"

namespace tarsil {

/// The check of a Lode treadmill's frames: CRC-16/ARC over their tokens, texts of hexadecimal digits that
/// stand for one byte each. A token that is not exactly two characters long is left out: the treadmill is
/// driven so.
class LodeCrc {
 public:
  void add(std::string_view token);
  /// Low byte, then high byte, as two upper-case hexadecimal digits each.
  std::array<std::string, 2> text() const { return crc_.text(); }

 private:
  Crc16Register crc_;
};

}  // namespace tarsil
