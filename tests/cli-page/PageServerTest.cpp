#include "tools/tarsil/page/PageServer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <optional>

#include "tarsil/runtime/RunLoop.hpp"
#include "tests/cli-page/PageClient.hpp"
#include "tools/tarsil/CommandFailure.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class PageServerTest : public testing::Test {
 protected:
  PageServerTest() { serve(true); }

  void serve(bool takesOrders) {
    server_.emplace(std::uint16_t{0}, takesOrders);
    link_ = PageLink(server_->address().link());
  }

  std::string get(const std::string& path) const { return answerTo(link_, "GET", path); }

  /// A browser that has asked for the events.
  void listen(PageClient& client) const {
    client.say(requestText("GET", link_.folder + "events", link_.authority));
  }

  std::optional<PageServer> server_;
  PageLink link_{"http://127.0.0.1:1/"};
};

TEST_F(PageServerTest, ServesOnePageThatFetchesNothing) {
  const std::string answer = get(link_.folder);
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
  EXPECT_THAT(answer,
              AllOf(HasSubstr("Content-Security-Policy: default-src 'none'"),
                    HasSubstr("frame-ancestors 'none'"), HasSubstr("Referrer-Policy: no-referrer\r\n")));
  EXPECT_THAT(answer, AllOf(HasSubstr("<!DOCTYPE html>"), HasSubstr("--paper: #fff"),
                            Not(HasSubstr("/* colours */"))));
  const std::string page = answer.substr(answer.find("\r\n\r\n"));
  EXPECT_THAT(page, AllOf(Not(HasSubstr("src=")), Not(HasSubstr("@import")), Not(HasSubstr("url("))));
  EXPECT_EQ(page.find("http"), page.find("http://www.w3.org/2000/svg"));
}

TEST_F(PageServerTest, RefusesWhoHasNotTheLink) {
  EXPECT_THAT(get("/"), StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(get("/0123456789abcdef0123456789abcdef/"), StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(get(link_.folder + "nothing"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(get(link_.folder + "stop"), StartsWith("HTTP/1.1 405 "));
  PageClient foreign(link_.port);
  foreign.say(requestText("GET", link_.folder, "evil.example"));
  EXPECT_THAT(foreign.all(), StartsWith("HTTP/1.1 403 "));
  PageClient nameless(link_.port);
  nameless.say("GET " + link_.folder + " HTTP/1.0\r\n\r\n");
  EXPECT_THAT(nameless.all(), HasSubstr(" 403 "));
}

TEST_F(PageServerTest, GivesEachBrowserEverythingOnceAndTheLatestMoment) {
  server_->add("1");
  server_->show("{\"a\":1}");
  PageClient client(link_.port);
  listen(client);
  EXPECT_TRUE(client.hears("data: {\"begins\":true,\"more\":[1],\"now\":{\"a\":1}}\n\n"));
  EXPECT_THAT(client.heard(), HasSubstr("Content-Type: text/event-stream\r\n"));
  server_->add("2");
  server_->add("3");
  server_->show("{\"a\":2}");
  EXPECT_TRUE(client.hears("data: {\"begins\":false,\"more\":[2,3],\"now\":{\"a\":2}}\n\n"));
  PageClient late(link_.port);
  listen(late);
  EXPECT_TRUE(late.hears("data: {\"begins\":true,\"more\":[1,2,3],\"now\":{\"a\":2}}\n\n"));
  server_->end("{\"a\":3}");
  EXPECT_THAT(client.all(), HasSubstr("data: {\"begins\":false,\"more\":[],\"now\":{\"a\":3}}\n\n"));
}

TEST_F(PageServerTest, SaysNothingBeforeThereIsAMoment) {
  PageClient client(link_.port);
  listen(client);
  EXPECT_TRUE(client.hears("\r\n\r\n"));
  server_->show("{}");
  EXPECT_TRUE(client.hears("data: {\"begins\":true,\"more\":[],\"now\":{}}\n\n"));
}

TEST_F(PageServerTest, WaitsForNoBrowserThatReadsNothing) {
  // More than all buffers between the two hold.
  for (int i = 0; i < 64; ++i) server_->add('"' + std::string(256UL * 1024, 'x') + '"');
  server_->show("{}");
  PageClient stuck(link_.port);
  listen(stuck);
  PageClient silent(link_.port);
  PageClient half(link_.port);
  half.say("GET " + link_.folder);
  EXPECT_TRUE(stuck.hears("\r\n\r\n"));
  // Nor do others.
  for (int i = 0; i < 100; ++i) server_->show("{}");
  EXPECT_THAT(get(link_.folder), StartsWith("HTTP/1.1 200 OK\r\n"));
  server_->end("{\"over\":true}");
  server_.reset();
  EXPECT_THAT(stuck.all(), Not(HasSubstr("over")));
}

TEST_F(PageServerTest, HandsOrdersToTheMainThread) {
  std::vector<std::string> taken;
  server_->setOrderTaker(
      [&](const PageServer::Order& order) { taken.push_back(order.name + ":" + order.word); });
  const auto post = [this](const std::string& path) { return answerTo(link_, "POST", link_.folder + path); };
  EXPECT_THAT(post("mark?word=a%20%3Cb%3E%C3%A4"), StartsWith("HTTP/1.1 202 "));
  EXPECT_THAT(post("stop"), StartsWith("HTTP/1.1 202 "));
  EXPECT_THAT(taken, testing::IsEmpty());
  RunLoop::main().runUntil([&] { return taken.size() == 2; }, 10s);
  EXPECT_THAT(taken, testing::ElementsAre("mark:a <b>ä", "stop:"));
  // A body is read by nobody.
  PageClient client(link_.port);
  client.say("POST " + link_.folder + "stop HTTP/1.1\r\nHost: " + link_.authority +
             "\r\nConnection: close\r\nContent-Length: 5\r\n\r\nhello");
  EXPECT_THAT(client.all(), StartsWith("HTTP/1.1 202 "));
  // Who has left takes none.
  server_->setOrderTaker(nullptr);
  RunLoop::main().runUntil([&] { return taken.size() > 2; }, 0s);
  EXPECT_EQ(taken.size(), 2U);
}

TEST_F(PageServerTest, APageToWatchTakesNoOrder) {
  serve(false);
  EXPECT_THAT(answerTo(link_, "POST", link_.folder + "stop"), StartsWith("HTTP/1.1 403 "));
}

TEST_F(PageServerTest, SaysWhyAPortCannotBeHad) {
  try {
    const PageServer other(link_.port, false);
    FAIL() << "two at one port";
  } catch (const CommandFailure& failure) {
    EXPECT_EQ(failure.what(), "cannot offer the page at 127.0.0.1:" + std::to_string(link_.port) +
                                  ": Address already in use");
  }
}

}  // namespace
}  // namespace tarsil::cli
