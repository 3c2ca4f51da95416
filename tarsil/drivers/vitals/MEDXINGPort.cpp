#include "tarsil/drivers/vitals/MEDXINGPort.hpp"

#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"
#include "tarsil/drivers/vitals/detail/unimplementedInitializer.hpp"

namespace tarsil {
namespace {

constexpr std::string_view className = "MEDXINGPort";

}  // namespace

MEDXINGPort::MEDXINGPort() {
  unimplementedInitializer(className, plainInitializer);
}

MEDXINGPort::MEDXINGPort(const ExerciseDeviceSettings& /*settings*/) {
  unimplementedInitializer(className, exerciseDeviceInitializer);
}

MEDXINGPort::MEDXINGPort(const BPDeviceSettings& /*settings*/) {
  unimplementedInitializer(className, bloodPressureInitializer);
}

void MEDXINGPort::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  MEDXINGFrame::report(data, befoSpO2Value, kiv_delegate);
}

}  // namespace tarsil
