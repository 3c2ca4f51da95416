#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <optional>

#include "tests/cli-page/Browser.hpp"
#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* isLive =
    "document.getElementById('lost').hidden && !document.body.classList.contains('dead')";
constexpr const char* isLost =
    "!document.getElementById('lost').hidden && document.body.classList.contains('dead')";

/// The page of a session on simulated devices, in real time, as a real browser has it. A browser is no part
/// of what this product needs, so a machine without one says that it left this out.
class PageInBrowserTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Browser::isInstalled())
      GTEST_SKIP() << "no chromium: the page is drawn in .ci/run, which installs it";
  }

  void begin(const std::string& protocol) {
    std::ofstream(folder_ / "protocol") << protocol;
    program_.emplace(std::vector<std::string>{
        "run", "--simulate", "--exercise", "LodeTreadmill", "--protocol", folder_ / "protocol", "--report",
        folder_ / "sessions", "--patient", "<script>document.title = 'broken in'</script>", "--page",
        "--page-control"});
    const std::string line = program_->readLine();
    browser_.emplace();
    browser_->setWindow(1280, 1000);
    browser_->go(line.substr(line.find("http")));
  }

  std::string textOf(const std::string& id) {
    return browser_->valueOf("document.getElementById('" + id + "').innerText");
  }
  bool holds(const std::string& expression) { return browser_->valueOf(expression) == "true"; }

  void keepPictures(const std::string& name) {
    for (const bool isDark : {false, true}) {
      const std::string end = isDark ? "-dark.png" : ".png";
      browser_->setWindow(1280, 1000, isDark);
      browser_->keepPicture(name + end);
      browser_->setWindow(400, 850, isDark);
      EXPECT_TRUE(holds("document.documentElement.scrollWidth <= innerWidth")) << name;
      browser_->keepPicture(name + "-phone" + end);
    }
    browser_->setWindow(1280, 1000);
  }

  ScratchFolder folder_;
  std::optional<Program> program_;
  std::optional<Browser> browser_;
};

TEST_F(PageInBrowserTest, ShowsTheSessionAndLooksDeadAtOnceWhenTheProgramIs) {
  begin("name Walk <b>\ndevice treadmill\nstage 9:00 2 5\n");
  browser_->waitFor(std::string(isLive) + " && document.querySelector('#values b').innerText === '2.0'");
  EXPECT_EQ(textOf("title"), "Walk <b> on LodeTreadmill");
  EXPECT_EQ(textOf("patient"), "Patient <script>document.title = 'broken in'</script>");
  EXPECT_EQ(textOf("simulated"), "SIMULATED – no patient, no device: nothing here was measured");
  EXPECT_EQ(textOf("doing"), "stage 1 of 1");
  EXPECT_THAT(textOf("left"), MatchesRegex("[89]:[0-9][0-9] left, [89]:[0-9][0-9] in all"));
  EXPECT_THAT(textOf("values"), HasSubstr("target 2, "));
  browser_->waitFor("document.title === 'Walk <b>'");
  EXPECT_THAT(textOf("events"), HasSubstr("set 2.00 km/h"));
  browser_->waitFor("document.querySelectorAll('polyline.measured').length === 2");
  keepPictures("page");

  // What a person types is text, too, and the buttons do what they say.
  browser_->valueOf(
      "document.getElementById('word').value = '<i>dizzy</i>', document.querySelector('#mark "
      "button').click()");
  browser_->waitFor("document.getElementById('events').innerText.includes('<i>dizzy</i>')");
  browser_->valueOf("document.getElementById('hold').click()");
  browser_->waitFor("document.getElementById('held').innerText.startsWith('HELD ')");
  browser_->waitFor("document.getElementById('hold').innerText === 'Go on'");

  // A program that stands still says nothing, and its connection stays.
  program_->signal(SIGSTOP);
  browser_->waitFor(isLost);
  EXPECT_THAT(textOf("lost"), HasSubstr("THE PROGRAM IS SILENT. What stands here is "));
  browser_->valueOf("document.getElementById('stop').click()");
  browser_->waitFor("!document.getElementById('untold').hidden");
  EXPECT_EQ(textOf("untold"), "The stop has not reached the program: stop the device at the device.");
  keepPictures("page-silent");
  program_->signal(SIGKILL);
  browser_->waitFor(
      "document.getElementById('lost').innerText.startsWith('CONNECTION LOST. What stands here is ')");
  EXPECT_TRUE(holds(isLost));
  EXPECT_EQ(browser_->valueOf("document.title"), "LOST: Walk <b>");
  keepPictures("page-lost");
}

TEST_F(PageInBrowserTest, ShowsTheEndAndWhereTheReportIs) {
  begin("name Walk\ndevice treadmill\nstage 9:00 2 5\n");
  browser_->waitFor(std::string(isLive) + " && document.querySelector('#values b').innerText === '2.0'");
  browser_->valueOf("document.getElementById('stop').click()");
  EXPECT_EQ(program_->wait().code, 5);
  browser_->waitFor("!document.getElementById('over').hidden");
  EXPECT_THAT(textOf("over"),
              testing::StartsWith("The session is over: stopped at the page. Its report is in " +
                                  (folder_ / "sessions").string()));
  EXPECT_TRUE(holds("document.getElementById('lost').hidden && document.body.classList.contains('dead')"));
  EXPECT_TRUE(holds("document.getElementById('controls').hidden"));
  keepPictures("page-over");
}

}  // namespace
}  // namespace tarsil::cli
