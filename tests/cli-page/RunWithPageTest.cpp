#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "tests/cli-page/PageClient.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/cli/SimulatedProcess.hpp"
#include "tests/cli/TerminalProgram.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* announcement = "The page: ";

/// `tarsil run --page` on a treadmill that lives outside of it, in real time.
class RunWithPageTest : public testing::Test {
 protected:
  void begin(std::vector<std::string> more = {}) {
    std::ofstream(folder_ / "protocol") << "name Walk\ndevice treadmill\nstage 2:00 2 5\n";
    std::vector<std::string> words{"run",
                                   "--exercise",
                                   "LodeTreadmill@" + device_.path(),
                                   "--protocol",
                                   folder_ / "protocol",
                                   "--report",
                                   folder_ / "report",
                                   "--page"};
    words.insert(words.end(), more.begin(), more.end());
    program_.emplace(words);
  }

  void readLink() {
    const std::string line = program_->readLine();
    ASSERT_THAT(line, StartsWith(announcement));
    link_ = PageLink(line.substr(std::string(announcement).size()));
  }

  std::string post(const std::string& order) const { return answerTo(link_, "POST", link_.folder + order); }

  ScratchFolder folder_;
  SimulatedProcess device_{"LodeTreadmill"};
  std::optional<Program> program_;
  PageLink link_{"http://127.0.0.1:1/"};
};

TEST_F(RunWithPageTest, AStopOfThePageStopsTheBelt) {
  begin({"--page-control"});
  readLink();
  device_.waitFor("belt running, 2.0 km/h");
  EXPECT_THAT(post("mark?word=dizzy"), StartsWith("HTTP/1.1 202 "));
  EXPECT_THAT(post("stop"), StartsWith("HTTP/1.1 202 "));
  const auto ended = program_->wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_EQ(ended.errors, "tarsil: stopped at the page\n");
  EXPECT_THAT(ended.output, HasSubstr("-------- dizzy\n"));
  EXPECT_THAT(device_.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

TEST_F(RunWithPageTest, APageToWatchStopsNothingAndSaysHowItEnded) {
  begin();
  readLink();
  PageClient watching(link_.port);
  watching.say(requestText("GET", link_.folder + "events", link_.authority));
  // One that never reads, and one that never asks.
  PageClient stuck(link_.port);
  stuck.say(requestText("GET", link_.folder + "events", link_.authority));
  PageClient silent(link_.port);
  device_.waitFor("belt running, 2.0 km/h");
  EXPECT_THAT(post("stop"), StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(answerTo(link_, "GET", "/"), StartsWith("HTTP/1.1 403 "));
  EXPECT_TRUE(watching.hears("\"text\":\"set 2.00 km/h, 5.0 %\""));
  EXPECT_TRUE(watching.hears("\"value\":2.0"));
  program_->signal(SIGTERM);
  const std::string all = watching.all();
  const auto ended = program_->wait();
  EXPECT_EQ(ended.code, 5);
  EXPECT_EQ(ended.errors, "tarsil: interrupted\n");
  const std::size_t last = all.rfind("\"outcome\":{");
  ASSERT_NE(last, std::string::npos);
  const std::string folder = std::filesystem::directory_iterator(folder_ / "report")->path();
  EXPECT_THAT(all.substr(last),
              StartsWith(R"("outcome":{"folder":")" + folder + R"(","isGood":false,"text":"interrupted"})"));
  EXPECT_THAT(device_.status(), HasSubstr("belt stopped, 0.0 km/h"));
}

TEST_F(RunWithPageTest, APortThatCannotBeHadIsRefusedBeforeAnythingMoves) {
  const int other = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&address), size), 0);
  ASSERT_EQ(listen(other, 1), 0);
  getsockname(other, reinterpret_cast<sockaddr*>(&address), &size);
  const std::string port = std::to_string(ntohs(address.sin_port));
  begin({"--page-port", port});
  const auto ended = program_->wait();
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ended.errors,
            "tarsil: cannot offer the page at 127.0.0.1:" + port + ": Address already in use\n");
  EXPECT_THAT(ended.output, IsEmpty());
  EXPECT_THAT(device_.status(), HasSubstr("belt stopped, 0.0 km/h"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "report"));
  close(other);
}

TEST_F(RunWithPageTest, OptionsOfThePageNeedOne) {
  for (const std::string option : {"--page-control", "--page-port=4321"}) {
    const auto ended = run({"run", "--simulate", option});
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.errors, "tarsil: " + option.substr(0, option.find('=')) +
                                " requires --page; see `tarsil run --help`\n");
  }
  EXPECT_THAT(run({"run", "--simulate", "--page", "--page-port", "65536"}).errors,
              StartsWith("tarsil: --page-port: "));
}

TEST(RunInTerminalWithPageTest, TheLiveViewHasTheLink) {
  SimulatedProcess device("LodeTreadmill");
  TerminalProgram program({"run", "--no-report", "--exercise", "LodeTreadmill@" + device.path(), "--protocol",
                           "bruce", "--page", "--page-control"});
  program.waitFor(announcement);
  program.waitFor("/\r\n");
  const std::string& all = program.written();
  const std::size_t begin = all.find(announcement) + std::string(announcement).size();
  const std::string link = all.substr(begin, all.find('\r', begin) - begin);
  program.waitFor(" page      " + link);
  program.waitFor(" warm-up  ");
  const PageLink page(link);
  EXPECT_THAT(answerTo(page, "POST", page.folder + "stop"), StartsWith("HTTP/1.1 202 "));
  EXPECT_EQ(program.wait(), 5);
  EXPECT_THAT(program.written(), HasSubstr("tarsil: stopped at the page"));
}

}  // namespace
}  // namespace tarsil::cli
