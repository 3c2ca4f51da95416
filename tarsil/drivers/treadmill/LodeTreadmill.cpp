#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/support/hexText.hpp"
#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/truncation.hpp"

namespace tarsil {
namespace {

using Command = LodeTreadmill::Command;

constexpr std::string_view STX = "02";
constexpr std::string_view ETX = "03";
constexpr std::string_view accepted = "80";
constexpr std::string_view isReady = "01";
constexpr std::string_view notInTerminalMode = "40";
constexpr std::size_t shortestReply = 6;
// At exactly this length a pressure would be read from an entry that is not there; every other is left alone.
constexpr std::size_t unreadablePressureReply = 15;
constexpr float unknown = -1.0F;

// In the order of the cases.
constexpr std::array<std::string_view, 21> codes = {
    "00", "01", "03", "05", "07", "09", "0B", "41", "43", "02", "04",  //
    "06", "08", "0A", "42", "44", "0C", "0E", "10", "22", "24"};

struct Refusal {
  Command command;
  std::string_view status;
  std::string_view message;
};

constexpr Refusal refusals[] = {
    {Command::START, "01", "treadmill could not be started, there is an error"},
    {Command::START, "02", "treadmill could not be started, emergency stop active"},
    {Command::START, "03", "treadmill could not be started, other issue"},
    {Command::STOP, "01", "there is an error"},
    {Command::STOP, "02", "other issue"},
    {Command::SET_SPEED, "01", "treadmill could not set target, there is an error"},
    {Command::SET_SPEED, "02", "treadmill could not set target, no session active"},
    {Command::SET_SPEED, "04", "treadmill could not set speed target, out of range"},
    {Command::SET_SPEED, "08", "treadmill could not set speed, emergency stop active"},
    {Command::SET_ELEVATION, "01", "treadmill could not set targets, there is an error"},
    {Command::SET_ELEVATION, "02", "treadmill could not set targets, no session active"},
    {Command::SET_ELEVATION, "04", "treadmill could not set elevation target, out of range"},
    {Command::SET_ELEVATION, "08", "treadmill could not set elevation, emergency stop active"},
    // The treadmill has no text of its own for a refused emergency stop; it shares the one of its reset.
    {Command::TRIGGER_STOP, "01", "reset emergency stop state could not be issued, there is an error"},
    {Command::RESET, "01", "reset emergency stop state could not be issued, there is an error"},
    {Command::RESET, "02", "reset emergency stop state could not be issued, emergency stop circuit open"},
    {Command::RESET, "03", "reset emergency stop state could not be issued, other issue"},
    {Command::START_BPM, "01", "blood pressure measurement could not be started, there is an error"},
    {Command::START_BPM, "02", "blood pressure measurement could not be started, option not available"},
    {Command::ABORT_BPM, "01", "blood pressure measurement could not be aborted, there is an error"},
    {Command::ABORT_BPM, "02", "blood pressure measurement could not be aborted, option not available"},
};

/// Empty when there are no words for it.
std::string_view refusalMessage(std::optional<Command> command, std::string_view status) {
  if (!command) return "";
  if (status == notInTerminalMode && *command >= Command::START && *command <= Command::ABORT_BPM)
    return "treadmill not in terminal mode";
  for (const Refusal& refusal : refusals) {
    if (refusal.command == *command && refusal.status == status) return refusal.message;
  }
  return "";
}

/// The data of a load frame: 00, then the tenths. The first byte is 00 even for a value that would need it.
/// Nothing guards it: above 255 tenths the text has three digits, below zero it has a minus sign.
std::string tenthsData(float value, std::string_view what) {
  const std::string tenths = hexadecimalText(truncatedOrStop(value * 10.0F, what));
  return "00 " + (tenths.size() == 1 ? "0" + tenths : tenths);
}

}  // namespace

std::string_view LodeTreadmill::rawValue(Command command) {
  return codes[static_cast<std::size_t>(command)];
}

std::optional<Command> LodeTreadmill::commandFromRawValue(std::string_view rawValue) {
  const auto code = std::find(codes.begin(), codes.end(), rawValue);
  if (code == codes.end()) return std::nullopt;
  return static_cast<Command>(code - codes.begin());
}

void LodeTreadmill::setLoad(float kmph_or_power, float grade) {
  // Both before anything is sent: an impossible grade must not leave the belt with half a load.
  const std::string speedData = tenthsData(kmph_or_power, "ten times the speed in km/h");
  const std::string gradeData = tenthsData(grade, "ten times the grade in percent");
  send(Command::SET_SPEED, "02", speedData);
  send(Command::SET_ELEVATION, "02", gradeData);
}

void LodeTreadmill::requestLoad() {
  // The speed stays: only a new grade lets the pair be reported again.
  requestGrade = unknown;
  send(Command::REAL_SPEED);
  send(Command::REAL_ELEVATION);
}

void LodeTreadmill::deviceState() {
  isState = true;
  send(Command::STATUS);
}

void LodeTreadmill::send(Command command, std::string_view length, std::string_view data) {
  currentCommand = command;
  std::string frame;
  for (const std::string_view part : {STX, rawValue(command), length, data}) {
    frame += part;
    frame += ' ';
  }
  const auto [low, high] = crcOf<LodeCrc>(frame).text();
  sendHex(withoutBlanks(frame) + low + high + std::string(ETX));
}

void LodeTreadmill::processReply(ByteView chunk) {
  result.append(upperHexText(chunk));
  if (result.count() < shortestReply) return;
  // The check's own low byte is among the bytes that it is taken over: these are the replies that count.
  if (!result.endsWith(result.crcOfAllButLast().text())) return;

  StressECGDeviceManager::share();  // exists from the first accepted reply on
  const std::string code = result.at<1>();
  const std::string status = result.at<2>();
  if (status != accepted) return reportError(status);

  // Never so: whatever is not "80" is an error above.
  if (code == rawValue(Command::STATUS) && status == isReady) {
    kiv_delegate.deviceIsReadyWithIsReady(true);
    result.clear();
  }
  if (code == rawValue(Command::REAL_SPEED) || code == rawValue(Command::REAL_ELEVATION)) {
    float& value = code == rawValue(Command::REAL_SPEED) ? requestSpeed : requestGrade;
    value = static_cast<float>(BinaryDecimalHex::getDecimalToHex(result.at<4>() + result.at<5>()));
    result.clear();
  }
  // After every accepted reply, so that an acknowledgement repeats a load that is known. In tenths, although
  // loads are set in km/h and percent: the host expects them so.
  if (requestGrade != unknown && requestSpeed != unknown)
    kiv_delegate.onReceivedTreadmillLoadWithSpeed(requestSpeed, requestGrade);

  if (code != rawValue(Command::BPM)) return result.clear();
  // A blood pressure is not decoded, and stays in front of whatever comes next.
  if (result.count() == unreadablePressureReply)
    fatalError("Lode treadmill: a blood-pressure reply of fifteen entries cannot be read");
}

void LodeTreadmill::reportError(const std::string& status) {
  // The words follow the command sent last, which need not be the one that the treadmill answers.
  const std::string message(refusalMessage(currentCommand, status));
  result.clear();
  kiv_delegate.onErrorWithCode(status, message);
}

}  // namespace tarsil
