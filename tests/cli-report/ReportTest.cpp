#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/guard/Journal.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/report/ReportFile.hpp"
#include "tools/tarsil/report/SessionFolder.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"
#include "tools/tarsil/report/csvLine.hpp"
#include "tools/tarsil/report/reportPage.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* treadmillTest = "name A & B\ndevice treadmill\nstage 1:00 5 2\nstage 1:00 6 4\n";

Load speed(float kmph, float percent) {
  return {.speed = kmph, .grade = percent};
}

/// A session's journal, event by event, and the page that is made of it.
class PageTest : public testing::Test {
 protected:
  PageTest() {
    journal_.head = {.began = std::chrono::system_clock::time_point(1709301909s),
                     .facts = {{fact::protocol, treadmillTest},
                               {fact::model, "LodeTreadmill"},
                               {fact::port, "ttyUSB0"},
                               {fact::reportsLoad, "yes"}}};
  }

  void at(Duration time) { now_ = time; }
  void happens(Source source, Event::What what) {
    journal_.events.push_back({.at = Clock::Instant(now_), .source = source, .what = std::move(what)});
  }
  void ends(const char* outcome) { happens(Source::station, Noted{.word = "outcome", .text = outcome}); }
  void phase(std::size_t index, const char* name) {
    happens(Source::station, PhaseBegan{.index = index, .name = name, .target = {}});
  }

  std::string page() const { return reportPage(SessionRecord(journal_)); }
  std::size_t count(const std::string& text) const {
    const std::string whole = page();
    std::size_t found = 0;
    for (std::size_t i = whole.find(text); i != std::string::npos; i = whole.find(text, i + 1)) ++found;
    return found;
  }

  Journal journal_;
  Duration now_{};
};

TEST_F(PageTest, NamesWhatWasRunAndWhatIsMissing) {
  journal_.head.facts[fact::patient] = "P<17>";
  journal_.head.facts[fact::operatorName] = "Dr. O";
  journal_.head.facts[fact::program] = "tarsil 1.2.3";
  at(65s);
  happens(Source::station, Noted{.word = "missing", .text = "oximeter: nothing"});
  ends("incomplete");
  EXPECT_THAT(page(), HasSubstr("<h1>A &amp; B</h1>"));
  EXPECT_THAT(page(), HasSubstr("<p class=\"result fair\">completed, but something is missing</p>"));
  EXPECT_THAT(page(), HasSubstr("<dd>LodeTreadmill</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Port</dt><dd>ttyUSB0</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Patient</dt><dd>P&lt;17&gt;</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Operator</dt><dd>Dr. O</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Program</dt><dd>tarsil 1.2.3</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Duration</dt><dd>1:05</dd>"));
  EXPECT_THAT(page(), HasSubstr("<li>oximeter: nothing</li>"));
  EXPECT_THAT(page(), Not(HasSubstr("http")));
  EXPECT_THAT(page(), Not(HasSubstr("<script")));
}

TEST_F(PageTest, SaysThatASimulatedSessionIsOne) {
  ends("completed");
  EXPECT_THAT(page(), Not(HasSubstr("SIMULATED")));
  EXPECT_THAT(page(), HasSubstr("<p class=\"result good\">completed</p>"));
  journal_.head.facts[fact::simulated] = "yes";
  EXPECT_THAT(page(), HasSubstr("<p class=\"simulated\">SIMULATED"));
  EXPECT_THAT(page(), HasSubstr("<p class=\"result good\">SIMULATED – completed</p>"));
}

TEST_F(PageTest, FoldsWhatRepeats) {
  at(12s);
  for (int i = 0; i < 49; ++i) {
    happens(Source::exercise, DeviceRefused{.code = "04", .details = "<stop>"});
    now_ += 1s;
  }
  at(5min);
  happens(Source::exercise, DeviceRefused{.code = "04", .details = "<stop>"});
  ends("incomplete");
  EXPECT_THAT(page(), HasSubstr("<td>0:12</td><td>exercise: error 04: &lt;stop&gt;, 49 times, to 1:00</td>"));
  EXPECT_THAT(page(), HasSubstr("<td>5:00</td><td>exercise: error 04: &lt;stop&gt;</td>"));
}

