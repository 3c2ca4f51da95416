#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

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

// A browser is no part of what this product needs, so a machine without one says that it left this out. What
// it draws stays in the folder of the tests' output.

class InABrowserTest : public SessionReportTest {
 protected:
  void SetUp() override {
    if (std::system("command -v chromium >/dev/null") != 0)
      GTEST_SKIP() << "no chromium: the page is drawn in .ci/run, which installs it";
    std::filesystem::create_directories(TARSIL_PICTURES);
  }

  /// What it prints.
  std::string browser(const std::string& options, const std::filesystem::path& page) const {
    return output(
        "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
        "--disable-background-networking --disable-component-update --disable-sync "
        "--disable-dev-shm-usage --user-data-dir='" +
        (folder_ / "browser").string() + "' " + options + " 'file://" + page.string() + "' 2>/dev/null");
  }

  static std::string picture(const char* name) { return "'" TARSIL_PICTURES "/" + std::string(name) + "'"; }

  void runBruce() {
    run("LodeTreadmill", textOf(TARSIL_SOURCE_FOLDER "/tools/tarsil/protocols/bruce.protocol"));
  }
};

TEST_F(InABrowserTest, HasTheRecordedValues) {
  run("LodeTreadmill", treadmillTest);
  const std::string page = browser("--dump-dom", folder_ / "report.html");
  // The browser's own reading of the page has the same charts and table.
  const ChartReader chart(page);
  expectSame(chart, "load", chart.points("load", "measured"), valuesOf("answered", "load", 0));
  expectSame(chart, "pressure", chart.marks("systolic"), valuesOf("answered", "pressure", 0));
  EXPECT_THAT(page, HasSubstr("<th>stage 2 of 2</th>"));
}

TEST_F(InABrowserTest, ABruceOf24MinutesFitsOneSheet) {
  runBruce();
  browser("--no-pdf-header-footer --print-to-pdf=" + picture("report.pdf"), folder_ / "report.html");
  const std::string pdf = textOf(TARSIL_PICTURES "/report.pdf");
  EXPECT_THAT(pdf, testing::StartsWith("%PDF"));
  const std::regex sheet("/Type /Page\\b");
  EXPECT_EQ(std::distance(std::sregex_iterator(pdf.begin(), pdf.end(), sheet), {}), 1);
}

TEST_F(InABrowserTest, NothingScrollsSidewaysOnATelephone) {
  runBruce();
  browser("--window-size=1100,1500 --screenshot=" + picture("report.png"), folder_ / "report.html");
  browser("--window-size=400,2600 --screenshot=" + picture("report-phone.png"), folder_ / "report.html");
  // A window is never as narrow as a telephone, a frame in it is.
  std::string page = textOf(folder_ / "report.html");
  page = std::regex_replace(std::regex_replace(page, std::regex("&"), "&amp;"), std::regex("\""), "&quot;");
  const std::filesystem::path telephone = folder_ / "telephone.html";
  std::ofstream(telephone)
      << "<iframe width=\"400\" height=\"2600\" style=\"border: 0\" srcdoc=\"" << page
      << "\" onload=\"const root = contentDocument.documentElement;"
         "const letters = [...contentDocument.querySelectorAll('svg.narrow text')]"
         "  .filter(text => text.textContent).map(text => text.getBoundingClientRect().height);"
         "document.title = `scrolls ${root.scrollWidth > root.clientWidth}, letters ${Math.min(...letters) > "
         "9.5}`;"
         "\"></iframe>";
  EXPECT_THAT(browser("--dump-dom", telephone), HasSubstr("<title>scrolls false, letters true</title>"));
}

TEST_F(InABrowserTest, IsDarkInTheDark) {
  run("LodeTreadmill", treadmillTest);
  browser("--window-size=1100,1500 --blink-settings=preferredColorScheme=0 --screenshot=" +
              picture("report-dark.png"),
          folder_ / "report.html");
  const std::filesystem::path measured = folder_ / "measured.html";
  std::ofstream(measured)
      << textOf(folder_ / "report.html")
      << "<script>document.title = getComputedStyle(document.body).backgroundColor;</script>";
  EXPECT_THAT(browser("--blink-settings=preferredColorScheme=0 --dump-dom", measured),
              HasSubstr("<title>rgb(18, 24, 30)</title>"));
  EXPECT_THAT(browser("--blink-settings=preferredColorScheme=1 --dump-dom", measured),
              HasSubstr("<title>rgb(255, 255, 255)</title>"));
}

}  // namespace
}  // namespace tarsil::cli
