#include "tarsil/drivers/ergometer/LodeErgometer38K4.hpp"

#include "tarsil/support/numberText.hpp"

namespace tarsil {

// "3" before a digit is that digit's ASCII code. The point among the three characters gives the pair "3.",
// which the conversion to bytes reads as 03: this ergometer is driven so.
void LodeErgometer38K4::setLoad(float kmph_or_power, float /*grade*/) {
  const std::string watts = "0000" + decimalText(kmph_or_power);
  std::string digits;
  for (const char character : watts.substr(watts.size() - 3)) digits += {'3', character};
  sendCommand(1, "312C5350" + digits + "0D");
}

void LodeErgometer38K4::requestLoad() {
  sendCommand(2, "312C504D0D");
  sendCommand(4, "312C524D0D");
}

void LodeErgometer38K4::sendCommand(std::uint8_t code, std::string_view hex) {
  type = code;
  sendHex(hex);
}

}  // namespace tarsil