TEST_F(PageTest, ListsWhatEachPhaseReached) {
  phase(0, "stage 1 of 2");
  happens(Source::oximeter, SaturationMeasured{97});
  at(30s);
  happens(Source::monitor, PressureMeasured{.pressure = {131, 78}});
  at(59s);
  happens(Source::exercise, LoadMeasured{speed(4.9F, 2)});
  at(60s);
  phase(1, "stage 2 of 2");
  at(61s);
  happens(Source::exercise, LoadMeasured{speed(5, 2)});
  at(100s);
  happens(Source::exercise, Asked{.command = Command::setLoad, .load = speed(5, 2)});
  happens(Source::exercise, Asked{.command = Command::stop});
  ends("completed");
  // 4.9 km/h at 2 %: 81.7 m/min, 8.17 + 2.94 + 3.5 ml
  EXPECT_THAT(page(),
              HasSubstr("<tr><th>stage 1 of 2</th><td>0:00</td><td>1:00</td><td>5.00</td><td>4.9</td>\n"
                        "<td>2.0</td><td>2.0</td>\n<td>4.2</td>\n<td>131/78</td><td>97</td></tr>"));
  // A load that was last reported 39 s before the end says nothing of the end.
  EXPECT_THAT(page(), HasSubstr("<tr><th>stage 2 of 2</th><td>1:00</td><td>0:40</td><td>6.00</td><td>–</td>\n"
                                "<td>4.0</td><td>–</td>\n<td>–</td>\n<td>–</td><td>97</td></tr>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Exercise time</dt><dd>1:40</dd>"));
}

TEST_F(PageTest, PeaksAreMeasuredWithWhatWasAskedBesideThem) {
  phase(0, "stage 1 of 2");
  happens(Source::exercise, Asked{.command = Command::setLoad, .load = speed(6, 3)});
  at(2s);
  happens(Source::exercise, LoadMeasured{speed(4.2F, 1)});
  ends("stopped");
  EXPECT_THAT(page(), HasSubstr("<span>Peak load</span><b>4.2</b><i>km/h</i><small>asked: 6.0 km/h</small>"));
  EXPECT_THAT(page(), HasSubstr("<span>Peak grade</span><b>1.0</b><i>%</i><small>asked: 3.0 %</small>"));
}

TEST_F(PageTest, AModelThatReportsNothingHasNoMeasuredLine) {
  journal_.head.facts[fact::reportsLoad] = "no";
  phase(0, "stage 1 of 2");
  happens(Source::exercise, Asked{.command = Command::setLoad, .load = speed(5, 2)});
  at(60s);
  ends("completed");
  EXPECT_THAT(page(), HasSubstr("<span>Peak load</span><b>–</b><small>asked: 5.0 km/h</small>"));
  EXPECT_THAT(page(), Not(HasSubstr("class=\"measured\"")));
  EXPECT_THAT(page(), Not(HasSubstr(">measured<")));
  EXPECT_THAT(page(), HasSubstr("This device does not report its load"));
}

TEST_F(PageTest, ASaturationEndsWhereItsOximeterFellSilent) {
  phase(0, "stage 1 of 2");
  happens(Source::oximeter, SaturationMeasured{97});
  for (now_ = 1s; now_ <= 20s; now_ += 1s) happens(Source::oximeter, Received{{0x61}});
  at(60s);
  happens(Source::oximeter, Received{{0x61}});
  happens(Source::oximeter, SaturationMeasured{96});
  for (now_ = 61s; now_ <= 90s; now_ += 1s) happens(Source::oximeter, Received{{0x61}});
  at(120s);
  ends("completed");
  const SessionRecord record(journal_);
  std::vector<std::pair<Duration, float>> known;
  for (const auto& sample : record.saturation()) known.emplace_back(sample.at, sample.value);
  EXPECT_THAT(known, ElementsAre(std::pair{Duration(0s), 97.0F}, std::pair{Duration(20s), -1.0F},
                                 std::pair{Duration(60s), 96.0F}, std::pair{Duration(90s), -1.0F}));
  // In the wide chart and the narrow one.
  EXPECT_EQ(count("<polyline class=\"saturation\""), 2U * 2U);
}

