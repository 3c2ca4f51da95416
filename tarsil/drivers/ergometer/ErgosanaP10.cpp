#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"

#include "tarsil/codec/BinaryDecimalHex.hpp"

namespace tarsil {

using HostSelector = KivStressPortDelegate::Selector;

void ErgosanaP10::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  // Bytes that are no UTF-8 are no reply.
  if (const auto text = BinaryDecimalHex::getDataForString(data)) processReply(*text);
}

// A power or pedal rate empties the text, heard or not, so each is reported once; a pressure leaves it, so
// every later reception reports a pair again. Markers that share a text with a "B" are lost with it.
void ErgosanaP10::processReply(std::string_view text) {
  result.append(text);
  if (!result.contains('\r')) return;
  // A field that nobody asked for is not read, so that it cannot stop the process.
  if (result.contains('B')) {
    const auto& host = kiv_delegate;
    if (host.respondsTo(HostSelector::onReceivedErgometerPowerWithPower))
      host.onReceivedErgometerPowerWithPower(result.numberOrStop());
    result.clear();
  }
  if (result.contains('n')) {
    const auto& host = kiv_delegate;
    if (host.respondsTo(HostSelector::onReceivedErgometerRpmWithRpm))
      host.onReceivedErgometerRpmWithRpm(result.numberOrStop());
    result.clear();
  }
  processPressure();
}

}  // namespace tarsil
