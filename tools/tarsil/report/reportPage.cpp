#include "tools/tarsil/report/reportPage.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "tools/tarsil/report/SessionChart.hpp"
#include "tools/tarsil/report/pageStyle.hpp"
#include "tools/tarsil/report/reportText.hpp"
#include "tools/tarsil/run/clockText.hpp"

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

Outcome outcomeOf(ExitCode result) {
  switch (result) {
    case succeeded:
      return {"good", "completed"};
    case interrupted:
      return {"fair", "stopped before its end"};
    case somethingMissing:
      return {"fair", "completed, but something is missing"};
    case portNotOpened:
      return {"bad", "not begun: a device did not answer"};
    case portVanished:
      return {"bad", "stopped: a port vanished"};
    case reportFailed:
      return {"bad", "stopped: the report could not be written"};
    case deviceFault:
      return {"bad", "stopped: a device sent what its driver cannot go on with"};
    case failed:
    case badInput:
      return {"bad", "failed"};
  }
  return {"bad", "failed"};
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
  Page(const SessionRecord& record, const ModelTraits& traits) : record_(record), traits_(traits) {}

  std::string text(std::chrono::system_clock::time_point began, ExitCode result) {
    add("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">");
    add("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">");
    add(fmt::format("<title>{} – exercise test report</title>", markup(record_.protocol().name)));
    add(fmt::format("<style>\n{}</style>\n</head>\n<body>\n<main>", pageStyle));
    header(began, result);
    summary();
    add("<figure>\n" + SessionChart(record_, traits_).svg() + "</figure>");
    repeatedReportsNote();
    phases();
    events();
    add("<footer>Every command, reply and value with its time: session.csv. The same as a replay script: "
        "session.jsonl.</footer>\n</main>\n</body>\n</html>");
    return page_;
  }

 private:
  bool isTreadmill() const { return traits_.kind == StressDeviceType::Treadmill; }
  void add(const std::string& text) { page_ += text + '\n'; }

  void header(std::chrono::system_clock::time_point began, ExitCode result) {
    const Outcome outcome = outcomeOf(result);
    add(fmt::format("<header>\n<h1>{}</h1>\n<p class=\"result {}\">{}</p>", markup(record_.protocol().name),
                    outcome.kind, outcome.text));
    add(fmt::format(
        "<dl><div><dt>Device</dt><dd>{}</dd></div><div><dt>Date</dt><dd>{:%Y-%m-%d %H:%M}</dd></div>"
        "<div><dt>Duration</dt><dd>{}</dd></div></dl>\n</header>",
        markup(traits_.model), fmt::localtime(std::chrono::system_clock::to_time_t(began)),
        clockText(record_.end())));
    if (record_.missing().empty()) return;
    add("<ul class=\"missing\">");
    for (const std::string& line : record_.missing()) add(fmt::format("<li>{}</li>", markup(line)));
    add("</ul>");
  }

  void summary() {
    add("<section class=\"summary\">");
    tile("Peak load", loadText(highest(record_.commandedLoad())), isTreadmill() ? "km/h" : "W");
    if (isTreadmill()) tile("Peak grade", gradeText(highest(record_.commandedGrade())), "%");
    tile("Highest blood pressure", highestPressure(), "mmHg");
    tile("Lowest SpO2", lowestSaturation(), "%");
    add("</section>");
  }

  void tile(const char* name, const std::string& value, const char* unit) {
    add(fmt::format("<div><span>{}</span><b>{}</b>{}</div>", name, value,
                    value == nothing ? std::string() : fmt::format("<i>{}</i>", unit)));
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

  void repeatedReportsNote() {
    if (!traits_.reportsLoad) {
      add("<p class=\"note\">This device does not report its load; the charts show what it was told.</p>");
    } else if (!traits_.reportsFollow) {
      add("<p class=\"note\">This device's driver repeats the first load that it received: what it reports "
          "does not "
          "follow the target.</p>");
    }
  }

  void phases() {
    if (record_.spans().empty()) return;
    const char* const unit = isTreadmill() ? "Speed, km/h" : "Power, W";
    add("<h2>Phases</h2>\n<table class=\"phases\">\n<thead>");
    add(
        fmt::format("<tr><th rowspan=\"2\">Phase</th><th rowspan=\"2\">Begin</th><th rowspan=\"2\">Time</th>"
                    "<th colspan=\"2\">{}</th>{}<th rowspan=\"2\">Blood pressure, mmHg</th>"
                    "<th rowspan=\"2\">SpO2 at end, %</th></tr>",
                    unit, isTreadmill() ? "<th colspan=\"2\">Grade, %</th>" : ""));
    add(fmt::format("<tr>{0}{1}</tr>\n</thead>\n<tbody>", "<th>planned</th><th>reached</th>",
                    isTreadmill() ? "<th>planned</th><th>reached</th>" : ""));
    for (const auto& span : record_.spans()) phase(span);
    add("</tbody>\n</table>");
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
    add(fmt::format("<td>{}</td><td>{}</td></tr>", pressuresWithin(span), saturationAt(span.end)));
  }

  std::optional<float> reached(const Series& series, const SessionRecord::Span& span) const {
    if (!traits_.reportsFollow) return std::nullopt;
    const auto sample = lastWithin(series, std::max(span.begin, span.end - longestSilence), span.end);
    return sample ? std::optional(sample->value) : std::nullopt;
  }

  std::string pressuresWithin(const SessionRecord::Span& span) const {
    std::string all;
    for (const auto& sample : record_.pressures()) {
      if (sample.at < span.begin || sample.at >= span.end) continue;
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
      const std::string times = mark.times == 1 ? "" : fmt::format(" ({} times)", mark.times);
      add(fmt::format("<tr{}><th>{}</th><td>{}</td><td>{}{}</td></tr>",
                      mark.isFailure ? " class=\"failure\"" : "", ++number, clockText(mark.at),
                      markup(mark.text), times));
    }
    add("</tbody>\n</table>");
  }

  const SessionRecord& record_;
  const ModelTraits& traits_;
  std::string page_;
};

}  // namespace

std::string reportPage(const SessionRecord& record, const ModelTraits& traits,
                       std::chrono::system_clock::time_point began, ExitCode result) {
  return Page(record, traits).text(began, result);
}

}  // namespace tarsil::cli
