#pragma once

#include <optional>
#include <string>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// One measurement of a MEDXING oximeter, over a serial line and over Bluetooth alike: bytes 4 and 5 are 23
/// 95 (hexadecimal), byte 8 is the oxygen saturation in percent. Any thread.
struct MEDXINGFrame {
  /// The two lower-case hexadecimal digits of the saturation byte, or "范围越界" when the frame ends before
  /// it.
  std::string saturationText;
  /// In percent, 0 to 100; -1, no saturation, when the oximeter sends more than 100 or the frame ends before
  /// it.
  float saturation;

  /// The frame that `chunk` is; none when it is no measurement. Each chunk is looked at by itself: the parts
  /// of a frame that was split are no measurements.
  static std::optional<MEDXINGFrame> parse(ByteView chunk);

  /// Tells the host the saturation that `chunk` brings, with status 1, unless it is the one told last; two
  /// different ones above 100, or one and a frame that ends too soon, are told apart, as -1 each.
  /// `befoSpO2Value` is the `saturationText` told last; it is set before the host is called.
  static void report(ByteView chunk, std::string& befoSpO2Value, const KivStressPortDelegateRef& host);
};

}  // namespace tarsil
