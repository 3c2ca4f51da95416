#include "tarsil/guard/eventText.hpp"

#include <array>
#include <charconv>
#include <chrono>
#include <utility>

#include "tarsil/codec/BinaryDecimalHex.hpp"

namespace tarsil {
namespace {

using enum EventKind;

/// With so many digits after the point, whatever the locale. A driver may report any number that its device
/// has sent.
std::string fixed(float value, int digits) {
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed, digits).ptr;
  return {text.begin(), end};
}

std::vector<float> valuesOf(const Load& load, StressDeviceType kind) {
  if (kind == StressDeviceType::Treadmill) return {load.speed, load.grade};
  return {load.power, 0};
}

EventText answeredText(std::string word, std::vector<float> values, std::string text) {
  return {.kind = answered, .word = std::move(word), .values = std::move(values), .text = std::move(text)};
}

EventText noticeText(std::string word, std::string text) {
  return {.kind = notice, .word = std::move(word), .text = std::move(text)};
}

EventText failureText(std::string word, std::string text) {
  return {.kind = failure, .word = std::move(word), .text = std::move(text)};
}

/// The words of each kind of event.
class Teller {
 public:
  explicit Teller(StressDeviceType kind) : kind_(kind) {}

  EventText operator()(const Asked& asked) const {
    if (asked.command == Command::setLoad) {
      return {.kind = EventKind::asked,
              .word = "setLoad",
              .values = valuesOf(asked.load, kind_),
              .text = "set " + textOf(asked.load, kind_)};
    }
    const auto [word, text] = wordsOf(asked.command);
    return {.kind = EventKind::asked, .word = word, .text = text};
  }

  EventText operator()(const Refused& refused) const {
    const std::string what = wordsOf(refused.command).second;
    return failureText("refused", "refused to " + what + ": " + refused.reason);
  }

  EventText operator()(const Sent& sent) const {
    return {.kind = traffic, .word = "sent", .text = BinaryDecimalHex::hexStringFromData(sent.bytes)};
  }

  EventText operator()(const Received& received) const {
    return {.kind = traffic, .word = "received", .text = BinaryDecimalHex::hexStringFromData(received.bytes)};
  }

  EventText operator()(const Discarded& discarded) const {
    std::string text = std::to_string(discarded.bytes) + " bytes that no reply contains were left out";
    if (discarded.badChecks > 0) {
      text += ", " + std::to_string(discarded.badChecks) + " replies with a wrong check among them";
    }
    EventText told = noticeText("discarded", text);
    told.values = {static_cast<float>(discarded.bytes), static_cast<float>(discarded.badChecks)};
    return told;
  }

  EventText operator()(const LoadMeasured& measured) const {
    const auto values = valuesOf(measured.load, kind_);
    if (kind_ != StressDeviceType::Treadmill)
      return answeredText("power", {values[0]}, fixed(values[0], 0) + " W");
    return answeredText("load", values, fixed(values[0], 1) + " km/h, " + fixed(values[1], 1) + " %");
  }

  EventText operator()(const PedalRateMeasured& measured) const {
    return answeredText("rpm", {measured.rate}, fixed(measured.rate, 0) + " rpm");
  }

  EventText operator()(const PressureMeasured& measured) const {
    const auto [systolic, diastolic] = measured.pressure;
    return answeredText(
        "pressure", {systolic, diastolic, static_cast<float>(measured.status)},
        fixed(systolic, 0) + "/" + fixed(diastolic, 0) + " mmHg, status " + std::to_string(measured.status));
  }

  EventText operator()(const SaturationMeasured& measured) const {
    return answeredText("saturation", {measured.saturation}, fixed(measured.saturation, 0) + " %");
  }

  EventText operator()(const Implausible& implausible) const {
    return noticeText("implausible", "nothing measured: " + implausible.what);
  }

  EventText operator()(const Acknowledged& /*event*/) const {
    return answeredText("accepted", {}, "command accepted");
  }

  EventText operator()(const MonitorReady& /*event*/) const {
    return answeredText("pressureReady", {}, "blood-pressure monitor initialised");
  }

  EventText operator()(const DeviceRefused& refused) const {
    // Some devices refuse without a code, and some codes have no words in any manual.
    const std::string code = refused.code.empty() ? "refused" : "error " + refused.code;
    const std::string words =
        refused.details.empty() ? "the device refused, and says no more" : refused.details;
    return failureText("error", code + ": " + words);
  }

  EventText operator()(const LineOpened& line) const { return noticeText("opened", line.port + " is open"); }
  EventText operator()(const LineClosed& line) const {
    return noticeText("closed", line.port + " is closed");
  }
  EventText operator()(const LineFailed& line) const { return failureText("portError", line.text); }
  EventText operator()(const LineVanished& /*line*/) const {
    return failureText("removed", "the port has vanished");
  }
  EventText operator()(const LineReturned& line) const {
    return noticeText("returned", "the same adapter is back as " + line.port);
  }

  EventText operator()(const DriverReplaced& replaced) const {
    return noticeText("driverReplaced", "the driver was replaced: " + replaced.reason);
  }

