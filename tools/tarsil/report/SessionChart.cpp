#include "tools/tarsil/report/SessionChart.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "tarsil/guard/eventText.hpp"
#include "tools/tarsil/report/reportText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using Series = SessionRecord::Series;

// The picture, in its own units.
constexpr double wideRight = 984;
constexpr double narrowRight = 344;
constexpr double left = 52;
constexpr double margin = 16;
constexpr double flagHeight = 22;
constexpr double bandNameHeight = 20;
constexpr double panelsTop = flagHeight + bandNameHeight;
constexpr double titleHeight = 30;
constexpr double panelGap = 10;
constexpr double timeAxisHeight = 44;
/// Flags that would hide each other are left out; the list of events has them all.
constexpr double flagDistance = 17;

/// A load that was not reported for this long is not known.
constexpr Duration longestSilence = 3s;

/// Of "220/110", about.
constexpr double labelWidth = 46;
/// Widths of a character of the band names, about.
constexpr double characterWidth = 6.4;

double highest(std::initializer_list<const Series*> all, double atLeast) {
  for (const Series* series : all) {
    for (const auto& sample : *series) atLeast = std::max<double>(atLeast, sample.value);
  }
  return atLeast;
}

double lowest(std::initializer_list<const Series*> all, double atMost) {
  for (const Series* series : all) {
    for (const auto& sample : *series) atMost = std::min<double>(atMost, sample.value);
  }
  return atMost;
}

/// As much of a phase's name as fits into its band.
std::string nameWithin(double room, const std::string& name) {
  const auto fits = [room](const std::string& text) {
    return characterWidth * static_cast<double>(text.size()) <= room - 4;
  };
  if (fits(name)) return name;
  std::string withoutTotal = name.substr(0, name.find(" of "));
  if (fits(withoutTotal)) return withoutTotal;
  const std::string last = withoutTotal.substr(withoutTotal.find(' ') + 1);
  return last != withoutTotal && fits(last) ? last : "";
}

const char* bandClass(Phase::Kind kind, std::size_t index) {
  if (kind == Phase::Kind::warmUp) return "band warm-up";
  if (kind == Phase::Kind::recovery) return "band recovery";
  return index % 2 == 0 ? "band even" : "band odd";
}

}  // namespace

SessionChart::SessionChart(const SessionRecord& record, Form form)
    : record_(record),
      form_(form),
      right_(form == Form::wide ? wideRight : narrowRight),
      time_(Axis::ofTime(inSeconds(record.end()), form == Form::wide ? 12 : 5)),
      bottom_(panelsTop) {}

bool SessionChart::isTreadmill() const {
  return record_.protocol().device == StressDeviceType::Treadmill;
}

double SessionChart::x(Duration at) const {
  return left + time_.fraction(inSeconds(at)) * (right_ - left);
}

std::string SessionChart::svg() {
  loadPanel();
  if (isTreadmill()) gradePanel();
  if (!record_.pedalRate().empty()) pedalPanel();
  pressurePanel();
  saturationPanel();
  return fmt::format(
      "<svg class=\"session {}\" viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"Load, blood pressure and "
      "oxygen "
      "saturation over time\" data-left=\"{}\" data-right=\"{}\" data-seconds=\"{:.3f}\">\n{}{}{}{}</svg>\n",
      form_ == Form::wide ? "wide" : "narrow", right_ + margin, bottom_ + timeAxisHeight, left, right_,
      time_.high(), bands(), timeAxis(), body_, flags());
}

void SessionChart::loadPanel() {
  const Axis axis =
      Axis::around(lowest({&record_.load()}, 0),
                   highest({&record_.commandedLoad(), &record_.load()}, isTreadmill() ? 2 : 50), 5);
  std::vector<std::pair<const char*, const char*>> legend{{"target", "target"}};
  if (record_.reportsLoad()) legend.emplace_back("measured", "measured");
  const Panel panel = beginPanel("load", isTreadmill() ? "Speed, km/h" : "Power, W", 170, axis, legend);
  steps(panel, "target", record_.commandedLoad(), record_.end());
  reports(panel, "measured", record_.load());
  endPanel();
}

void SessionChart::gradePanel() {
  const Axis axis = Axis::around(lowest({&record_.grade()}, 0),
                                 highest({&record_.commandedGrade(), &record_.grade()}, 5), 4);
  const Panel panel = beginPanel("grade", "Grade, %", 100, axis, {});
  const Duration end = record_.spans().empty() ? record_.end() : record_.spans().back().end;
  steps(panel, "target", record_.commandedGrade(), end);
  reports(panel, "measured", record_.grade());
  endPanel();
}

