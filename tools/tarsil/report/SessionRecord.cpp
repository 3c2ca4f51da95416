#include "tools/tarsil/report/SessionRecord.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <variant>

#include "tarsil/guard/eventText.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

/// The same news within this time of the last one is the same matter.
constexpr Duration repetition = 15s;
/// An oximeter sends several frames a second; one that has been silent for longer measures nothing.
constexpr Duration longestOximeterPause = 5s;

/// A device may send whatever number it likes; a chart can show these.
void add(SessionRecord::Series& series, Duration at, float value) {
  if (std::isfinite(value)) series.push_back({at, value});
}

Protocol protocolOf(const JournalHead& head) {
  const auto found = head.facts.find(fact::protocol);
  return readProtocol(found == head.facts.end() ? "" : found->second, "the journal's protocol");
}

}  // namespace

SessionRecord::SessionRecord(const Journal& journal) : head_(journal.head), protocol_(protocolOf(head_)) {
  // In a journal that somebody has edited time may run backwards; no chart could show that.
  for (const Event& event : journal.events) hear(event, std::max(end_, event.at - Clock::Instant()));
  if (oximeterLived_ && end_ - *oximeterLived_ > longestOximeterPause) loseSaturation(*oximeterLived_);
  const auto note = [this](const std::string& text) { marks_.push_back({end_, text, true, 1, end_}); };
  if (outcome_.empty()) note("the journal ends here: the program was gone before the session was over");
  if (!journal.unreadableLines.empty())
    note(std::to_string(journal.unreadableLines.size()) + " lines of the journal cannot be read");
}

std::string SessionRecord::factNamed(const char* key) const {
  const auto found = head_.facts.find(key);
  return found == head_.facts.end() ? "" : found->second;
}

std::optional<float> SessionRecord::mass() const {
  return readFloat(factNamed(fact::mass));
}

Duration SessionRecord::exerciseTime() const {
  Duration sum{};
  for (const Span& span : spans_) {
    if (span.planned.kind == Phase::Kind::stage) sum += span.end - span.begin;
  }
  return sum;
}

void SessionRecord::hear(const Event& event, Duration at) {
  end_ = at;
  if (spanIsOpen_) spans_.back().end = end_;
  if (event.source == Source::oximeter) hearOximeter(event, at);
  if (const auto* asked = std::get_if<Asked>(&event.what)) return hearAsked(*asked, at);
  if (const auto* phase = std::get_if<PhaseBegan>(&event.what)) return beginSpan(at, *phase);
  if (const auto* noted = std::get_if<Noted>(&event.what)) return hearNoted(event, *noted, at);
  switch (textOf(event, protocol_.device).kind) {
    case EventKind::answered:
      return hearMeasured(event, at);
    case EventKind::failure:
      return markFailure(event, at);
    case EventKind::notice:
      if (std::holds_alternative<AlarmRaised>(event.what) ||
          std::holds_alternative<AlarmCleared>(event.what) || std::holds_alternative<PhaseHeld>(event.what) ||
          std::holds_alternative<Marked>(event.what) || std::holds_alternative<WasReset>(event.what) ||
          std::holds_alternative<LineReturned>(event.what) ||
          std::holds_alternative<DriverReplaced>(event.what)) {
        mark(event, at, false);
      }
      return;
    case EventKind::asked:
    case EventKind::traffic:
      return;
  }
}

void SessionRecord::hearAsked(const Asked& asked, Duration at) {
  if (asked.command == Command::setLoad) {
    add(commandedLoad_, at, isTreadmill() ? asked.load.speed : asked.load.power);
    if (isTreadmill()) add(commandedGrade_, at, asked.load.grade);
  }
  // It is repeated until the device stands.
  if (asked.command == Command::stop && !commandedLoad_.empty() && commandedLoad_.back().value != 0) {
    add(commandedLoad_, at, 0);
    endSpan(at);
  }
}

void SessionRecord::hearMeasured(const Event& event, Duration at) {
  if (const auto* measured = std::get_if<LoadMeasured>(&event.what)) {
    add(load_, at, isTreadmill() ? measured->load.speed : measured->load.power);
    if (isTreadmill()) add(grade_, at, measured->load.grade);
  }
  if (const auto* measured = std::get_if<PedalRateMeasured>(&event.what)) add(pedalRate_, at, measured->rate);
  if (const auto* measured = std::get_if<SaturationMeasured>(&event.what))
    add(saturation_, at, measured->saturation);
  const auto* measured = std::get_if<PressureMeasured>(&event.what);
  if (measured && std::isfinite(measured->pressure.systolic) && std::isfinite(measured->pressure.diastolic))
    pressures_.push_back({at, measured->pressure});
}

void SessionRecord::hearNoted(const Event& event, const Noted& noted, Duration at) {
  if (noted.word == "outcome") outcome_ = noted.text;
  if (noted.word == "missing") missing_.push_back(noted.text);
  if (noted.word == "stopped" || noted.word == "failed") mark(event, at, noted.word == "failed");
}

// A value that did not change may not be repeated, so that a device that lives is told from one that died by
// the bytes that it sends.
void SessionRecord::hearOximeter(const Event& event, Duration at) {
  if (const auto* alarm = std::get_if<AlarmRaised>(&event.what)) {
    if (alarm->kind == AlarmKind::oximeterLost) loseSaturation(oximeterLived_.value_or(at));
    return;
  }
  if (std::holds_alternative<LineVanished>(event.what)) return loseSaturation(at);
  if (std::holds_alternative<Implausible>(event.what)) loseSaturation(at);
  if (!std::holds_alternative<Received>(event.what)) return;
  if (oximeterLived_ && at - *oximeterLived_ > longestOximeterPause) loseSaturation(*oximeterLived_);
  oximeterLived_ = at;
}

void SessionRecord::loseSaturation(Duration at) {
  if (saturation_.empty() || saturation_.back().value < 0) return;
  saturation_.push_back({std::max(at, saturation_.back().at), -1});
}

void SessionRecord::beginSpan(Duration at, const PhaseBegan& phase) {
  endSpan(at);
  if (phase.index >= protocol_.phases.size()) return;
  spans_.push_back({phase.name, protocol_.phases[phase.index], at, at});
  spanIsOpen_ = true;
}

void SessionRecord::endSpan(Duration at) {
  if (!spanIsOpen_) return;
  spans_.back().end = at;
  spanIsOpen_ = false;
}

void SessionRecord::markFailure(const Event& event, Duration at) {
  if (std::holds_alternative<ProtectiveStop>(event.what)) endSpan(at);
  mark(event, at, true);
}

void SessionRecord::mark(const Event& event, Duration at, bool isFailure) {
  const bool isAboutDevice = event.source != Source::station;
  const std::string text =
      (isAboutDevice ? std::string(roleOf(event.source)) + ": " : "") + textOf(event, protocol_.device).text;
  const auto same = std::find_if(marks_.rbegin(), marks_.rend(), [&](const Mark& mark) {
    return mark.text == text && at - mark.last <= repetition;
  });
  if (same == marks_.rend()) return marks_.push_back({at, text, isFailure, 1, at});
  ++same->times;
  same->last = at;
}

}  // namespace tarsil::cli
