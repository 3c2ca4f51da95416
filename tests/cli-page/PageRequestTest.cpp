#include "tools/tarsil/page/PageRequest.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarsil::cli {
namespace {

using testing::MatchesRegex;

const PageAddress watched{.port = 4321, .token = "c0ffee", .takesOrders = false};
const PageAddress controlled{.port = 4321, .token = "c0ffee", .takesOrders = true};
constexpr const char* host = "127.0.0.1:4321";

PageVerdict get(const char* path) {
  return verdictOn({"GET", path, host}, watched);
}

TEST(PageRequestTest, WhoeverHasTheLinkGetsThePage) {
  EXPECT_EQ(watched.link(), "http://127.0.0.1:4321/c0ffee/");
  EXPECT_EQ(get("/c0ffee/"), PageVerdict::page);
  EXPECT_EQ(get("/c0ffee/events"), PageVerdict::stream);
  EXPECT_EQ(get("/c0ffee/other"), PageVerdict::unknown);
  EXPECT_EQ(get("/c0ffee"), PageVerdict::unknown);
  EXPECT_EQ(get("/c0ffee/events/"), PageVerdict::unknown);
  EXPECT_EQ(verdictOn({"GET", "/c0ffee/", "localhost:4321"}, watched), PageVerdict::page);
}

TEST(PageRequestTest, NobodyElseGetsAnything) {
  for (const char* path : {"/", "", "c0ffee/", "//c0ffee/", "/c0ffe/", "/c0ffee0/", "/C0FFEE/",
                           "/c0ffef/events", "/x/../c0ffee/", "/favicon.ico", "/?c0ffee"}) {
    EXPECT_EQ(get(path), PageVerdict::forbidden) << path;
    EXPECT_EQ(verdictOn({"POST", path, host}, controlled), PageVerdict::forbidden) << path;
  }
}

TEST(PageRequestTest, AnotherHostsNameIsRefusedWithTheLinkToo) {
  for (const char* other : {"", "evil.example", "evil.example:4321", "127.0.0.1", "127.0.0.1:4322",
                            "127.0.0.1:43210", "127.0.0.1.evil.example:4321", "[::1]:4321", "0.0.0.0:4321"}) {
    EXPECT_EQ(verdictOn({"GET", "/c0ffee/", other}, watched), PageVerdict::forbidden) << other;
    EXPECT_EQ(verdictOn({"POST", "/c0ffee/stop", other}, controlled), PageVerdict::forbidden) << other;
  }
}

TEST(PageRequestTest, OrdersArePostedAndOnlyWhereTheyAreTaken) {
  for (const std::string order : {"stop", "hold", "release", "next", "pressure", "mark"}) {
    const std::string path = "/c0ffee/" + order;
    EXPECT_EQ(verdictOn({"POST", path, host}, controlled), PageVerdict::order);
    EXPECT_EQ(verdictOn({"POST", path, host}, watched), PageVerdict::forbidden);
    EXPECT_EQ(verdictOn({"GET", path, host}, controlled), PageVerdict::wrongMethod);
    EXPECT_EQ(orderIn(path), order);
  }
  EXPECT_EQ(verdictOn({"POST", "/c0ffee/start", host}, controlled), PageVerdict::unknown);
  EXPECT_EQ(verdictOn({"POST", "/c0ffee/", host}, controlled), PageVerdict::wrongMethod);
  EXPECT_EQ(verdictOn({"POST", "/c0ffee/events", host}, controlled), PageVerdict::wrongMethod);
}

TEST(PageRequestTest, EachTokenIsAnother) {
  EXPECT_THAT(newToken(), MatchesRegex("[0-9a-f]{32}"));
  EXPECT_NE(newToken(), newToken());
}

}  // namespace
}  // namespace tarsil::cli
