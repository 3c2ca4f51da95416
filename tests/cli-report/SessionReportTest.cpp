#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli-report/SessionFiles.hpp"
#include "tests/cli-report/SimulatedSession.hpp"
#include "tools/tarsil/report/SessionFolder.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* treadmillTest =
    "name Walk\ndevice treadmill\nwarm-up 0:10 1.6 0\nstage 1:10 2.7 10\nstage 1:10 4 12\nrecovery 0:10 1.6 "
    "0\n";
constexpr const char* bicycleTest =
    "name Ride\ndevice bicycle\nwarm-up 0:10 25\nstage 1:10 50\nramp 1:10 50 100\nrecovery 0:10 25\n";

/// What a command prints.
std::string output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string text;
  std::array<char, 4096> buffer;
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), count);
  EXPECT_EQ(pclose(pipe), 0) << command << '\n' << text;
  return text;
}

/// A whole session with a report in a folder.
class SessionReportTest : public testing::Test {
 protected:
  void run(const std::string& model, const std::string& protocol) {
    session_.emplace(model, protocol);
    session_->begin();
    ASSERT_TRUE(session_->finish());
    EXPECT_EQ(session_->test->outcome(), ExerciseTest::Outcome::completed) << session_->test->reason();
    writeReport(folder_.path(), session_->journal);
    rows_ = readCsv(textOf(folder_ / "session.csv"));
  }

  Points valuesOf(const std::string& kind, const std::string& what, std::size_t value) const {
    Points points;
    for (const CsvRow& row : rowsOf(rows_, kind, what)) points.emplace_back(row.time, row.values.at(value));
    return points;
  }

  /// The target of the load chart: what was set, and 0 from the first stop on.
  Points commandedLoad() const {
    Points points = valuesOf("asked", "setLoad", 0);
    points.emplace_back(rowsOf(rows_, "asked", "stopStressDevice").at(0).time, 0);
    return points;
  }

  /// What the oximeter measured while it was on a finger.
  Points saturations() const { return valuesOf("answered", "saturation", 0); }

  static void expectSame(const ChartReader& chart, const std::string& panel, const Points& drawn,
                         const Points& recorded) {
    EXPECT_THAT(recorded, Not(IsEmpty())) << panel;
    ASSERT_EQ(drawn.size(), recorded.size()) << panel;
    for (std::size_t i = 0; i < drawn.size(); ++i) {
      EXPECT_NEAR(drawn[i].first, recorded[i].first, chart.timeTolerance()) << panel << " point " << i;
      EXPECT_NEAR(drawn[i].second, recorded[i].second, chart.valueTolerance(panel))
          << panel << " point " << i;
    }
  }

  ScratchFolder folder_;
  std::optional<SimulatedSession> session_;
  std::vector<CsvRow> rows_;
};

TEST_F(SessionReportTest, ChartsOfATreadmillHoldTheRecordedValues) {
  run("LodeTreadmill", treadmillTest);
  const ChartReader chart(textOf(folder_ / "report.html"));
  expectSame(chart, "load", chart.steps("load", "target"), commandedLoad());
  expectSame(chart, "load", chart.points("load", "measured"), valuesOf("answered", "load", 0));
  expectSame(chart, "grade", chart.steps("grade", "target"), valuesOf("asked", "setLoad", 1));
  expectSame(chart, "grade", chart.points("grade", "measured"), valuesOf("answered", "load", 1));
  expectSame(chart, "pressure", chart.marks("systolic"), valuesOf("answered", "pressure", 0));
  expectSame(chart, "pressure", chart.marks("diastolic"), valuesOf("answered", "pressure", 1));
  expectSame(chart, "saturation", chart.steps("saturation", "saturation"), saturations());
  EXPECT_FALSE(chart.hasPanel("rpm"));
}

TEST_F(SessionReportTest, ChartsOfABicycleHoldTheRecordedValues) {
  run("ErgosanaK4.8P10", bicycleTest);
  const ChartReader chart(textOf(folder_ / "report.html"));
  expectSame(chart, "load", chart.steps("load", "target"), commandedLoad());
  expectSame(chart, "load", chart.points("load", "measured"), valuesOf("answered", "power", 0));
  expectSame(chart, "rpm", chart.points("rpm", "measured"), valuesOf("answered", "rpm", 0));
  expectSame(chart, "pressure", chart.marks("systolic"), valuesOf("answered", "pressure", 0));
  expectSame(chart, "pressure", chart.marks("diastolic"), valuesOf("answered", "pressure", 1));
  expectSame(chart, "saturation", chart.steps("saturation", "saturation"), saturations());
  EXPECT_FALSE(chart.hasPanel("grade"));
}

// A browser is no part of what this product needs, so a machine without one says that it left this out.
TEST_F(SessionReportTest, ABrowserDrawsThePage) {
  if (std::system("command -v chromium >/dev/null") != 0)
    GTEST_SKIP() << "no chromium: the page is not drawn";
  run("LodeTreadmill", treadmillTest);
  const std::string browser =
      "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync --disable-dev-shm-usage "
      "--user-data-dir='" +
      (folder_ / "browser").string() + "' --dump-dom 'file://" + (folder_ / "report.html").string() +
      "' 2>/dev/null";
  const std::string page = output(browser);
  // The browser's own reading of the page has the same charts and table.
  const ChartReader chart(page);
  expectSame(chart, "load", chart.points("load", "measured"), valuesOf("answered", "load", 0));
  expectSame(chart, "pressure", chart.marks("systolic"), valuesOf("answered", "pressure", 0));
  EXPECT_THAT(page, HasSubstr("<th>stage 2 of 2</th>"));
}

}  // namespace
}  // namespace tarsil::cli
