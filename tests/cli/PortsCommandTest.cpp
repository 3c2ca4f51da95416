#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using testing::IsEmpty;

TEST(PortsCommandTest, ListsPortsAsJson) {
  const auto ended = run({"ports", "--json"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_TRUE(nlohmann::json::parse(ended.output).is_array());
}

TEST(PortsCommandTest, WatchesUntilInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program program({"ports", "--watch"});
    // The list comes when it watches already.
    program.readLine();
    program.signal(signal);
    const auto ended = program.wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.errors, IsEmpty());
  }
}

}  // namespace
}  // namespace tarsil::cli
