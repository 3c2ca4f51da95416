#include "tarsil/drivers/vitals/SpO2Device.hpp"

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/drivers/vitals/detail/unimplementedInitializer.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

constexpr std::string_view className = "SpO2Device";

}  // namespace

SpO2Device::SpO2Device(const SpO2DeviceSettings& settings) : SerialDriver(settings) {
  printLine("create SpO2", PrintedText::fixed);
}

SpO2Device::SpO2Device() {
  unimplementedInitializer(className, plainInitializer);
}

SpO2Device::SpO2Device(const ExerciseDeviceSettings& /*settings*/) {
  unimplementedInitializer(className, exerciseDeviceInitializer);
}

SpO2Device::SpO2Device(const BPDeviceSettings& /*settings*/) {
  unimplementedInitializer(className, bloodPressureInitializer);
}

void SpO2Device::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  printLine(BinaryDecimalHex::hexStringFromData(data), PrintedText::diagnostic);
  printLine(BinaryDecimalHex::getDataForString(data).value_or("no UTF-8 text"), PrintedText::diagnostic);
}

}  // namespace tarsil
