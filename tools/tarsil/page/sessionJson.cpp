#include "tools/tarsil/page/sessionJson.hpp"

#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <variant>

#include "tarsil/guard/eventText.hpp"
#include "tools/tarsil/run/sessionWords.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;

/// Three decimals are more than any device has; what is no number is null.
Json number(double value) {
  return std::isfinite(value) ? Json(std::round(value * 1000) / 1000) : Json();
}

Json seconds(Duration duration) {
  return number(std::chrono::duration<double>(duration).count());
}

/// A device's words may be in any encoding, a page's are UTF-8.
std::string text(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json valueOf(float value) {
  return number(value);
}

Json valueOf(const Pressure& pressure) {
  return {number(pressure.systolic), number(pressure.diastolic)};
}

template <class Value>
Json readingJson(const Reading<Value>& reading) {
  if (!isKnown(reading)) return {{"isReported", reading.state != Reading<Value>::State::notReported}};
  return {{"isReported", true},
          {"value", valueOf(reading.value)},
          {"age", seconds(Clock::now() - reading.at)},
          {"isFresh", reading.isFresh()}};
}

/// For a chart: what is old has not been measured now.
Json freshValue(const Reading<float>& reading) {
  return reading.isFresh() ? number(reading.value) : Json();
}

Json loadJson(const Load& load, StressDeviceType kind) {
  if (kind == StressDeviceType::Treadmill)
    return {{"load", number(load.speed)}, {"grade", number(load.grade)}};
  return {{"load", number(load.power)}, {"grade", nullptr}};
}

Json phaseJson(const ExerciseTest& test) {
  if (test.state() != ExerciseTest::State::exercising) return nullptr;
  const Phase& phase = test.protocol().phases[test.phaseIndex()];
  return {{"name", test.protocol().phaseName(test.phaseIndex())},
          {"duration", seconds(phase.duration)},
          {"left", seconds(test.phaseLeft())},
          {"exerciseLeft", seconds(test.exerciseLeft())},
          {"next", nextText(test, true)},
          {"heldFor", test.isHeld() ? seconds(test.heldFor()) : Json()}};
}

Json endJson(const SessionEnd& end) {
  return {{"text", end.text}, {"isGood", end.isGood}, {"folder", end.folder}};
}

Json alarmsJson(const GuardedStation& station) {
  Json alarms = Json::array();
  for (const AlarmKind kind : station.alarms())
    alarms.push_back({{"text", shortText(kind)}, {"isNote", priorityOf(kind) == Priority::low}});
  return alarms;
}

}  // namespace

std::string nowJson(const SessionTitle& title, const ExerciseTest& test, const GuardedStation& station,
                    Duration at, const std::optional<SessionEnd>& end) {
  const StressDeviceType kind = test.protocol().device;
  const bool isTreadmill = kind == StressDeviceType::Treadmill;
  const bool isExercising = test.state() == ExerciseTest::State::exercising;
  const Readings readings = station.readings();
  const auto sent = std::chrono::system_clock::now().time_since_epoch();
  return text({{"sent", std::chrono::duration_cast<std::chrono::milliseconds>(sent).count()},
               {"at", seconds(at)},
               {"protocol", test.protocol().name},
               {"model", title.model},
               {"patient", title.patient},
               {"isSimulated", title.isSimulated},
               {"takesOrders", title.takesOrders},
               {"isTreadmill", isTreadmill},
               {"isExercising", isExercising},
               {"doing", stateText(test.state())},
               {"outcome", end ? endJson(*end) : Json()},
               {"phase", phaseJson(test)},
               {"exerciseTime", seconds(test.exerciseTime())},
               {"target", loadJson(isExercising ? test.target() : Load{}, kind)},
               {"asked", loadJson(station.commanded(), kind)},
               {"reportsLoad", station.reportsLoad()},
               {"load", readingJson(isTreadmill ? readings.speed : readings.power)},
               {"grade", readingJson(readings.grade)},
               {"pedals", readingJson(readings.pedalRate)},
               {"pressure", readingJson(readings.pressure)},
               {"isMeasuringPressure", station.isMeasuringPressure()},
               {"saturation", readingJson(readings.saturation)},
               {"alarms", alarmsJson(station)}});
}

std::string sampleJson(const ExerciseTest& test, const GuardedStation& station, Duration at) {
  const StressDeviceType kind = test.protocol().device;
  const Readings readings = station.readings();
  const Json asked = loadJson(station.commanded(), kind);
  return text({{"at", seconds(at)},
               {"isExercising", test.state() == ExerciseTest::State::exercising},
               {"asked", asked["load"]},
               {"askedGrade", asked["grade"]},
               {"load", freshValue(kind == StressDeviceType::Treadmill ? readings.speed : readings.power)},
               {"grade", freshValue(readings.grade)},
               {"pedals", freshValue(readings.pedalRate)},
               {"saturation", freshValue(readings.saturation)}});
}

std::string eventJson(const Event& event, Duration at, StressDeviceType kind) {
  const EventText told = textOf(event, kind);
  if (!isNews(told)) return "";
  Json json{{"at", seconds(at)},
            {"who", roleOf(event.source)},
            {"text", told.text},
            {"isFailure", told.kind == EventKind::failure},
            {"isMark", std::holds_alternative<Marked>(event.what)}};
  if (const auto* phase = std::get_if<PhaseBegan>(&event.what)) json["phase"] = phase->name;
  if (const auto* measured = std::get_if<PressureMeasured>(&event.what))
    json["pressure"] = valueOf(measured->pressure);
  return text({{"event", json}});
}

}  // namespace tarsil::cli
