#include "tarsil/drivers/SerialDriver.hpp"

#include <utility>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/Error.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {

void SerialDriver::setSerialPort(std::shared_ptr<ORSSerialPort> newPort) {
  if (newPort && weak_from_this().expired())
    fatalError("a driver becomes its port's delegate, so it must live in a std::shared_ptr");
  const auto delegate = newPort ? portDelegate() : nullptr;
  KivStressDevice::setSerialPort(std::move(newPort));
  if (serialPort()) serialPort()->setDelegate(delegate);
}

void SerialDriver::serialPortWasOpened(ORSSerialPort& /*port*/) {
  kiv_delegate.portWasOpened();
}

void SerialDriver::serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) {
  kiv_delegate.portWasRemovedFromSystem();
}

void SerialDriver::serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& error) {
  printLine(error.description(), PrintedText::diagnostic);
}

void SerialDriver::sendHex(std::string_view hex) const {
  const auto bytes = BinaryDecimalHex::convertHexStrToData(hex);
  if (bytes && serialPort()) serialPort()->sendData(*bytes);
}

void SerialDriver::sendText(std::string_view text) const {
  if (serialPort()) serialPort()->sendData(Bytes(text.begin(), text.end()));
}

}  // namespace tarsil