TEST_F(PageTest, AFingerThatIsGoneIsNoSaturation) {
  happens(Source::oximeter, SaturationMeasured{97});
  at(10s);
  happens(Source::oximeter, Implausible{"-1"});
  at(20s);
  ends("completed");
  EXPECT_EQ(SessionRecord(journal_).saturation().back().at, 10s);
}

TEST_F(PageTest, TimeNeverRunsBackwards) {
  for (const Duration time : {10s, 5s, 20s}) {
    at(time);
    happens(Source::exercise, LoadMeasured{speed(5, 2)});
  }
  const SessionRecord record(journal_);
  std::vector<Duration> times;
  for (const auto& sample : record.load()) times.push_back(sample.at);
  EXPECT_THAT(times, ElementsAre(10s, 10s, 20s));
}

TEST_F(PageTest, APressureThatIsNoNumberIsLeftOut) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  happens(Source::monitor, PressureMeasured{.pressure = {infinite, 80}, .status = 0});
  happens(Source::monitor, PressureMeasured{.pressure = {120, -infinite}, .status = 0});
  EXPECT_THAT(SessionRecord(journal_).pressures(), IsEmpty());
}

TEST_F(PageTest, EventsStandWithTheirTime) {
  at(5s);
  happens(Source::station, AlarmRaised{.kind = AlarmKind::exerciseSilent, .text = ""});
  at(9s);
  happens(Source::station, AlarmCleared{.kind = AlarmKind::exerciseSilent});
  at(10s);
  happens(Source::station, Marked{.word = "angina"});
  at(11s);
  happens(Source::exercise, LineVanished{.port = "ttyUSB0"});
  happens(Source::station, ProtectiveStop{.cause = AlarmKind::lineLost});
  at(15s);
  happens(Source::station, WasReset{});
  ends("lineLost");
  EXPECT_THAT(page(), HasSubstr("<td>0:05</td><td>ALARM: the exercise device does not answer</td>"));
  EXPECT_THAT(page(), HasSubstr("<td>0:09</td><td>over: the exercise device does not answer</td>"));
  EXPECT_THAT(page(), HasSubstr("<td>0:10</td><td>angina</td>"));
  EXPECT_THAT(page(), HasSubstr("<td>0:11</td><td>exercise: the port has vanished</td>"));
  EXPECT_THAT(page(), HasSubstr("<td>0:11</td><td>PROTECTIVE STOP: "));
  EXPECT_THAT(page(), HasSubstr("<td>0:15</td><td>the protective stop was reset</td>"));
  EXPECT_EQ(count("<g class=\"flag"), 2U * 6U);
}

TEST_F(PageTest, AJournalThatBreaksOffIsNoCompletedTest) {
  phase(0, "stage 1 of 2");
  at(30s);
  happens(Source::exercise, LoadMeasured{speed(5, 2)});
  EXPECT_THAT(page(), HasSubstr("<p class=\"result bad\">broken off: the program was gone</p>"));
  EXPECT_THAT(page(), HasSubstr("<td>0:30</td><td>the journal ends here"));
}

TEST_F(PageTest, ABicyclesEquivalentsNeedThePatientsMass) {
  journal_.head.facts[fact::protocol] = "name R\ndevice bicycle\nstage 1:00 100\n";
  phase(0, "stage 1 of 1");
  at(59s);
  happens(Source::exercise, LoadMeasured{{.power = 100}});
  ends("completed");
  EXPECT_THAT(page(), AllOf(Not(HasSubstr(">METs<")), Not(HasSubstr("Peak METs"))));
  journal_.head.facts[fact::mass] = "60.0";
  // 10.8 * 100 / 60 + 7 ml
  EXPECT_THAT(page(), HasSubstr("<span>Peak METs, estimated</span><b>7.1</b>"));
}

