#include "tarsil/drivers/treadmill/TrackMaster.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <span>

#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/hexText.hpp"
#include "tarsil/support/numberText.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/truncation.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view stop = "A2";
constexpr std::string_view setSpeed = "A3";
constexpr std::string_view setGrade = "A4";
constexpr std::string_view requestSpeedCode = "C1";
constexpr std::string_view requestGradeCode = "C2";

constexpr std::string_view accepted[] = {"B1", "B2", "B3", "B4"};
constexpr std::string_view beyondLimit = "BE";
constexpr std::string_view disabled = "BF";
constexpr std::string_view speedReply = "D1";
constexpr std::string_view gradeReply = "D2";

// Lengths in hexadecimal digits.
constexpr std::size_t codeLength = 2;
constexpr std::size_t loadReplyLength = 10;

constexpr Duration throttle = 800ms;
constexpr Duration standstillPoll = 1s;
constexpr Duration logFlush = 3s;

constexpr float milesPerKilometre = 0.625F;
constexpr float kilometresPerMile = 1.6F;
constexpr float unknown = -1.0F;

bool isOneOf(std::string_view code, std::span<const std::string_view> codes) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool isReplyCode(std::string_view code) {
  return isOneOf(code, accepted) || code == beyondLimit || code == disabled || code == speedReply ||
         code == gradeReply;
}

/// "3" before a digit is that digit's ASCII code.
std::string asciiHex(std::string_view digits) {
  std::string hex;
  for (const char digit : digits) hex += {'3', digit};
  return hex;
}

}  // namespace

void TrackMaster::setLoad(float kmph_or_power, float grade) {
  // Any new load cancels a stop, one that is refused below included; the stop's timer goes on asking.
  isStop = false;
  fm.get().writeFile("setSpeed:" + decimalText(kmph_or_power) + ",grade:" + decimalText(grade));
  sendSpeed(kmph_or_power);
  sendGrade(grade);
}

void TrackMaster::sendSpeed(float kmph) {
  if ((kmph > 0 && kmph < 0.7F) || kmph > 19.0F) {
    // It says power for a speed: the host knows this text.
    kiv_delegate.onErrorWithCode("01", "Power Beyond the limit");
    return;
  }
  const std::string milesPerHour = oneDecimalText(kmph * milesPerKilometre);
  const std::size_t point = milesPerHour.find('.');
  if (point == std::string::npos) fatalError("TrackMaster: the speed is no number: " + milesPerHour);
  // Two digits before the point; a negative speed, which nothing guards, brings its minus sign as one.
  std::string whole = milesPerHour.substr(0, point);
  if (whole.size() < 2) whole.insert(0, "0");
  sendHex(std::string(setSpeed) + asciiHex(whole.substr(0, 2)) + asciiHex(milesPerHour.substr(point + 1, 1)));
}

void TrackMaster::sendGrade(float percent) {
  // The fraction of a percent is dropped before the tenths are made: this treadmill is driven in whole
  // percents.
  std::int64_t tenths = truncatedOrStop(percent, "TrackMaster: the grade in percent");
  if (__builtin_mul_overflow(tenths, 10, &tenths))
    fatalError("TrackMaster: ten times the grade does not fit a 64-bit integer");
  if (tenths > 250 || (percent > 0 && percent < 0.5F)) {
    kiv_delegate.onErrorWithCode("01", "Grade Beyond the limit");
    return;
  }
  // A negative grade, which nothing guards, brings its minus sign among the digits.
  const std::string digits = "0000" + std::to_string(tenths);
  sendHex(std::string(setGrade) + asciiHex(digits.substr(digits.size() - 4)));
}

void TrackMaster::requestLoad() {
  const Clock::Instant now = Clock::now();
  if (beforDate && now - *beforDate < throttle) return;
  beforDate = now;
  sendLoadRequest();
}

void TrackMaster::sendLoadRequest() {
  fm.get().writeFile("---requestLode---");
  requestGrade = unknown;
  requestSpeed = unknown;
  askForSpeedAndGrade();
}

void TrackMaster::askForSpeedAndGrade() const {
  sendHex(requestSpeedCode);
  sendHex(requestGradeCode);
}

void TrackMaster::deviceState() {
  // Also when the throttle holds the request back: the next speed reply answers, whoever asked for it.
  isState = true;
  requestLoad();
}

