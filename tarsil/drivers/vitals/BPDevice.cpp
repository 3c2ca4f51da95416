#include "tarsil/drivers/vitals/BPDevice.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/regex/RegularExpression.hpp"
#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialRequest.hpp"
#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/utf8.hpp"

namespace tarsil {
namespace {

constexpr std::string_view endOfGroup = "\n\r";
constexpr std::string_view initialisationEcho = "INITR\n\r00000\n\r00000\n\r00000\n\r";
// In characters.
constexpr std::size_t shortestRecord = 27;
constexpr std::size_t longestRecord = 29;
// A text that grew this long can only be ended by the echo, and is judged the same whatever came before.
constexpr std::size_t countingCharacters = longestRecord + 1;

constexpr double echoTimeout = 1.0;
constexpr float highestPlausibleSystolic = 223;

// Statuses of a reading; one of the oxygen saturation is always 1.
constexpr std::int64_t plausible = 0;
constexpr std::int64_t tooHigh = 1;
constexpr std::int64_t notAboveDiastolic = 2;
constexpr std::int64_t noReading = 3;
constexpr std::int64_t fetched = 4;
constexpr std::int64_t saturationMeasured = 1;

const RegularExpression& recordExpression() {
  static const RegularExpression expression(
      R"([0-9]{3,4}[A-Z]\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s.[0-9]{4}\s\s[0]{0,1})");
  return expression;
}

const RegularExpression& saturationExpression() {
  static const RegularExpression expression(R"([0-9]{4}%\s\s)");
  return expression;
}

std::vector<std::string_view> splitAtEndsOfGroups(std::string_view text) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(endOfGroup);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + endOfGroup.size());
  }
}

// Most texts are too short or too long, which is quicker to see than what they are.
bool isRecord(std::string_view text) {
  const std::size_t length = utf8::characterCount(text);
  return length >= shortestRecord && length <= longestRecord && recordExpression().matchesWhole(text);
}

// The first that holds counts: a systolic above 223 with a zero diastolic is too high, not missing.
std::int64_t statusOf(float systolic, float diastolic) {
  if (systolic > highestPlausibleSystolic) return tooHigh;
  if (systolic == 0 || diastolic == 0) return noReading;
  if (systolic <= diastolic) return notAboveDiastolic;
  return plausible;
}

}  // namespace

void BPDevice::startBP() {
  if (isINIT) {
    sendTangoCommand("494e49540a0d", Tango_Type::INIT);
    isINIT = false;
  } else {
    sendTangoCommand("535452540a0d", Tango_Type::START);
  }
  printLine("tango开始测量血压", PrintedText::fixed);
}

void BPDevice::breakBP() {
  sendTangoCommand("53544f500a0d", Tango_Type::BREAK);
}

void BPDevice::requestBP() {
  sendTangoCommand("444154410a0d", Tango_Type::LAST);
}

void BPDevice::clearBP() {
  sendTangoCommand("434c52520a0d", Tango_Type::CLEAR);
}

// Leaves `type` alone, so the answer is not read unless somebody sets it to `SPO2`.
void BPDevice::requestSpO2() {
  sendText("SPO2\n\r");
}

void BPDevice::sendTangoCommand(std::string_view hexText, Tango_Type newType) {
  type = newType;
  isBPcommand = true;
  const auto command = BinaryDecimalHex::convertHexStrToData(hexText);
  const auto bound = serialPort();
  if (!command || !bound) return;
  const std::string userInfo = "tango";
  // Each command is listened for anew and never given up, so the port knows one more descriptor per command.
  const auto echo = std::make_shared<ORSSerialPacketDescriptor>(
      ORSSerialPacketDescriptor::FixedPacket{.packetData = *command, .userInfo = userInfo});
  bound->startListeningForPacketsMatchingDescriptor(echo);
  bound->sendRequest(ORSSerialRequest::requestWithDataToSend(*command, userInfo, echoTimeout, echo));
}

void BPDevice::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  processReply(data);
}

void BPDevice::processReply(ByteView data) {
  const auto text = BinaryDecimalHex::getDataForString(data);
  if (!text) return;
  taskJoint += *text;
  taskJoint.erase(0, taskJoint.size() - utf8::lastCharacters(taskJoint, countingCharacters).size());
  processSpO2();
  processInitialisationEcho();
  processRecord();
}

// The first reception after `type` became `SPO2` is the only one that counts, matched or not. The text stays
// either way: only a record or the echo of the initialisation empties it.
void BPDevice::processSpO2() {
  if (type != Tango_Type::SPO2) return;
  if (saturationExpression().matchesWhole(taskJoint)) {
    // The expression has made sure that these are four digits.
    const float SpO2 = readFloat(utf8::characters(taskJoint, 0, 4)).value();
    kiv_delegate.onReceivedSpO2WithSpO2(SpO2, saturationMeasured);
  }
  type = Tango_Type::normal;
}

// Leaves `type` alone: a reading that was fetched may still come.
void BPDevice::processInitialisationEcho() {
  if (!taskJoint.ends_with(initialisationEcho)) return;
  kiv_delegate.onReceivedBPWithSysBP(0, 0, noReading);
  taskJoint.clear();
}

void BPDevice::processRecord() {
  if (!isRecord(taskJoint)) return;
  const auto parts = splitAtEndsOfGroups(taskJoint);
  printLine("-------- " + taskJoint + " --------", PrintedText::fixed);
  // The groups may be parted by other blanks than the monitor's own.
  if (parts.size() < 3) fatalError("Tango: a record of fewer than three groups");
  const float systolic = readFloat(parts[1]).value_or(0);
  const float diastolic = readFloat(parts[2]).value_or(0);
  // A reading that was fetched may be an old one, so its status says that and nothing else.
  const auto status = type == Tango_Type::LAST ? fetched : statusOf(systolic, diastolic);
  kiv_delegate.onReceivedBPWithSysBP(systolic, diastolic, status);
  taskJoint.clear();
  // Also when the host has sent a command from within the report: that command is no longer known.
  type = Tango_Type::normal;
}

}  // namespace tarsil
