#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(SendCommandTest, PrintsTheBytesOfALoad) {
  const auto ended = run({"send", "LodeTreadmill", "--what", "setLoad", "--load", "5", "--grade", "2.5"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_EQ(ended.output,
            "setLoad\n"
            "   0.000 s  02 05 02 00 32 59 19 03\n"
            "   0.000 s  02 07 02 00 19 18 be 03\n");
}

TEST(SendCommandTest, ShowsWhenADelayedCommandGoesOut) {
  EXPECT_EQ(run({"send", "ErgolineK2.4P10", "--what", "requestLoad"}).output,
            "requestLoad\n   0.000 s  44 0d\n   0.100 s  42 0d\n");
  EXPECT_EQ(run({"send", "ErgolineK2.4P10", "--what", "requestLoad", "--wait", "0"}).output,
            "requestLoad\n   0.000 s  44 0d\n");
}

TEST(SendCommandTest, SendsSeveralOperationsToOneDevice) {
  EXPECT_EQ(run({"send", "Tango", "--what", "startBP", "--what", "startBP"}).output,
            "startBP\n   0.000 s  49 4e 49 54 0a 0d\nstartBP\n   0.000 s  53 54 52 54 0a 0d\n");
}

TEST(SendCommandTest, ShowsErrorsAndSaysWhenNothingIsSent) {
  EXPECT_EQ(run({"send", "TrackMaster", "--what", "setLoad", "--load", "0.5", "--grade", "26"}).output,
            "setLoad\n  error 01: Power Beyond the limit\n  error 01: Grade Beyond the limit\n");
  EXPECT_EQ(run({"send", "KivBicycle", "--what", "startDeivce"}).output, "startDeivce\n  nothing\n");
}

TEST(SendCommandTest, WritesJson) {
  const auto ended =
      run({"send", "TrackMaster", "--what", "setLoad", "--load", "20", "--grade", "1", "--json"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(Json::parse(ended.output),
            Json::parse(R"([{"what":"setLoad","sent":[{"after":0.0,"hex":"a430303130"}],
                             "errors":[{"code":"01","details":"Power Beyond the limit"}]}])"));
}

TEST(SendCommandTest, WarnsOfALoadThatNoMachineReads) {
  const auto ended = run({"send", "TM-400V2", "--what", "setLoad", "--load", "1.5", "--grade", "3"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(
      ended.errors,
      "tarsil: warning: speed 1.5 km/h: TM-400V2 carries 1.6 to 17.2 km/h; no machine reads this as it is "
      "meant\n"
      "tarsil: warning: grade 3 %: TM-400V2 carries nothing; no machine reads this as it is meant\n");
  EXPECT_THAT(run({"send", "TM_400V2", "--what", "setLoad", "--load", "5"}).errors, IsEmpty());
}

TEST(SendCommandTest, ReportsThatTheProcessWouldStop) {
  const auto ended = run({"send", "TM-400V2", "--what", "setLoad", "--load", "nan"});
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(
      ended.errors,
      "tarsil: warning: speed nan km/h: TM-400V2 carries 1.6 to 17.2 km/h; no machine reads this as it is "
      "meant\n"
      "tarsil: the process would stop here: ten times the speed in km/h does not fit a 64-bit integer: "
      "nan\n");
}

TEST(SendCommandTest, RefusesWhatItDoesNotKnow) {
  const auto unknownModel = run({"send", "Bike", "--what", "startDeivce"});
  EXPECT_EQ(unknownModel.code, 2);
  EXPECT_THAT(unknownModel.errors, HasSubstr("there is no model \"Bike\"; it is one of "));
  const auto unknownOperation = run({"send", "TM-400V2", "--what", "fly"});
  EXPECT_EQ(unknownOperation.code, 2);
  EXPECT_THAT(unknownOperation.errors, StartsWith("tarsil: --what: \"fly\" is none of setLoad, "));
  const auto noLoad = run({"send", "TM-400V2", "--what", "setLoad"});
  EXPECT_EQ(noLoad.code, 2);
  EXPECT_EQ(noLoad.errors, "tarsil: setLoad needs --load\n");
  const auto noNumber = run({"send", "TM-400V2", "--what", "setLoad", "--load", "fast"});
  EXPECT_EQ(noNumber.code, 2);
  EXPECT_EQ(noNumber.errors, "tarsil: --load: \"fast\" is no number; see `tarsil send --help`\n");
  EXPECT_EQ(run({"send", "TM-400V2", "--what"}).errors,
            "tarsil: --what needs a value; see `tarsil send --help`\n");
}

}  // namespace
}  // namespace tarsil::cli
