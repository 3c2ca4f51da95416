#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tarsil::cli {

/// A line of session.csv.
struct CsvRow {
  double time = 0;
  std::string role;
  std::string kind;
  std::string what;
  std::vector<double> values;
  std::string text;
};

/// Reads the file as RFC 4180 has it; fails the test for lines that are not eight fields.
std::vector<CsvRow> readCsv(const std::string& text);
std::vector<CsvRow> rowsOf(const std::vector<CsvRow>& rows, const std::string& kind, const std::string& what);

using Points = std::vector<std::pair<double, double>>;

/// Reads the values back from the charts of report.html: seconds and units of the panel.
class ChartReader {
 public:
  explicit ChartReader(std::string page);

  bool hasPanel(const std::string& panel) const;
  /// The points of all lines and dots of that kind.
  Points points(const std::string& panel, const std::string& kind) const;
  /// Where the lines of steps begin each step.
  Points steps(const std::string& panel, const std::string& kind) const;
  /// The tips of the blood-pressure marks.
  Points marks(const std::string& kind) const;

  /// What the rounding of the picture's coordinates may change.
  double timeTolerance() const;
  double valueTolerance(const std::string& panel) const;

 private:
  struct Scale {
    double top, bottom, low, high;
  };

  std::string panelText(const std::string& panel) const;
  Scale scaleOf(const std::string& panel) const;
  Points inUnits(const std::string& panel, const std::vector<double>& coordinates) const;

  std::string page_;
  double left_ = 0;
  double right_ = 0;
  double seconds_ = 0;
};

}  // namespace tarsil::cli
