#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/drivers/vitals/Tango_Type.hpp"

namespace tarsil {

/// Drives a Tango blood-pressure monitor on a port of its own, 9600 baud. Results reach `kiv_delegate`; the
/// status of a pressure is 0 for a plausible reading, 1 for a systolic above 223 mmHg, 2 for a systolic that
/// is not above the diastolic, 3 for a zero or when the monitor has initialised itself, and 4 for every
/// reading that `requestBP()` fetched.
class BPDevice final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// The last characters received since a record or the initialisation echo was complete, as many as can
  /// still count.
  std::string taskJoint;
  /// The next `startBP()` initialises the monitor first.
  bool isINIT = true;
  /// Nothing uses it.
  bool isBPcommand = true;
  /// The last command, until a record has come; it decides how replies are read.
  std::optional<Tango_Type> type;

  /// The first call only initialises the monitor; every later one starts a measurement.
  void startBP() override;
  void breakBP() override;
  void requestBP() override;
  void clearBP() override;
  void requestSpO2() override;

  /// Sends the command as a request that waits 1.0 s for its own echo. Nobody reads that echo as such.
  void sendTangoCommand(std::string_view hexText, Tango_Type newType);
  /// Takes in the next chunk and reports what it completes. A chunk that is no UTF-8 is dropped.
  void processReply(ByteView data);

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

 private:
  void processSpO2();
  void processInitialisationEcho();
  void processRecord();
};

}  // namespace tarsil