  EventText operator()(const Printed& printed) const { return noticeText("printed", printed.text); }

  EventText operator()(const AlarmRaised& alarm) const {
    const std::string text = alarm.text.empty() ? shortText(alarm.kind) : alarm.text;
    // What needs nobody's hand at once is no failure of the session.
    const bool isLow = priorityOf(alarm.kind) == Priority::low;
    return {.kind = isLow ? notice : failure,
            .word = "alarm",
            .text = std::string(isLow ? "note: " : "ALARM: ") + text};
  }

  EventText operator()(const AlarmCleared& alarm) const {
    return noticeText("alarmCleared", std::string("over: ") + shortText(alarm.kind));
  }

  EventText operator()(const ProtectiveStop& stop) const {
    return failureText("protectiveStop", std::string("PROTECTIVE STOP: ") + shortText(stop.cause));
  }

  EventText operator()(const Started& /*event*/) const { return noticeText("started", "the exercise runs"); }
  EventText operator()(const Stopping& /*event*/) const {
    return noticeText("stopping", "waiting until the device stands");
  }
  EventText operator()(const StandstillSeen& /*event*/) const {
    return noticeText("standstill", "the device reports that it stands");
  }
  EventText operator()(const StandstillUnseen& /*event*/) const {
    return noticeText("standstillUnseen", "told to stop; this model does not report whether it stands");
  }
  EventText operator()(const WasReset& /*event*/) const {
    return noticeText("reset", "the protective stop was reset");
  }
  EventText operator()(const HostReturned& /*event*/) const {
    return noticeText("hostReturned", "the program runs again after it was missed");
  }
  EventText operator()(const WatcherActed& acted) const { return failureText("watcher", acted.text); }

  EventText operator()(const PhaseBegan& phase) const {
    EventText told = noticeText("phase", phase.name);
    told.values = valuesOf(phase.target, kind_);
    return told;
  }
  EventText operator()(const PhaseHeld& hold) const {
    return hold.held ? noticeText("held", "stage held") : noticeText("released", "stage released");
  }
  EventText operator()(const Marked& mark) const { return noticeText("mark", mark.word); }
  EventText operator()(const Noted& noted) const { return noticeText(noted.word, noted.text); }

 private:
  static std::pair<const char*, const char*> wordsOf(Command command) {
    switch (command) {
      case Command::open:
        return {"openPort", "open"};
      case Command::close:
        return {"closePort", "close the ports"};
      case Command::start:
        return {"startStressDevice", "start"};
      case Command::setLoad:
        return {"setLoad", "set the load"};
      case Command::stop:
        return {"stopStressDevice", "stop"};
      case Command::requestLoad:
        return {"requestLoad", "request load"};
      case Command::reset:
        return {"reset", "reset the protective stop"};
      case Command::initialiseMonitor:
        return {"startBP", "initialise the blood-pressure monitor"};
      case Command::startPressure:
        return {"startBP", "start blood pressure"};
      case Command::requestPressure:
        return {"requestBP", "request blood pressure"};
      case Command::abortPressure:
        return {"breakBP", "abort blood pressure"};
    }
    return {"", ""};
  }

  StressDeviceType kind_;
};

}  // namespace

EventText textOf(const Event& event, StressDeviceType kind) {
  return std::visit(Teller(kind), event.what);
}

std::string textOf(const Load& load, StressDeviceType kind) {
  if (kind == StressDeviceType::Treadmill)
    return fixed(load.speed, 2) + " km/h, " + fixed(load.grade, 1) + " %";
  return fixed(load.power, 0) + " W";
}

const char* shortText(AlarmKind kind) {
  using enum AlarmKind;
  switch (kind) {
    case notSeenToStop:
      return "not seen to stop";
    case fasterThanAsked:
      return "more load than asked for";
    case stoppedAtMachine:
      return "stopped at the machine";
    case lineLost:
      return "the exercise device's port has vanished";
    case hostFrozen:
      return "the program did not respond";
    case watcherLost:
      return "the watcher process is gone";
    case exerciseSilent:
      return "the exercise device does not answer";
    case disagreement:
      return "the device does not follow its load";
    case deviceRefuses:
      return "the device refuses commands";
    case portNotOpened:
      return "a port does not open";
    case journalFailed:
      return "the journal cannot be written";
    case viewLost:
      return "nobody sees what happens";
    case monitorLost:
      return "the blood-pressure monitor is lost";
    case oximeterLost:
      return "the oximeter is lost";
    case pressureMissing:
      return "a blood pressure did not come";
    case unseenStop:
      return "this model does not report whether it stands";
  }
  return "";
}

const char* roleOf(Source source) {
  switch (source) {
    case Source::station:
      return "session";
    case Source::exercise:
      return "exercise";
    case Source::monitor:
      return "pressure";
    case Source::oximeter:
      return "oximeter";
  }
  return "";
}

std::string clockText(Duration duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration).count();
  const std::string rest = std::to_string(seconds % 60);
  return std::to_string(seconds / 60) + (rest.size() < 2 ? ":0" : ":") + rest;
}

}  // namespace tarsil
