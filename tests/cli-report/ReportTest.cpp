#include "tools/tarsil/report/Report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <csignal>

#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tools/tarsil/CommandFailure.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using Kind = Entry::Kind;

class ReportTest : public testing::Test {
 protected:
  Report& report() {
    if (!report_) report_.emplace(folder_.path(), protocol_, plan_, journal_, traffic_);
    return *report_;
  }

  std::string csv() const { return textOf(folder_ / "session.csv"); }
  std::string script() const { return textOf(folder_ / "session.jsonl"); }
  std::string page() const { return textOf(folder_ / "report.html"); }

  VirtualTime time_;
  ScratchFolder folder_;
  const Protocol protocol_ =
      readProtocol("name A & B\ndevice treadmill\nstage 1:00 5 2\nstage 1:00 6 4\n", "test");
  const Station::Plan plan_{"LodeTreadmill", "tty0", "tty1", "tty2"};
  Journal journal_;
  std::shared_ptr<Traffic> traffic_ = std::make_shared<Traffic>();
  std::optional<Report> report_;
};

TEST_F(ReportTest, WritesEveryEntryAndEveryChunkAtOnce) {
  report();
  EXPECT_EQ(csv(), "time_s,role,kind,what,value1,value2,value3,text\n");
  time_.advance(1500ms);
  journal_.note(Role::exercise, Kind::asked, "setLoad", {2.74F, 10}, "set 2.74 km/h, 10.0 %");
  EXPECT_THAT(csv(), HasSubstr("\n1.500,exercise,asked,setLoad,2.74,10.0,,\"set 2.74 km/h, 10.0 %\"\n"));
  traffic_->note("tty1", Chunk::Direction::sent, Bytes{0x02, 0xFF});
  traffic_->note("tty0", Chunk::Direction::received, Bytes{0x41});
  time_.settle();
  time_.advance(1ms);
  journal_.note(Role::pressure, Kind::answered, "pressure", {120, 80, 0}, "120/80 mmHg, status 0");
  journal_.note(Role::session, Kind::failure, "error", {}, "a \"quoted\"\nline");
  EXPECT_EQ(csv(),
            "time_s,role,kind,what,value1,value2,value3,text\n"
            "1.500,exercise,asked,setLoad,2.74,10.0,,\"set 2.74 km/h, 10.0 %\"\n"
            "1.500,pressure,sent,bytes,,,,02ff\n"
            "1.500,exercise,received,bytes,,,,41\n"
            "1.501,pressure,answered,pressure,120.0,80.0,0.0,\"120/80 mmHg, status 0\"\n"
            "1.501,session,failure,error,,,,\"a \"\"quoted\"\"\nline\"\n");
}

TEST_F(ReportTest, LeavesPortsOfOthersOut) {
  report();
  traffic_->note("tty9", Chunk::Direction::received, Bytes{1});
  time_.settle();
  EXPECT_THAT(linesOf(csv()), testing::SizeIs(1));
}

