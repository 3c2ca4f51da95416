#include "tools/tarsil/report/reportPage.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

#include "tarsil/exercise/metabolicCost.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tools/tarsil/report/SessionChart.hpp"
#include "tools/tarsil/report/pageStyle.hpp"
#include "tools/tarsil/report/reportText.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using Series = SessionRecord::Series;

constexpr const char* nothing = "–";

/// A load that is older than this at a phase's end was not reached for all that is known.
constexpr Duration longestSilence = 3s;

struct Outcome {
  const char* kind;
  const char* text;
};

Outcome outcomeOf(const SessionRecord& record) {
  static const std::array known{
      std::pair{"completed", Outcome{"good", "completed"}},
      std::pair{"incomplete", Outcome{"fair", "completed, but something is missing"}},
      std::pair{"notBegun", Outcome{"bad", "not begun"}},
      std::pair{"stopped", Outcome{"fair", "stopped before its end"}},
      std::pair{"lineLost", Outcome{"bad", "stopped: a port vanished"}},
      std::pair{"protectiveStop", Outcome{"bad", "protective stop"}},
  };
  for (const auto& [name, outcome] : known) {
    if (record.outcome() == name) return outcome;
  }
  return {"bad", "broken off: the program was gone"};
}

/// The last sample up to `end`; none when it is older than `begin`.
std::optional<SessionRecord::Sample> lastWithin(const Series& series, Duration begin, Duration end) {
  const auto after = std::upper_bound(series.begin(), series.end(), end,
                                      [](Duration at, const auto& sample) { return at < sample.at; });
  if (after == series.begin() || std::prev(after)->at < begin) return std::nullopt;
  return *std::prev(after);
}

class Page {
 public:
  explicit Page(const SessionRecord& record) : record_(record) {}

