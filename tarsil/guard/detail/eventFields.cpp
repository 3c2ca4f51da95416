#include "tarsil/guard/detail/eventFields.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "tarsil/codec/BinaryDecimalHex.hpp"

namespace tarsil::detail {
namespace {

const char* name(LineFailed::Reason reason) {
  using enum LineFailed::Reason;
  switch (reason) {
    case missing:
      return "missing";
    case noRight:
      return "noRight";
    case busy:
      return "busy";
    case badSetting:
      return "badSetting";
    case vanished:
      return "vanished";
    case other:
      return "other";
  }
  return "";
}

// The one list of words and fields; writing and reading both go through it.

template <class Fields>
void describe(Fields& f, Asked& e) {
  f.word("asked"), f("command", e.command), f(e.load);
}
template <class Fields>
void describe(Fields& f, Refused& e) {
  f.word("refused"), f("command", e.command), f("code", e.code), f("reason", e.reason);
}
template <class Fields>
void describe(Fields& f, Sent& e) {
  f.word("sent"), f("bytes", e.bytes);
}
template <class Fields>
void describe(Fields& f, Received& e) {
  f.word("received"), f("bytes", e.bytes);
}
template <class Fields>
void describe(Fields& f, Discarded& e) {
  f.word("discarded"), f("count", e.bytes), f("badChecks", e.badChecks);
}
template <class Fields>
void describe(Fields& f, LoadMeasured& e) {
  f.word("loadMeasured"), f(e.load);
}
template <class Fields>
void describe(Fields& f, PedalRateMeasured& e) {
  f.word("pedalRateMeasured"), f("rate", e.rate);
}
template <class Fields>
void describe(Fields& f, PressureMeasured& e) {
  f.word("pressureMeasured"), f("systolic", e.pressure.systolic), f("diastolic", e.pressure.diastolic),
      f("status", e.status);
}
template <class Fields>
void describe(Fields& f, SaturationMeasured& e) {
  f.word("saturationMeasured"), f("saturation", e.saturation);
}
template <class Fields>
void describe(Fields& f, Implausible& e) {
  f.word("implausible"), f("what", e.what);
}
template <class Fields>
void describe(Fields& f, Acknowledged& /*e*/) {
  f.word("acknowledged");
}
template <class Fields>
void describe(Fields& f, MonitorReady& /*e*/) {
  f.word("monitorReady");
}
template <class Fields>
void describe(Fields& f, DeviceRefused& e) {
  f.word("deviceRefused"), f("code", e.code), f("details", e.details);
}
template <class Fields>
void describe(Fields& f, LineOpened& e) {
  f.word("lineOpened"), f("port", e.port);
}
template <class Fields>
void describe(Fields& f, LineClosed& e) {
  f.word("lineClosed"), f("port", e.port);
}
template <class Fields>
void describe(Fields& f, LineFailed& e) {
  f.word("lineFailed"), f("port", e.port), f("reason", e.reason), f("error", e.error), f("text", e.text);
}
template <class Fields>
void describe(Fields& f, LineVanished& e) {
  f.word("lineVanished"), f("port", e.port);
}
template <class Fields>
void describe(Fields& f, LineReturned& e) {
  f.word("lineReturned"), f("port", e.port);
}
template <class Fields>
void describe(Fields& f, DriverReplaced& e) {
  f.word("driverReplaced"), f("reason", e.reason);
}
template <class Fields>
void describe(Fields& f, Printed& e) {
  f.word("printed"), f("text", e.text);
}
template <class Fields>
void describe(Fields& f, AlarmRaised& e) {
  f.word("alarmRaised"), f("kind", e.kind), f("text", e.text);
}
template <class Fields>
void describe(Fields& f, AlarmCleared& e) {
  f.word("alarmCleared"), f("kind", e.kind);
}
template <class Fields>
void describe(Fields& f, ProtectiveStop& e) {
  f.word("protectiveStop"), f("cause", e.cause);
}
template <class Fields>
void describe(Fields& f, Started& /*e*/) {
  f.word("started");
}
template <class Fields>
void describe(Fields& f, Stopping& /*e*/) {
  f.word("stopping");
}
template <class Fields>
void describe(Fields& f, StandstillSeen& /*e*/) {
  f.word("standstillSeen");
}
template <class Fields>
void describe(Fields& f, StandstillUnseen& /*e*/) {
  f.word("standstillUnseen");
}
template <class Fields>
void describe(Fields& f, WasReset& /*e*/) {
  f.word("wasReset");
}
template <class Fields>
void describe(Fields& f, HostReturned& /*e*/) {
  f.word("hostReturned");
}
template <class Fields>
void describe(Fields& f, WatcherActed& e) {
  f.word("watcherActed"), f("text", e.text);
}
template <class Fields>
void describe(Fields& f, PhaseBegan& e) {
  f.word("phaseBegan"), f("index", e.index), f("name", e.name), f(e.target);
}
template <class Fields>
void describe(Fields& f, PhaseHeld& e) {
  f.word("phaseHeld"), f("held", e.held);
}
template <class Fields>
void describe(Fields& f, Marked& e) {
  f.word("marked"), f("word", e.word);
}
template <class Fields>
void describe(Fields& f, Noted& e) {
  f.word("noted"), f("word", e.word), f("text", e.text);
}

class FieldWriter {
 public:
  explicit FieldWriter(FlatJsonWriter& writer) : writer_(writer) {}