TEST_F(ReportTest, WritesTheSessionAsAScript) {
  report();
  const auto ask = [&](Role role, const char* what, std::vector<float> values = {}) {
    journal_.note(role, Kind::asked, what, std::move(values), "");
  };
  ask(Role::exercise, "openPort");
  ask(Role::pressure, "openPort");
  ask(Role::oximeter, "openPort");
  time_.advance(1s);
  ask(Role::exercise, "startStressDevice");
  ask(Role::exercise, "setLoad", {1.4F, 0});
  traffic_->note("tty0", Chunk::Direction::sent, Bytes{9});
  traffic_->note("tty0", Chunk::Direction::received, Bytes{0x02, 0x80});
  time_.settle();
  journal_.note(Role::exercise, Kind::answered, "load", {1.4F, 0}, "");
  time_.advance(250ms);
  traffic_->note("tty2", Chunk::Direction::received, Bytes{0x61});
  time_.settle();
  ask(Role::exercise, "requestLoad");
  ask(Role::pressure, "startBP");
  ask(Role::exercise, "requestBP");
  ask(Role::pressure, "breakBP");
  journal_.note(Role::pressure, Kind::failure, "removed", {}, "the port has vanished");
  ask(Role::exercise, "stopStressDevice");
  time_.advance(2s);
  journal_.note(Role::session, Kind::event, "over", {}, "");
  report().finish(succeeded);

  auto lines = linesOf(script());
  EXPECT_EQ(lines.at(0), "# A & B on LodeTreadmill, 2024-03-01 14:05:09");
  lines.erase(lines.begin());
  EXPECT_THAT(
      lines,
      ElementsAre(R"({"op":"new","device":"manager","drive":true})",
                  R"({"op":"ports","names":["tty0","tty1","tty2"]})", R"({"op":"getDeivceType"})",
                  R"({"op":"getDeviceByType","args":["Treadmill"]})",
                  R"({"op":"getSelected","args":["LodeTreadmill","device"]})",
                  R"({"op":"getPort","args":[false]})", R"({"op":"port"})", R"({"op":"kiv","role":"device"})",
                  R"({"op":"selectedPort","args":["tty0","device"]})",
                  R"({"op":"selectedPort","args":["tty1","BP"]})", R"({"op":"kiv","role":"BP"})",
                  R"({"op":"getSelected","args":["MEDXINGPort","SpO2"]})", R"({"op":"kiv","role":"SpO2"})",
                  R"({"op":"getPort","args":[true]})", R"({"op":"selectedPort","args":["tty2","SpO2"]})",
                  R"({"op":"openPort","args":["device"]})", R"({"op":"openPort","args":["BP"]})",
                  R"({"op":"openPort","args":["SpO2"]})", R"({"op":"advance","s":1.0})",
                  R"({"op":"startStressDevice"})", R"({"op":"setLoad","args":[1.4,0.0]})",
                  R"({"op":"recv","role":"device","hex":"0280"})", R"({"op":"advance","s":0.25})",
                  R"({"op":"recv","role":"SpO2","hex":"61"})", R"({"op":"requestLoad"})",
                  R"({"op":"startBP","args":[true]})", R"({"op":"requestBP","args":[false]})",
                  R"({"op":"breakBP","args":[true]})", R"({"op":"ports","names":["tty0","tty2"]})",
                  R"({"op":"stopStressDevice"})", R"({"op":"advance","s":2.0})"));
}

TEST_F(ReportTest, ReplacesTheFilesOfAnEarlierSession) {
  std::ofstream(folder_ / "session.csv") << "old\nold\n";
  report();
  EXPECT_EQ(csv(), "time_s,role,kind,what,value1,value2,value3,text\n");
}

TEST_F(ReportTest, RefusesAFolderThatCannotBeMade) {
  std::ofstream(folder_ / "file") << "x";
  const auto make = [&] { Report(folder_ / "file/report", protocol_, plan_, journal_, traffic_); };
  EXPECT_THAT(make,
              testing::Throws<CommandFailure>(testing::AllOf(
                  testing::Property(&CommandFailure::code, reportFailed),
                  testing::Property(&CommandFailure::what, HasSubstr("file/report: Not a directory")))));
}

TEST_F(ReportTest, RefusesAFileThatCannotBeMade) {
  std::filesystem::create_directory(folder_ / "session.jsonl");
  EXPECT_THAT([&] { report(); }, testing::Throws<CommandFailure>(testing::Property(
                                     &CommandFailure::what, HasSubstr("session.jsonl: Is a directory"))));
}

TEST_F(ReportTest, RefusesAFullDiskBeforeAnythingMoves) {
  std::filesystem::create_symlink("/dev/full", folder_ / "session.csv");
  EXPECT_THAT([&] { report(); },
              testing::Throws<CommandFailure>(testing::Property(
                  &CommandFailure::what, HasSubstr("session.csv: No space left on device"))));
}

/// While it exists, files of this process cannot grow beyond `bytes`.
class SmallDisk {
 public:
  explicit SmallDisk(std::size_t bytes) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~SmallDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  rlimit before_{};
};

