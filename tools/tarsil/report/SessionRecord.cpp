#include "tools/tarsil/report/SessionRecord.hpp"

#include <cmath>

namespace tarsil::cli {
namespace {

/// A driver may report whatever number its device has sent; a chart can show these.
void add(SessionRecord::Series& series, Duration at, float value) {
  if (std::isfinite(value)) series.push_back({at, value});
}

}  // namespace

void SessionRecord::hear(const Entry& entry) {
  end_ = entry.at;
  if (spanIsOpen_) spans_.back().end = entry.at;
  switch (entry.kind) {
    case Entry::Kind::asked:
      return hearAsked(entry);
    case Entry::Kind::answered:
      return hearAnswered(entry);
    case Entry::Kind::event:
      return hearEvent(entry);
    case Entry::Kind::failure:
      return mark(entry);
  }
}

void SessionRecord::hearAsked(const Entry& entry) {
  if (entry.what == "setLoad") {
    add(commandedLoad_, entry.at, entry.values[0]);
    add(commandedGrade_, entry.at, entry.values[1]);
  }
  if (entry.what == "stopStressDevice") {
    add(commandedLoad_, entry.at, 0);
    endSpan(entry.at);
  }
}

void SessionRecord::hearAnswered(const Entry& entry) {
  if (entry.what == "load") {
    add(load_, entry.at, entry.values[0]);
    add(grade_, entry.at, entry.values[1]);
  }
  if (entry.what == "power") add(load_, entry.at, entry.values[0]);
  if (entry.what == "rpm") add(pedalRate_, entry.at, entry.values[0]);
  if (entry.what == "saturation") add(saturation_, entry.at, entry.values[0]);
  if (entry.what == "pressure") {
    const Pressure pressure{entry.values[0], entry.values[1]};
    const bool isMeasured = pressure.systolic > 0 && pressure.diastolic > 0;
    if (isMeasured && std::isfinite(pressure.systolic + pressure.diastolic)) {
      pressures_.push_back({entry.at, pressure});
    }
  }
}

void SessionRecord::hearEvent(const Entry& entry) {
  if (entry.what == "phase") return beginSpan(entry.at, entry.text);
  if (entry.what == "missing") return missing_.push_back(entry.text);
  if (entry.what == "held" || entry.what == "released" || entry.what == "stopped") mark(entry);
}

void SessionRecord::beginSpan(Duration at, const std::string& name) {
  endSpan(at);
  // The session goes through the phases in their order, each once.
  spans_.push_back({name, protocol_.phases[spans_.size()], at, at});
  spanIsOpen_ = true;
}

void SessionRecord::endSpan(Duration at) {
  if (!spanIsOpen_) return;
  spans_.back().end = at;
  spanIsOpen_ = false;
}

void SessionRecord::mark(const Entry& entry) {
  const bool isFailure = entry.kind == Entry::Kind::failure;
  const bool isAboutDevice = entry.role != Role::session;
  const std::string text = (isAboutDevice ? std::string(nameOf(entry.role)) + ": " : "") + entry.text;
  if (!marks_.empty() && marks_.back().text == text) {
    ++marks_.back().times;
    return;
  }
  marks_.push_back({entry.at, text, isFailure});
}

}  // namespace tarsil::cli
