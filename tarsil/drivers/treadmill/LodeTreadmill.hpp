#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/drivers/treadmill/LodeFrames.hpp"

namespace tarsil {

/// Drives a Lode treadmill in terminal mode, 38400 baud. A frame is STX, command, data length, data, CRC low
/// byte, CRC high byte, ETX.
///
/// Loads go out in km/h and percent. They are reported as the treadmill sends them, in tenths of both, once
/// both are known, and then again with every accepted reply until the next `requestLoad()`. A refusal is
/// reported with its status as the code and with the words for the command sent last, or none. Readiness,
/// blood pressures and saturations are never reported. Replies are read only when the port delivers them byte
/// by byte.
class LodeTreadmill final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// The treadmill's commands; the driver sends some of them.
  enum class Command {
    normal,
    START,
    STOP,
    SET_SPEED,
    SET_ELEVATION,
    TRIGGER_STOP,
    RESET,
    START_BPM,
    ABORT_BPM,
    STATUS,
    GET_SPEED,
    GET_ELEVATION,
    REAL_SPEED,
    REAL_ELEVATION,
    BPM_STATUS,
    BPM,
    HR,
    SPO2,
    SESSION_TIME_DISTANCE,
    MIN_MAX_SPEED_RANGE,
    MIN_MAX_ELEVATION
  };
  /// The command's code on the wire, two hexadecimal digits.
  static std::string_view rawValue(Command command);
  /// None for a text that is no command's code.
  static std::optional<Command> commandFromRawValue(std::string_view rawValue);

  /// The command sent last, whether or not there was a port. It chooses the text of an error.
  std::optional<Command> currentCommand;
  /// The reply so far, one entry a chunk: upper-case hexadecimal text.
  ReplyEntries<LodeCrc, 6> result;

  void startDeivce() override { send(Command::START); }
  void stopStressDevice() override { send(Command::STOP); }
  /// Speed in km/h and grade in percent, both sent in tenths without fraction. A value whose tenths are no
  /// 64-bit integer stops the process; one above 25.5 or below zero goes out as a garbled frame.
  void setLoad(float kmph_or_power, float grade) override;
  /// Asks for speed and grade back to back. Neither is reported before the new grade has come.
  void requestLoad() override;
  /// Sets `isState`, which nothing clears.
  void deviceState() override;
  void startBP() override { send(Command::START_BPM); }
  void breakBP() override { send(Command::ABORT_BPM); }
  /// The treadmill's answer is not decoded.
  void requestBP() override { send(Command::BPM); }
  /// The treadmill's answer is not decoded.
  void requestSpO2() override { send(Command::SPO2); }

  /// Takes in the next chunk that the treadmill sent, and reports what can be read by now.
  void processReply(ByteView chunk);
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override { processReply(data); }

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }

  void send(Command command, std::string_view length = "00", std::string_view data = "");
  void reportError(const std::string& status);
};

}  // namespace tarsil