void TrackMaster::stopStressDevice() {
  if (isStop) return;
  sendSpeed(0);
  sendGrade(0);
  // `isStaticState` stays as the last stop left it: a belt that stood then gets the stop at the first tick.
  isStop = true;
  // An older timer goes on asking beside the new one: a new load that cancelled its stop left it running.
  // The timer holds the driver, so that a belt comes to rest even when the host lets go of its device.
  auto self = std::static_pointer_cast<TrackMaster>(shared_from_this());
  timer = Timer::scheduledOn(RunLoop::main(), standstillPoll, true, [self](Timer&) { self->stoping(); });
}

void TrackMaster::stoping() {
  // Around the throttle, so that no other request delays a stop.
  if (!isStaticState || !isStop) return askForSpeedAndGrade();
  sendHex(stop);
  isStop = false;
  requestGrade = unknown;
  requestSpeed = unknown;
  if (timer) timer->invalidate();
  timer = nullptr;
}

void TrackMaster::processReply(ByteView chunk) {
  result += upperHexText(chunk);
  record_.assign("jointDeviceResult:").append(result);
  fm.get().writeFile(record_);
  startFlushing();

  // One reply a chunk: what stands behind it waits for the next bytes.
  const std::string code(scanForCode());
  if (isOneOf(code, accepted)) {
    kiv_delegate.successfully();
    drop(codeLength);
  } else if (code == beyondLimit) {
    refuse("Beyond the limit");
  } else if (code == disabled) {
    refuse("disable instruction");
  } else if (result.size() >= 2 * loadReplyLength) {
    // A speed and a grade are asked for together and read together.
    readLoad();
  }
}

void TrackMaster::startFlushing() {
  if (fileTimer) return;
  auto weakSelf = std::weak_ptr(std::static_pointer_cast<TrackMaster>(shared_from_this()));
  fileTimer = Timer::scheduled(logFlush, true, [weakSelf](Timer& flush) {
    const auto self = weakSelf.lock();
    if (!self) return flush.invalidate();
    self->fm.get().fileFlush();
    self->fm.get().clearTimer();
  });
}

std::string_view TrackMaster::scanForCode() {
  const std::string_view received = result;
  std::size_t position = 0;
  while (position < received.size() && !isReplyCode(received.substr(position, codeLength)))
    position += codeLength;
  drop(position);
  // Nothing ends the search for a reply but a reply, and nothing else can bring one while this thread
  // searches.
  if (result.empty()) neverReturn();
  return std::string_view(result).substr(0, codeLength);
}

// The question about the state stays open: the next refusal, or speed, answers it again.
void TrackMaster::refuse(const std::string& details) {
  if (isState) kiv_delegate.deviceIsReadyWithIsReady(false);
  kiv_delegate.onErrorWithCode("00", details);
  drop(codeLength);
}

void TrackMaster::readLoad() {
  if (resultBeginsWith(speedReply)) {
    if (isState) {
      // The reply stays in front and is decoded with the next bytes.
      kiv_delegate.deviceIsReadyWithIsReady(true);
      isState = false;
      return;
    }
    if (const auto tenthsOfMiles = takeNumber()) requestSpeed = *tenthsOfMiles / 10 * kilometresPerMile;
  }
  if (resultBeginsWith(gradeReply)) {
    if (const auto tenths = takeNumber()) requestGrade = *tenths / 10;
  }
  // Also when neither could be read: a load that is known is then reported again.
  reportLoad();
}

void TrackMaster::reportLoad() {
  if (isStop) {
    isStaticState = requestGrade == 0 && requestSpeed == 0;
    return;
  }
  if (requestGrade == unknown || requestSpeed == unknown) return;
  requestSpeed = readFloat(oneDecimalText(requestSpeed)).value();
  fm.get().writeFile("sendDelegateSpeed:" + decimalText(requestSpeed) +
                     " grade:" + decimalText(requestGrade));
  kiv_delegate.onReceivedTreadmillLoadWithSpeed(requestSpeed, requestGrade);
}

bool TrackMaster::resultBeginsWith(std::string_view code) const {
  return std::string_view(result).starts_with(code);
}

/// The number of the load reply in front, which is then consumed; a reply whose digits are none stays in
/// front of everything that follows.
std::optional<float> TrackMaster::takeNumber() {
  // The low digits of four ASCII digits. Letters are no digits, "E" included.
  const auto number = readInteger(std::string{result[3], result[5], result[7], result[9]});
  if (!number) return std::nullopt;
  drop(loadReplyLength);
  return static_cast<float>(*number);
}

void TrackMaster::drop(std::size_t characters) {
  result.erase(0, characters);
}

}  // namespace tarsil
