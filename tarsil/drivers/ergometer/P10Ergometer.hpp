#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/SerialDriver.hpp"
#include "tarsil/drivers/ergometer/P10Reply.hpp"

namespace tarsil {

/// What the bicycle ergometers of the P10 protocol have in common, 4800 baud: the commands, one or two ASCII
/// characters and a carriage return, and the blood pressure that the ergometer measures itself. A model adds
/// its start command and says what it does with a reply.
///
/// A value that is no number stops the process. So does, after `startBP()`, a reply that is complete before a
/// pressure has come: there is no honest value to report. No error and no readiness is ever reported.
class P10Ergometer : public SerialDriver {
 public:
  using SerialDriver::SerialDriver;

  /// How the machine's replies are cut. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming();

  /// Nothing uses it.
  bool isRequest = false;
  /// mmHg, from the last "O" and "U" reply until they are reported as a pair.
  std::optional<float> p10SBP;
  std::optional<float> p10DBP;
  /// A pressure has been asked for, or both its values were there: the next reply must bring it.
  bool isBPCommand = false;
  /// Nothing uses it.
  std::uint8_t type = 0;
  /// What the ergometer sent.
  P10Reply result;

  /// Power in watts; the grade means nothing to a bicycle. A power that is no 64-bit integer stops the
  /// process.
  void setLoad(float kmph_or_power, float grade) override;
  /// Asks in two commands, the second 0.1 s after the first, on the calling thread's run loop and to the port
  /// of that moment. The driver lives until then.
  void requestLoad() override;
  void stopStressDevice() override;
  /// In two commands as well.
  void startBP() override;
  /// The protocol cannot abort a measurement: sends nothing.
  void breakBP() override;
  void requestBP() override;

  /// Stores the pressure of reply "O" (systolic) or "U" (diastolic), nothing for another key. True when both
  /// are there.
  bool setBPValue(std::string_view key, float value);
  /// Takes in the next piece of the ergometer's text and reports what can be read from it.
  virtual void processReply(std::string_view text) = 0;

 protected:
  /// Reads the pressures out of `result` and reports them, with status 0, to the shared manager's delegate.
  void processPressure();

 private:
  void sendTextLater(std::string text);
};

}  // namespace tarsil