TEST_F(ReportTest, TellsOnceAndLaterThatTheDiskIsFullAndKeepsWholeLines) {
  report();
  std::vector<std::string> told;
  report().onFailure = [&](const std::string& reason) { told.push_back(reason); };
  const std::string text(1000, 'x');
  {
    const SmallDisk disk(2500);
    for (int i = 0; i < 4; ++i) journal_.note(Role::session, Kind::event, "note", {}, text);
    EXPECT_THAT(told, IsEmpty()) << "whoever writes to the journal is in the middle of something";
    time_.settle();
  }
  EXPECT_THAT(told, ElementsAre(HasSubstr("session.csv: File too large")));
  EXPECT_THAT(report().failure(), Optional(told.at(0)));
  const std::string row = "0.000,session,event,note,,,," + text + "\n";
  EXPECT_EQ(csv(), "time_s,role,kind,what,value1,value2,value3,text\n" + row + row);
  // The other files are whole.
  journal_.note(Role::exercise, Kind::asked, "stopStressDevice", {}, "stop");
  report().finish(reportFailed);
  EXPECT_THAT(script(), HasSubstr("{\"op\":\"stopStressDevice\"}\n"));
  EXPECT_THAT(page(), HasSubstr("stopped: the report could not be written"));
}

TEST_F(ReportTest, SaysWhenThePageCannotBeWritten) {
  std::filesystem::create_symlink("/dev/full", folder_ / "report.html");
  report().finish(succeeded);
  EXPECT_THAT(report().failure(), Optional(HasSubstr("report.html: No space left on device")));
}

TEST_F(ReportTest, RecordsNothingAfterItsEnd) {
  report().finish(succeeded);
  journal_.note(Role::session, Kind::event, "late", {}, "");
  traffic_->note("tty0", Chunk::Direction::received, Bytes{1});
  time_.settle();
  EXPECT_THAT(linesOf(csv()), testing::SizeIs(1));
}

TEST_F(ReportTest, PageNamesWhatWasRunAndWhatIsMissing) {
  report();
  time_.advance(65s);
  journal_.note(Role::exercise, Kind::failure, "error", {}, "error <01>");
  journal_.note(Role::exercise, Kind::failure, "error", {}, "error <01>");
  journal_.note(Role::session, Kind::event, "missing", {}, "oximeter: nothing");
  report().finish(somethingMissing);
  EXPECT_THAT(page(), HasSubstr("<h1>A &amp; B</h1>"));
  EXPECT_THAT(page(), HasSubstr("completed, but something is missing"));
  EXPECT_THAT(page(), HasSubstr("<dd>LodeTreadmill</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dd>2024-03-01 14:05</dd>"));
  EXPECT_THAT(page(), HasSubstr("<dt>Duration</dt><dd>1:05</dd>"));
  EXPECT_THAT(page(), HasSubstr("<li>oximeter: nothing</li>"));
  EXPECT_THAT(page(), HasSubstr("<td>1:05</td><td>exercise: error &lt;01&gt; (2 times)</td>"));
  EXPECT_THAT(page(), Not(HasSubstr("http")));
  EXPECT_THAT(page(), Not(HasSubstr("<script")));
}

TEST_F(ReportTest, PageListsWhatEachPhaseReached) {
  report();
  const auto phase = [&](const char* name) { journal_.note(Role::session, Kind::event, "phase", {}, name); };
  const auto load = [&](float speed, float grade) {
    journal_.note(Role::exercise, Kind::answered, "load", {speed, grade}, "");
  };
  phase("stage 1 of 2");
  journal_.note(Role::oximeter, Kind::answered, "saturation", {97, 0}, "");
  time_.advance(30s);
  journal_.note(Role::pressure, Kind::answered, "pressure", {131, 78, 0}, "");
  time_.advance(29s);
  load(4.9F, 2);
  time_.advance(1s);
  phase("stage 2 of 2");
  journal_.note(Role::pressure, Kind::answered, "pressure", {0, 0, 4}, "a failed measurement");
  time_.advance(1s);
  load(5, 2);
  time_.advance(39s);
  journal_.note(Role::exercise, Kind::asked, "stopStressDevice", {}, "");
  report().finish(succeeded);
  EXPECT_THAT(page(),
              HasSubstr("<tr><th>stage 1 of 2</th><td>0:00</td><td>1:00</td><td>5.00</td><td>4.9</td>\n"
                        "<td>2.0</td><td>2.0</td>\n<td>131/78</td><td>97</td></tr>"));
  // A load that was last reported 39 s before the end says nothing of the end.
  EXPECT_THAT(page(), HasSubstr("<tr><th>stage 2 of 2</th><td>1:00</td><td>0:40</td><td>6.00</td><td>–</td>\n"
                                "<td>4.0</td><td>–</td>\n<td>–</td><td>97</td></tr>"));
}

}  // namespace
}  // namespace tarsil::cli
