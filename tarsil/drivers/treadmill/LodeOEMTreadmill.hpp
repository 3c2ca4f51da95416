#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/drivers/treadmill/LodeFrames.hpp"

namespace tarsil {

/// Drives the OEM variant of the Lode treadmill, 19200 baud. A frame is AC 01, command, payload, CRC low
/// byte, CRC high byte.
///
/// Loads go out in km/h and percent, and are reported as the treadmill sends them, in tenths of km/h. What
/// the treadmill sent is never forgotten, and a reply is read from fixed positions of it: the first reply is
/// the one that is reported, each time that more bytes pass the check: a load, that the treadmill is ready,
/// or a refusal (no code, "send failure"). Replies are read only when the port delivers them byte by byte.
///
/// A load reply that passes the check before its grade has come stops the process, and so does a chunk that
/// stands for more than 16 bits when a check reaches it.
class LodeOEMTreadmill final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// Everything that was received, one entry a chunk: upper-case hexadecimal text.
  ReplyEntries<LodeOEMCrc, 12> result;

  void startDeivce() override;
  void stopStressDevice() override;
  /// Speed in km/h, sent in tenths without fraction, and grade in percent, sent without fraction. A value
  /// that is no 64-bit integer then, or one beyond 16 bits, stops the process. Values are not padded: one
  /// that has not two hexadecimal digits shifts the rest of the frame by half a byte.
  void setLoad(float kmph_or_power, float grade) override;
  void requestLoad() override;
  /// The answer is the next load reply, which is then not reported as a load.
  void deviceState() override;

  /// Takes in the next chunk that the treadmill sent, and reports what can be read by now.
  void processReply(ByteView chunk);
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override { processReply(data); }

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }

  void sendCommand(std::string_view code, std::string_view payload) const;
};

}  // namespace tarsil
