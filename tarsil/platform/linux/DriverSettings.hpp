#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarsil {

/// A terminal's settings as its driver keeps them. Stands between the kernel's own header and <termios.h>,
/// which no source can include together; the flags have the values of both.
struct DriverSettings {
  static constexpr std::size_t controlCharacterCount = 19;

  std::uint32_t inputModes = 0;
  std::uint32_t outputModes = 0;
  /// Without the bits that stand for a speed.
  std::uint32_t controlModes = 0;
  std::uint32_t localModes = 0;
  std::uint8_t lineDiscipline = 0;
  std::array<std::uint8_t, controlCharacterCount> controlCharacters{};
  /// Both directions, bit/s.
  std::uint32_t speed = 0;
};

}  // namespace tarsil
