#include "tarsil/drivers/ergometer/ErgolineP10.hpp"

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

using HostSelector = KivStressPortDelegate::Selector;

void ErgolineP10::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  // Bytes that are no UTF-8 are no reply; they are printed all the same, for whoever looks for the noise.
  if (const auto text = BinaryDecimalHex::getDataForString(data)) processReply(*text);
  printLine(BinaryDecimalHex::hexStringFromData(data), PrintedText::diagnostic);
}

// The text is never emptied: once a marker has been seen, every later reception reports again, and always the
// number behind the very first marker.
void ErgolineP10::processReply(std::string_view text) {
  result.append(text);
  if (!result.contains('\r')) return;
  // A field that nobody asked for is not read, so that it cannot stop the process.
  if (result.contains('B')) {
    const auto& host = StressECGDeviceManager::share().delegate;
    if (host.respondsTo(HostSelector::onReceivedErgometerPowerWithPower))
      host.onReceivedErgometerPowerWithPower(result.numberOrStop());
  }
  if (result.contains('n')) {
    const auto& host = StressECGDeviceManager::share().delegate;
    if (host.respondsTo(HostSelector::onReceivedErgometerRpmWithRpm))
      host.onReceivedErgometerRpmWithRpm(result.numberOrStop());
  }
  processPressure();
}

}  // namespace tarsil