void SessionChart::pedalPanel() {
  const Panel panel =
      beginPanel("rpm", "Pedal rate, 1/min", 90,
                 Axis::around(lowest({&record_.pedalRate()}, 0), highest({&record_.pedalRate()}, 80), 4), {});
  reports(panel, "measured", record_.pedalRate());
  endPanel();
}

void SessionChart::pressurePanel() {
  const bool isWide = form_ == Form::wide;
  double low = 60;
  double high = 160;
  for (const auto& sample : record_.pressures()) {
    low = std::min<double>(low, sample.pressure.diastolic - 10);
    // With room for the labels.
    high = std::max<double>(high, sample.pressure.systolic + (isWide ? 20 : 50));
  }
  const Panel panel =
      beginPanel("pressure", isWide ? "Blood pressure, mmHg" : "Pressure, mmHg", 140,
                 Axis::around(std::max(low, 0.0), high, 5),
                 {{"systolic", isWide ? "systolic" : "sys"}, {"diastolic", isWide ? "diastolic" : "dia"}});
  double lastLabel = -labelWidth;
  bool isRaised = false;
  for (const auto& sample : record_.pressures()) {
    const double at = x(sample.at);
    // Labels that would run into each other stand at two heights.
    isRaised = at - lastLabel < labelWidth && !isRaised;
    lastLabel = at;
    const double systolic = panel.y(sample.pressure.systolic);
    const double diastolic = panel.y(sample.pressure.diastolic);
    add(fmt::format("<g class=\"cuff\"><title>{} – {:.0f}/{:.0f} mmHg</title>", clockText(sample.at),
                    sample.pressure.systolic, sample.pressure.diastolic));
    add(fmt::format("<line x1=\"{0:.2f}\" x2=\"{0:.2f}\" y1=\"{1:.2f}\" y2=\"{2:.2f}\"/>", at, systolic,
                    diastolic));
    // Triangles that meet the line in their tips: at the value.
    add(fmt::format("<path class=\"systolic\" d=\"M{:.2f} {:.2f} l-5 -9 h10 z\"/>", at, systolic));
    add(fmt::format("<path class=\"diastolic\" d=\"M{:.2f} {:.2f} l-5 9 h10 z\"/>", at, diastolic));
    add(fmt::format("<text x=\"{:.2f}\" y=\"{:.2f}\">{:.0f}/{:.0f}</text></g>", at,
                    systolic - (isRaised ? 23 : 12), sample.pressure.systolic, sample.pressure.diastolic));
  }
  endPanel();
}

void SessionChart::saturationPanel() {
  Series known;
  std::copy_if(record_.saturation().begin(), record_.saturation().end(), std::back_inserter(known),
               [](const auto& sample) { return sample.value >= 0; });
  const Panel panel = beginPanel("saturation", "Oxygen saturation (SpO2), %", 100,
                                 Axis::around(lowest({&known}, 90), highest({&known}, 100), 4), {});
  // An oximeter reports changes only: a value holds until the next one, or until the finger is gone.
  Series piece;
  const auto finish = [&](Duration end) {
    if (!piece.empty()) steps(panel, "saturation", piece, end);
    piece.clear();
  };
  for (const auto& sample : record_.saturation()) {
    if (sample.value < 0) {
      finish(sample.at);
    } else {
      piece.push_back(sample);
    }
  }
  finish(record_.end());
  endPanel();
}

SessionChart::Panel SessionChart::beginPanel(const char* name, const char* title, double height,
                                             const Axis& axis,
                                             const std::vector<std::pair<const char*, const char*>>& legend) {
  const Panel panel{axis, bottom_ + titleHeight, bottom_ + titleHeight + height};
  bottom_ = panel.bottom + panelGap;
  add(fmt::format(
      "<g class=\"panel\" data-name=\"{}\" data-top=\"{:.2f}\" data-bottom=\"{:.2f}\" data-low=\"{:g}\" "
      "data-high=\"{:g}\">",
      name, panel.top, panel.bottom, axis.low(), axis.high()));
  for (const double tick : axis.ticks()) {
    add(fmt::format("<line class=\"grid\" x1=\"{0}\" x2=\"{1}\" y1=\"{2:.2f}\" y2=\"{2:.2f}\"/>", left,
                    right_, panel.y(tick)));
    add(fmt::format("<text class=\"tick\" x=\"{}\" y=\"{:.2f}\">{:g}</text>", left - 7, panel.y(tick) + 4,
                    tick));
  }
  add(fmt::format("<text class=\"title\" x=\"{}\" y=\"{:.2f}\">{}</text>", left, panel.top - 9, title));
  double place = right_;
  for (auto entry = legend.rbegin(); entry != legend.rend(); ++entry) {
    place -= characterWidth * static_cast<double>(std::string_view(entry->second).size()) + 4;
    add(fmt::format("<text class=\"legend\" x=\"{:.2f}\" y=\"{:.2f}\">{}</text>", place, panel.top - 9,
                    entry->second));
    add(fmt::format("<line class=\"key {0}\" x1=\"{1:.2f}\" x2=\"{2:.2f}\" y1=\"{3:.2f}\" y2=\"{3:.2f}\"/>",
                    entry->first, place - 26, place - 6, panel.top - 13));
    place -= 42;
  }
  return panel;
}

