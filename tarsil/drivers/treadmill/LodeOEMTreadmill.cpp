#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"

#include <cstddef>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/support/hexText.hpp"
#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/truncation.hpp"

namespace tarsil {
namespace {

// Command codes. "0D" belongs to them too; nothing sends it.
constexpr std::string_view start = "0B";
constexpr std::string_view stop = "0C";
constexpr std::string_view requestState = "0A";
constexpr std::string_view load = "09";

constexpr std::string_view noPayload = "00 00";

// Reply kinds.
constexpr std::string_view refused = "EF";
constexpr std::string_view loadOrState = "0A";

constexpr std::size_t shortestReply = 6;
constexpr std::size_t entriesUpToSpeed = 10;
constexpr std::size_t entriesUpToGrade = 12;

float numberOf(const std::string& high, const std::string& low) {
  return static_cast<float>(BinaryDecimalHex::getDecimalToHex(high + low));
}

}  // namespace

void LodeOEMTreadmill::startDeivce() {
  sendCommand(start, noPayload);
}

void LodeOEMTreadmill::stopStressDevice() {
  sendCommand(stop, noPayload);
}

void LodeOEMTreadmill::requestLoad() {
  sendCommand(requestState, noPayload);
}

void LodeOEMTreadmill::deviceState() {
  isState = true;
  sendCommand(requestState, noPayload);
}

void LodeOEMTreadmill::setLoad(float kmph_or_power, float grade) {
  const std::int64_t tenths = truncatedOrStop(kmph_or_power * 10.0F, "ten times the speed in km/h");
  // Not in tenths like the speed: this treadmill takes whole percents.
  const std::int64_t percent = truncatedOrStop(grade, "grade in percent");
  sendCommand(load, "00 0D 01 00 00 00 " + hexadecimalText(tenths) + " 00 " + hexadecimalText(percent) +
                        " 00 00 00 00 00 00");
}

void LodeOEMTreadmill::sendCommand(std::string_view code, std::string_view payload) const {
  std::string frame = "AC 01 ";
  frame.append(code).append(" ").append(payload);
  const auto [low, high] = crcOf<LodeOEMCrc>(frame).textOrStop();
  sendHex(withoutBlanks(frame) + low + high);
}

void LodeOEMTreadmill::processReply(ByteView chunk) {
  result.append(upperHexText(chunk));
  if (result.count() < shortestReply) return;
  if (!result.endsWith(result.crcOfAllButLast().textOrStop())) return;

  const std::string& kind = result.at<2>();
  // Without a code: the treadmill does not say why.
  if (kind == refused) kiv_delegate.onErrorWithCode("", "send failure");
  if (kind != loadOrState) return;

  if (isState) {
    isState = false;
    kiv_delegate.deviceIsReadyWithIsReady(true);
    return;
  }
  if (result.count() < entriesUpToSpeed) fatalError("Lode OEM treadmill: a load reply ends before its speed");
  const float speed = numberOf(result.at<8>(), result.at<9>());
  if (result.count() < entriesUpToGrade) fatalError("Lode OEM treadmill: a load reply ends before its grade");
  const float grade = numberOf(result.at<10>(), result.at<11>());
  kiv_delegate.onReceivedTreadmillLoadWithSpeed(speed, grade);
}

}  // namespace tarsil
