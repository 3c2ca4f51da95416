#include "tests/cli-report/SessionFiles.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

namespace tarsil::cli {
namespace {

std::vector<std::vector<std::string>> records(const std::string& text) {
  std::vector<std::vector<std::string>> all;
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quoted && text[i] == '"' && text[i + 1] == '"') {
      fields.back() += text[i++];
    } else if (text[i] == '"') {
      quoted = !quoted;
    } else if (!quoted && text[i] == ',') {
      fields.emplace_back();
    } else if (!quoted && text[i] == '\n') {
      all.push_back(std::exchange(fields, {""}));
    } else {
      fields.back() += text[i];
    }
  }
  EXPECT_EQ(fields, std::vector<std::string>{""}) << "the last line has no end";
  return all;
}

double attribute(const std::string& text, const std::string& name) {
  const std::string before = " " + name + "=\"";
  const std::size_t at = text.find(before);
  if (at == std::string::npos) {
    ADD_FAILURE() << "no " << name;
    return 0;
  }
  return std::stod(text.substr(at + before.size()));
}

/// Every number between `before` and the character `end`, wherever they stand. (The standard's expressions
/// recurse once a character, and a chart has long lines.)
std::vector<double> numbers(const std::string& text, const std::string& before, char end) {
  std::vector<double> all;
  for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
    at += before.size();
    std::string values = text.substr(at, text.find(end, at) - at);
    std::replace(values.begin(), values.end(), ',', ' ');
    std::istringstream stream(values);
    std::copy(std::istream_iterator<double>(stream), {}, std::back_inserter(all));
  }
  return all;
}

}  // namespace

std::vector<CsvRow> readCsv(const std::string& text) {
  std::vector<CsvRow> rows;
  for (const auto& fields : records(text)) {
    EXPECT_EQ(fields.size(), 8U);
    if (fields.size() != 8 || fields[0] == "time_s") continue;
    CsvRow row{std::stod(fields[0]), fields[1], fields[2], fields[3], {}, fields[7]};
    for (std::size_t i = 4; i < 7; ++i) {
      if (!fields[i].empty()) row.values.push_back(std::stod(fields[i]));
    }
    rows.push_back(row);
  }
  return rows;
}

std::vector<CsvRow> rowsOf(const std::vector<CsvRow>& rows, const std::string& kind,
                           const std::string& what) {
  std::vector<CsvRow> some;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(some),
               [&](const CsvRow& row) { return row.kind == kind && row.what == what; });
  return some;
}

ChartReader::ChartReader(std::string page) : page_(std::move(page)) {
  left_ = attribute(page_, "data-left");
  right_ = attribute(page_, "data-right");
  seconds_ = attribute(page_, "data-seconds");
}

bool ChartReader::hasPanel(const std::string& panel) const {
  return page_.find("data-name=\"" + panel + "\"") != std::string::npos;
}

std::string ChartReader::panelText(const std::string& panel) const {
  const std::size_t begin = page_.find("<g class=\"panel\" data-name=\"" + panel + "\"");
  if (begin == std::string::npos) {
    ADD_FAILURE() << "no panel " << panel;
    return "";
  }
  return page_.substr(begin, page_.find("<g class=\"panel\"", begin + 1) - begin);
}

ChartReader::Scale ChartReader::scaleOf(const std::string& panel) const {
  const std::string text = panelText(panel);
  return {attribute(text, "data-top"), attribute(text, "data-bottom"), attribute(text, "data-low"),
          attribute(text, "data-high")};
}

Points ChartReader::inUnits(const std::string& panel, const std::vector<double>& coordinates) const {
  const Scale scale = scaleOf(panel);
  Points points;
  for (std::size_t i = 0; i + 1 < coordinates.size(); i += 2) {
    points.emplace_back((coordinates[i] - left_) / (right_ - left_) * seconds_,
                        scale.low + (scale.bottom - coordinates[i + 1]) / (scale.bottom - scale.top) *
                                        (scale.high - scale.low));
  }
  return points;
}

Points ChartReader::points(const std::string& panel, const std::string& kind) const {
  std::string text = panelText(panel);
  // A dot is a line of one point.
  text = std::regex_replace(text, std::regex("<circle (class=\"[a-z]+\") cx=\"([^\"]*)\" cy=\"([^\"]*)\""),
                            "<polyline $1 points=\"$2,$3\"");
  return inUnits(panel, numbers(text, "<polyline class=\"" + kind + "\" points=\"", '"'));
}

Points ChartReader::steps(const std::string& panel, const std::string& kind) const {
  const Points corners = points(panel, kind);
  Points begins;
  for (std::size_t i = 0; i < corners.size(); i += 2) begins.push_back(corners[i]);
  return begins;
}

Points ChartReader::marks(const std::string& kind) const {
  return inUnits("pressure", numbers(panelText("pressure"), "<path class=\"" + kind + "\" d=\"M", 'l'));
}

double ChartReader::timeTolerance() const {
  return 0.006 / (right_ - left_) * seconds_ + 0.001;
}

double ChartReader::valueTolerance(const std::string& panel) const {
  const Scale scale = scaleOf(panel);
  return 0.006 / (scale.bottom - scale.top) * (scale.high - scale.low);
}

}  // namespace tarsil::cli