void SessionChart::steps(const Panel& panel, const char* kind, const Series& series, Duration end) {
  if (series.empty()) return;
  std::string points;
  for (std::size_t i = 0; i < series.size(); ++i) {
    const Duration until = i + 1 < series.size() ? series[i + 1].at : std::max(end, series[i].at);
    const double height = panel.y(series[i].value);
    points += fmt::format("{}{:.2f},{:.2f} {:.2f},{:.2f}", i == 0 ? "" : " ", x(series[i].at), height,
                          x(until), height);
  }
  add(fmt::format("<polyline class=\"{}\" points=\"{}\"/>", kind, points));
}

void SessionChart::reports(const Panel& panel, const char* kind, const Series& series) {
  Series known;
  for (const auto& sample : series) {
    if (!known.empty() && sample.at - known.back().at > longestSilence)
      piece(panel, kind, std::exchange(known, {}));
    known.push_back(sample);
  }
  piece(panel, kind, known);
}

void SessionChart::piece(const Panel& panel, const char* kind, const Series& piece) {
  if (piece.empty()) return;
  if (piece.size() == 1) {
    return add(fmt::format("<circle class=\"{}\" cx=\"{:.2f}\" cy=\"{:.2f}\" r=\"2\"/>", kind, x(piece[0].at),
                           panel.y(piece[0].value)));
  }
  std::string points;
  for (const auto& sample : piece) {
    points += fmt::format("{}{:.2f},{:.2f}", points.empty() ? "" : " ", x(sample.at), panel.y(sample.value));
  }
  add(fmt::format("<polyline class=\"{}\" points=\"{}\"/>", kind, points));
}

std::string SessionChart::bands() const {
  std::string drawn;
  for (std::size_t i = 0; i < record_.spans().size(); ++i) {
    const auto& span = record_.spans()[i];
    const double begin = x(span.begin);
    const double room = x(span.end) - begin;
    drawn += fmt::format(
        "<rect class=\"{}\" x=\"{:.2f}\" y=\"{}\" width=\"{:.2f}\" height=\"{:.2f}\"><title>{}, {} to "
        "{}</title></rect>\n",
        bandClass(span.planned.kind, i), begin, flagHeight, room, bottom_ - flagHeight, markup(span.name),
        clockText(span.begin), clockText(span.end));
    drawn += fmt::format("<text class=\"band-name\" x=\"{:.2f}\" y=\"{}\">{}</text>\n", begin + room / 2,
                         flagHeight + 14, markup(nameWithin(room, span.name)));
  }
  return drawn;
}

std::string SessionChart::flags() const {
  std::string drawn;
  double last = -flagDistance;
  for (std::size_t i = 0; i < record_.marks().size(); ++i) {
    const auto& mark = record_.marks()[i];
    const double at = x(mark.at);
    const char* kind = mark.isFailure ? "flag failure" : "flag";
    drawn += fmt::format(
        "<g class=\"{0}\"><title>{1} – {2}</title><line x1=\"{3:.2f}\" x2=\"{3:.2f}\" y1=\"{4}\" "
        "y2=\"{5:.2f}\"/>",
        kind, clockText(mark.at), markup(mark.text), at, flagHeight - 4, bottom_);
    if (at - last >= flagDistance) {
      last = at;
      drawn += fmt::format(
          "<circle cx=\"{0:.2f}\" cy=\"10\" r=\"8\"/><text x=\"{0:.2f}\" y=\"13.5\">{1}</text>", at, i + 1);
    }
    drawn += "</g>\n";
  }
  return drawn;
}

std::string SessionChart::timeAxis() const {
  std::string drawn;
  for (const double tick : time_.ticks()) {
    const double at = left + time_.fraction(tick) * (right_ - left);
    drawn +=
        fmt::format("<line class=\"grid time\" x1=\"{0:.2f}\" x2=\"{0:.2f}\" y1=\"{1}\" y2=\"{2:.2f}\"/>", at,
                    panelsTop, bottom_);
    drawn += fmt::format("<text class=\"tick time\" x=\"{:.2f}\" y=\"{:.2f}\">{}</text>\n", at, bottom_ + 16,
                         clockText(std::chrono::seconds(std::llround(tick))));
  }
  drawn += fmt::format("<text class=\"tick time\" x=\"{}\" y=\"{:.2f}\">time, minutes:seconds</text>\n",
                       (left + right_) / 2, bottom_ + 34);
  return drawn;
}

}  // namespace tarsil::cli
