#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil {

/// Drives a TrackMaster treadmill, 4800 baud: command bytes with values as ASCII digits, speeds in miles per
/// hour on the wire and km/h towards the host, in tenths; grades in percent. It reports loads,
/// acknowledgements, refusals and readiness. Its load settings, load requests, replies and reports are
/// written to the traffic log.
///
/// A stop brings the belt to rest first and sends the stop command when the treadmill reports that it stands;
/// a new load cancels it. Load requests go out at most every 0.8 s.
///
/// Bytes that hold no known reply block the thread that delivers them for ever.
class TrackMaster final : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// What was received and not yet consumed: upper-case hexadecimal text.
  std::string result;
  /// Nothing uses it.
  bool isSpeed = true;
  /// A stop is in progress.
  bool isStop = false;
  /// During a stop: the last reported speed and grade were both 0.
  bool isStaticState = false;
  /// When the last load request was sent.
  std::optional<Clock::Instant> beforDate;
  /// Asks every second whether the belt stands.
  std::shared_ptr<Timer> timer;
  /// Nothing uses it.
  bool isBegin = false;
  /// Flushes the traffic log every 3 s, from the first reply on.
  std::shared_ptr<Timer> fileTimer;

  void startDeivce() override { sendHex("A1"); }
  /// Sends speed 0 and grade 0, asks every second how the belt moves, and sends the stop command once both
  /// are reported as 0. A belt that stood at the end of the stop before is taken to stand: it gets the stop
  /// command after the first second. No load is reported meanwhile. Does nothing while a stop is in progress.
  /// The driver lives until the stop is done.
  void stopStressDevice() override;
  /// Speed in km/h: 0, or 0.7 to 19; grade in percent, sent without its fraction: 0, or 0.5 to below 26. A
  /// value beyond is refused with error "01" and not sent, the other one is; one below zero is not refused
  /// and goes out garbled. One that is no number stops the process, and so does a grade whose tenths are no
  /// 64-bit integer.
  void setLoad(float kmph_or_power, float grade) override;
  /// Does nothing within 0.8 s of the last request.
  void requestLoad() override;
  /// The answer is the next speed reply (ready), which is then not decoded, or any refusal until then (not
  /// ready).
  void deviceState() override;

  /// One tick of a stop.
  void stoping();

  /// Takes in the next chunk that the treadmill sent, and reports what can be read by now.
  void processReply(ByteView chunk);
  void serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) override { processReply(data); }

 private:
  ORSSerialPortDelegateRef portDelegate() override { return itself(*this); }

  void sendSpeed(float kmph);
  void sendGrade(float percent);
  void sendLoadRequest();
  void askForSpeedAndGrade() const;

  void startFlushing();
  /// Drops what no reply begins with and tells the code that then stands in front; does not return when there
  /// is none.
  std::string_view scanForCode();
  void refuse(const std::string& details);
  void readLoad();
  void reportLoad();
  bool resultBeginsWith(std::string_view code) const;
  std::optional<float> takeNumber();
  void drop(std::size_t characters);

  // What is logged of each chunk, often of each byte, laid out in place.
  std::string record_;
};

}  // namespace tarsil
