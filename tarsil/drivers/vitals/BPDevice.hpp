#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/drivers/vitals/Tango_Type.hpp"

namespace tarsil {

/// Drives a Tango blood-pressure monitor on a port of its own, 9600 baud: commands of four letters, line
/// feed, carriage return. Pressures, in mmHg, reach `kiv_delegate`; their status is 0 for a plausible
/// reading, 1 for a systolic above 223, 2 for a systolic that is not above the diastolic, 3 for a zero or
/// when the monitor has initialised itself, and 4 for every reading that `requestBP()` fetched. No error and
/// no readiness is ever reported; text that never completes a record is never heard of.
///
/// A record in which line feed and carriage return part fewer than three groups, other blanks the rest, stops
/// the process.
class BPDevice final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// The last characters received since a record or the initialisation echo was complete, as many as can
  /// still count.
  std::string taskJoint;
  /// The next `startBP()` initialises the monitor first.
  bool isINIT = true;
  /// Nothing uses it.
  bool isBPcommand = true;
  /// The last command, until a record has come; it decides how replies are read.
  std::optional<Tango_Type> type;

  /// The first call only initialises the monitor, or is dropped when there is no port; every later one starts
  /// a measurement.
  void startBP() override;
  void breakBP() override;
  /// Fetches the last reading.
  void requestBP() override;
  void clearBP() override;
  /// Goes out at once, also while a command waits for its echo. The answer is read only when `type` is
  /// `SPO2`, which no command makes it.
  void requestSpO2() override;

  /// Sends the command as a request that waits 1.0 s for its own echo, and behind those that still wait.
  /// Nobody reads that echo as such.
  void sendTangoCommand(std::string_view hexText, Tango_Type newType);
  /// Takes in the next chunk and reports what it completes. A chunk that is no UTF-8 is dropped.
  void processReply(ByteView data);

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }

  void processSpO2();
  void processInitialisationEcho();
  void processRecord();
};

}  // namespace tarsil