TEST(CsvLineTest, HasEveryValueAndEveryByte) {
  const auto line = [](Source source, Event::What what) {
    return csvLine({.at = {}, .source = source, .what = std::move(what)}, 1500ms,
                   StressDeviceType::Treadmill);
  };
  EXPECT_EQ(line(Source::exercise, Asked{.command = Command::setLoad, .load = speed(2.74F, 10)}),
            "1.500,exercise,asked,setLoad,2.74,10.0,,\"set 2.74 km/h, 10.0 %\"\n");
  EXPECT_EQ(line(Source::monitor, Sent{{0x02, 0xFF}}), "1.500,pressure,sent,bytes,,,,02ff\n");
  EXPECT_EQ(line(Source::exercise, Received{{0x41}}), "1.500,exercise,received,bytes,,,,41\n");
  EXPECT_EQ(line(Source::monitor, PressureMeasured{.pressure = {120, 80}}),
            "1.500,pressure,answered,pressure,120.0,80.0,0.0,\"120/80 mmHg, status 0\"\n");
  EXPECT_EQ(line(Source::exercise, DeviceRefused{.code = "1", .details = "a \"quoted\"\nline"}),
            "1.500,exercise,failure,error,,,,\"error 1: a \"\"quoted\"\"\nline\"\n");
}

// The folder

class SessionFolderTest : public testing::Test {
 protected:
  SessionFolder make() const {
    return SessionFolder(folder_.path(),
                         {.began = Clock::wallNow(), .facts = {{fact::protocol, treadmillTest}}});
  }
  static Event note(const std::string& text) {
    return {.at = Clock::now(), .what = Noted{.word = "note", .text = text}};
  }

  VirtualTime time_;
  const ScratchFolder folder_;
};

TEST_F(SessionFolderTest, IsDatedAndItsOwn) {
  const SessionFolder first = make();
  const SessionFolder second = make();
  EXPECT_EQ(first.path(), folder_ / "2024-03-01 14.05.09");
  EXPECT_EQ(second.path(), folder_ / "2024-03-01 14.05.09 (2)");
}

TEST_F(SessionFolderTest, MakesTheReportFromTheJournalAtTheEnd) {
  SessionFolder session = make();
  const JournalFile file = session.journalFile();
  JournalWriter writer(file.path, {.began = Clock::wallNow(), .facts = file.facts});
  time_.advance(1500ms);
  writer.write(note("hello"));
  writer.flush();
  EXPECT_FALSE(std::filesystem::exists(session.path() / "report.html"));
  session.finish();
  EXPECT_EQ(textOf(session.path() / "session.csv"),
            "time_s,role,kind,what,value1,value2,value3,text\n1.500,session,event,note,,,,hello\n");
  EXPECT_THAT(textOf(session.path() / "report.html"), HasSubstr("<h1>A &amp; B</h1>"));
  EXPECT_EQ(session.failure(), std::nullopt);
}

TEST_F(SessionFolderTest, GoesAgainWithoutASession) {
  SessionFolder session = make();
  session.discard();
  EXPECT_FALSE(std::filesystem::exists(session.path()));
}

TEST_F(SessionFolderTest, RefusesAFolderThatCannotBeMade) {
  std::ofstream(folder_ / "file") << "x";
  EXPECT_THAT([&] { SessionFolder(folder_ / "file/sessions", {}); },
              testing::Throws<CommandFailure>(AllOf(
                  testing::Property(&CommandFailure::code, reportFailed),
                  testing::Property(&CommandFailure::what, HasSubstr("file/sessions: Not a directory")))));
}

TEST_F(SessionFolderTest, ReportsWhatWasHeardWhereTheJournalIsNotComplete) {
  SessionFolder session = make();
  session.hear(note("before"));
  session.hear({.at = Clock::now(), .what = AlarmRaised{AlarmKind::journalFailed, "no room"}});
  session.hear(note("after"));
  EXPECT_THAT(session.failure(), Optional(std::string("no room")));
  session.finish();
  EXPECT_THAT(linesOf(textOf(session.path() / "session.csv")), SizeIs(4));
  EXPECT_THAT(textOf(session.path() / "report.html"), EndsWith("</html>\n"));
}

TEST_F(SessionFolderTest, OneFileThatCannotBeWrittenLeavesTheOthersWhole) {
  SessionFolder session = make();
  std::filesystem::create_symlink("/dev/full", session.path() / "session.csv");
  session.finish();
  EXPECT_THAT(session.failure(), Optional(HasSubstr("session.csv: No space left on device")));
  EXPECT_THAT(textOf(session.path() / "report.html"), EndsWith("</html>\n"));
}

}  // namespace
}  // namespace tarsil::cli