  void word(const char* word) { writer_.add("event", std::string_view(word)); }

  void operator()(const Load& load) {
    (*this)("speed", load.speed), (*this)("grade", load.grade), (*this)("power", load.power);
  }

  template <class Value>
  void operator()(const char* key, const Value& value) {
    if constexpr (std::is_enum_v<Value>) {
      writer_.add(key, std::string_view(name(value)));
    } else if constexpr (std::is_same_v<Value, Bytes>) {
      writer_.add(key, BinaryDecimalHex::hexStringFromData(value));
    } else if constexpr (std::is_same_v<Value, bool> || std::is_same_v<Value, float>) {
      writer_.add(key, value);
    } else if constexpr (std::is_integral_v<Value>) {
      writer_.add(key, static_cast<std::int64_t>(value));
    } else {
      writer_.add(key, std::string_view(value));
    }
  }

 private:
  FlatJsonWriter& writer_;
};

/// Asks an event for its word only.
struct WordFinder {
  std::string_view found;

  void word(const char* word) { found = word; }
  void operator()(const Load& /*load*/) {}
  template <class Value>
  void operator()(const char* /*key*/, const Value& /*value*/) {}
};

class FieldReader {
 public:
  explicit FieldReader(const FlatJson& object) : object_(object) {}

  void word(const char* /*word*/) {}

  void operator()(Load& load) {
    (*this)("speed", load.speed), (*this)("grade", load.grade), (*this)("power", load.power);
  }

  template <class Value>
  void operator()(const char* key, Value& value) {
    if constexpr (std::is_enum_v<Value>) {
      take(named<Value>(object_.text(key)), value);
    } else if constexpr (std::is_same_v<Value, Bytes>) {
      take(bytesOf(object_.text(key)), value);
    } else if constexpr (std::is_same_v<Value, bool>) {
      take(object_.truth(key), value);
    } else if constexpr (std::is_same_v<Value, float>) {
      take(object_.number(key), value);
    } else if constexpr (std::is_integral_v<Value>) {
      take(within<Value>(object_.integer(key)), value);
    } else {
      take(object_.text(key), value);
    }
  }

  bool hasAll() const { return hasAll_; }

 private:
  template <class Value>
  void take(std::optional<Value> found, Value& value) {
    if (found) {
      value = std::move(*found);
    } else {
      hasAll_ = false;
    }
  }

  static std::optional<Bytes> bytesOf(const std::optional<std::string>& digits) {
    auto bytes = digits ? BinaryDecimalHex::convertHexStrToData(*digits) : std::nullopt;
    // It makes something of every text; only what reads back was written by us.
    if (!bytes || BinaryDecimalHex::hexStringFromData(*bytes) != *digits) return std::nullopt;
    return bytes;
  }

  template <class Integer>
  static std::optional<Integer> within(std::optional<std::int64_t> found) {
    if (!found || !std::in_range<Integer>(*found)) return std::nullopt;
    return static_cast<Integer>(*found);
  }

  /// The enumerators are counted from 0, and what is behind the last one has no name.
  template <class Enumeration>
  static std::optional<Enumeration> named(const std::optional<std::string>& word) {
    if (!word || word->empty()) return std::nullopt;
    for (std::uint8_t i = 0; i < std::numeric_limits<std::uint8_t>::max(); ++i) {
      const auto candidate = static_cast<Enumeration>(i);
      const std::string_view candidateName = name(candidate);
      if (candidateName.empty()) return std::nullopt;
      if (candidateName == *word) return candidate;
    }
    return std::nullopt;
  }

  const FlatJson& object_;
  bool hasAll_ = true;
};

template <class Kind>
bool readAs(std::string_view word, const FlatJson& object, std::optional<Event::What>& what) {
  Kind event;
  WordFinder finder;
  describe(finder, event);
  if (finder.found != word) return false;
  FieldReader reader(object);
  describe(reader, event);
  if (reader.hasAll()) what = std::move(event);
  return true;
}

template <std::size_t... index>
std::optional<Event::What> readWhat(std::string_view word, const FlatJson& object,
                                    std::index_sequence<index...> /*kinds*/) {
  std::optional<Event::What> what;
  (readAs<std::variant_alternative_t<index, Event::What>>(word, object, what) || ...);
  return what;
}

std::optional<Source> sourceNamed(const std::optional<std::string>& word) {
  for (const Source source : {Source::station, Source::exercise, Source::monitor, Source::oximeter}) {
    if (word == tarsil::name(source)) return source;
  }
  return std::nullopt;
}

}  // namespace

void writeFields(const Event::What& what, FlatJsonWriter& writer) {
  FieldWriter fields(writer);
  std::visit([&fields](auto event) { describe(fields, event); }, what);
}

std::optional<Event> readEvent(std::string_view line) {
  const auto object = readFlatJson(line);
  if (!object) return std::nullopt;
  const auto at = object->seconds("t");
  const auto source = sourceNamed(object->text("source"));
  const auto word = object->text("event");
  if (!at || !source || !word) return std::nullopt;
  auto what = readWhat(*word, *object, std::make_index_sequence<std::variant_size_v<Event::What>>());
  if (!what) return std::nullopt;
  return Event{.at = Clock::Instant(*at), .source = *source, .what = std::move(*what)};
}

}  // namespace tarsil::detail