  std::string text() {
    add("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">");
    add("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">");
    add(fmt::format("<title>{} – exercise test report</title>", markup(record_.protocol().name)));
    add(fmt::format("<style>\n{}{}</style>\n</head>\n<body>\n<main>", pageColours, pageStyle));
    header();
    summary();
    add("<figure>\n" + SessionChart(record_).svg() + SessionChart(record_, SessionChart::Form::narrow).svg() +
        "</figure>");
    notes();
    phases();
    events();
    add("<footer>Everything that happened, with its time: journal.jsonl, and session.csv as a "
        "table.</footer>\n</main>\n</body>\n</html>");
    return page_;
  }

 private:
  bool isTreadmill() const { return record_.protocol().device == StressDeviceType::Treadmill; }
  void add(const std::string& text) { page_ += text + '\n'; }

  void header() {
    const Outcome outcome = outcomeOf(record_);
    if (record_.isSimulated())
      add("<p class=\"simulated\">SIMULATED – no patient, no device: nothing here was measured</p>");
    add(fmt::format("<header>\n<h1>{}</h1>\n<p class=\"result {}\">{}{}</p>", markup(record_.protocol().name),
                    outcome.kind, record_.isSimulated() ? "SIMULATED – " : "", outcome.text));
    add("<dl>");
    term("Patient", record_.factNamed(fact::patient));
    term("Operator", record_.factNamed(fact::operatorName));
    term("Device", record_.factNamed(fact::model));
    term("Port", record_.factNamed(fact::port));
    term("Adapter", record_.factNamed(fact::adapter));
    const auto began = std::chrono::system_clock::to_time_t(record_.head().began);
    term("Date", fmt::format("{:%Y-%m-%d %H:%M}", fmt::localtime(began)));
    term("Duration", clockText(record_.end()));
    term("Exercise time", clockText(record_.exerciseTime()));
    term("Program", record_.factNamed(fact::program));
    add("</dl>\n</header>");
    if (const std::string note = record_.factNamed(fact::note); !note.empty())
      add(fmt::format("<p class=\"remark\">{}</p>", markup(note)));
    if (record_.missing().empty()) return;
    add("<ul class=\"missing\">");
    for (const std::string& line : record_.missing()) add(fmt::format("<li>{}</li>", markup(line)));
    add("</ul>");
  }

  void term(const char* name, const std::string& value) {
    if (!value.empty()) add(fmt::format("<div><dt>{}</dt><dd>{}</dd></div>", name, markup(value)));
  }

  void summary() {
    add("<section class=\"summary\">");
    peakTile("Peak load", record_.load(), record_.commandedLoad(), isTreadmill() ? "km/h" : "W",
             isTreadmill());
    if (isTreadmill()) peakTile("Peak grade", record_.grade(), record_.commandedGrade(), "%", true);
    if (const auto peak = peakEquivalents()) tile("Peak METs, estimated", fmt::format("{:.1f}", *peak), "");
    tile("Highest blood pressure", highestPressure(), "mmHg");
    tile("Lowest SpO2", lowestSaturation(), "%");
    add("</section>");
  }

  /// What was measured, and beside it what was asked for.
  void peakTile(const char* name, const Series& measured, const Series& asked, const char* unit,
                bool hasTenths) {
    const auto text = [&](const std::optional<float>& value) {
      return value ? fmt::format("{:.{}f}", *value, hasTenths ? 1 : 0) : std::string(nothing);
    };
    tile(name, text(highest(measured)), unit, fmt::format("asked: {} {}", text(highest(asked)), unit));
  }

  void tile(const char* name, const std::string& value, const char* unit, const std::string& aside = {}) {
    add(fmt::format("<div><span>{}</span><b>{}</b>{}{}</div>", name, value,
                    value == nothing ? std::string() : fmt::format("<i>{}</i>", unit),
                    aside.empty() ? std::string() : fmt::format("<small>{}</small>", aside)));
  }

  static std::optional<float> highest(const Series& series) {
    const auto found = std::max_element(series.begin(), series.end(), [](const auto& one, const auto& other) {
      return one.value < other.value;
    });
    return found == series.end() ? std::nullopt : std::optional(found->value);
  }

  std::string highestPressure() const {
    const auto& all = record_.pressures();
    const auto found = std::max_element(all.begin(), all.end(), [](const auto& one, const auto& other) {
      return one.pressure.systolic < other.pressure.systolic;
    });
    return found == all.end() ? nothing : pressureText(found->pressure);
  }

  std::string lowestSaturation() const {
    std::optional<float> lowest;
    for (const auto& sample : record_.saturation()) {
      if (sample.value >= 0 && (!lowest || sample.value < *lowest)) lowest = sample.value;
    }
    return lowest ? fmt::format("{:.0f}", *lowest) : nothing;
  }

  std::string loadText(std::optional<float> load) const {
    if (!load) return nothing;
    return isTreadmill() ? fmt::format("{:.1f}", *load) : fmt::format("{:.0f}", *load);
  }

  /// Protocols give speeds in hundredths.
  std::string plannedText(float load) const {
    return isTreadmill() ? fmt::format("{:.2f}", load) : fmt::format("{:.0f}", load);
  }

  static std::string gradeText(std::optional<float> grade) {
    return grade ? fmt::format("{:.1f}", *grade) : nothing;
  }

  static std::string pressureText(const Pressure& pressure) {
    return fmt::format("{:.0f}/{:.0f}", pressure.systolic, pressure.diastolic);
  }

  void notes() {
    if (!record_.reportsLoad()) {
      add("<p class=\"note\">This device does not report its load: the charts show what it was told, and "
          "nobody "
          "but the people in the room has seen what it did.</p>");
    }
    if (!hasEquivalents()) return;
    add(fmt::format(
        "<p class=\"note\">METs are estimated from the load at each phase's end by the equations of the "
        "American "
        "College of Sports Medicine ({}); in brackets where the load is outside of what they were published "
        "for.</p>",
        isTreadmill() ? "walking at 3 to 6 km/h, running above 8 km/h, no hands on the rail"
                      : fmt::format("cycling at 50 to 200 W; {} kg", record_.factNamed(fact::mass))));
  }

  // A patient's mass decides what a bicycle's power costs.
  bool hasEquivalents() const { return isTreadmill() || record_.mass(); }

  std::optional<MetabolicCost> costOf(float load, float grade) const {
    if (isTreadmill()) return costOnTreadmill(load, grade);
    return record_.mass() ? costOnErgometer(load, *record_.mass()) : std::nullopt;
  }

  /// From the load that was reported, or from what was asked for where the device reports none.
  std::optional<MetabolicCost> costAtEndOf(const SessionRecord::Span& span) const {
    if (!record_.reportsLoad()) return costOf(span.planned.endLoad, span.planned.grade);
    const auto load = reached(record_.load(), span);
    const auto grade = isTreadmill() ? reached(record_.grade(), span) : std::optional(0.0F);
    return load && grade ? costOf(*load, *grade) : std::nullopt;
  }

  std::optional<double> peakEquivalents() const {
    std::optional<double> peak;
    for (const auto& span : record_.spans()) {
      const auto cost = costAtEndOf(span);
      if (cost && (!peak || cost->equivalents > *peak)) peak = cost->equivalents;
    }
    return peak;
  }

  std::string costText(const SessionRecord::Span& span) const {
    const auto cost = costAtEndOf(span);
    if (!cost) return nothing;
    const std::string text = fmt::format("{:.1f}", cost->equivalents);
    return cost->isWithinValidity ? text : "(" + text + ")";
  }

  void phases() {
    if (record_.spans().empty()) return;
    const char* const unit = isTreadmill() ? "Speed, km/h" : "Power, W";
    add(fmt::format("<h2>Phases</h2>\n<table class=\"phases {}{}\">\n<thead>",
                    isTreadmill() ? "treadmill" : "bicycle", hasEquivalents() ? " mets" : ""));
    add(
        fmt::format("<tr><th rowspan=\"2\">Phase</th><th rowspan=\"2\">Begin</th><th rowspan=\"2\">Time</th>"
                    "<th colspan=\"2\">{}</th>{}{}<th rowspan=\"2\">Blood pressure, mmHg</th>"
                    "<th rowspan=\"2\">SpO2 at end, %</th></tr>",
                    unit, isTreadmill() ? "<th colspan=\"2\">Grade, %</th>" : "",
                    hasEquivalents() ? "<th rowspan=\"2\">METs</th>" : ""));
    add(fmt::format("<tr>{0}{1}</tr>\n</thead>\n<tbody>", "<th>planned</th><th>reached</th>",
                    isTreadmill() ? "<th>planned</th><th>reached</th>" : ""));
    const std::string atRest = pressuresWithin(Duration::zero(), record_.spans().front().begin);
    if (atRest != nothing) restRow(atRest);
    for (const auto& span : record_.spans()) phase(span);
    add("</tbody>\n</table>");
  }

  void restRow(const std::string& pressures) {
    const int cells = 4 + (isTreadmill() ? 2 : 0) + (hasEquivalents() ? 1 : 0);
    add(fmt::format("<tr><th>at rest</th><td colspan=\"{}\"></td><td>{}</td><td></td></tr>", cells,
                    pressures));
  }

  void phase(const SessionRecord::Span& span) {
    const Phase& planned = span.planned;
    std::string load = plannedText(planned.load);
    if (planned.endLoad != planned.load) load += " to " + plannedText(planned.endLoad);
    add(fmt::format("<tr><th>{}</th><td>{}</td><td>{}</td><td>{}</td><td>{}</td>", markup(span.name),
                    clockText(span.begin), clockText(span.end - span.begin), load,
                    loadText(reached(record_.load(), span))));
    if (isTreadmill()) {
      add(fmt::format("<td>{}</td><td>{}</td>", gradeText(planned.grade),
                      gradeText(reached(record_.grade(), span))));
    }
    if (hasEquivalents()) add(fmt::format("<td>{}</td>", costText(span)));
    add(fmt::format("<td>{}</td><td>{}</td></tr>", pressuresWithin(span.begin, span.end),
                    saturationAt(span.end)));
  }

  std::optional<float> reached(const Series& series, const SessionRecord::Span& span) const {
    const auto sample = lastWithin(series, std::max(span.begin, span.end - longestSilence), span.end);
    return sample ? std::optional(sample->value) : std::nullopt;
  }

  std::string pressuresWithin(Duration begin, Duration end) const {
    std::string all;
    for (const auto& sample : record_.pressures()) {
      if (sample.at < begin || sample.at >= end) continue;
      all += (all.empty() ? "" : ", ") + pressureText(sample.pressure);
    }
    return all.empty() ? nothing : all;
  }

  std::string saturationAt(Duration at) const {
    const auto sample = lastWithin(record_.saturation(), Duration::zero(), at);
    return sample && sample->value >= 0 ? fmt::format("{:.0f}", sample->value) : nothing;
  }

  void events() {
    if (record_.marks().empty()) return;
    add("<h2>Events</h2>\n<table class=\"events\">\n<tbody>");
    std::size_t number = 0;
    for (const auto& mark : record_.marks()) {
      const std::string times =
          mark.times == 1 ? "" : fmt::format(", {} times, to {}", mark.times, clockText(mark.last));
      add(fmt::format("<tr{}><th>{}</th><td>{}</td><td>{}{}</td></tr>",
                      mark.isFailure ? " class=\"failure\"" : "", ++number, clockText(mark.at),
                      markup(mark.text), times));
    }
    add("</tbody>\n</table>");
  }

  const SessionRecord& record_;
  std::string page_;
};

}  // namespace

std::string reportPage(const SessionRecord& record) {
  return Page(record).text();
}

}  // namespace tarsil::cli
