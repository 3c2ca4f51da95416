#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(DevicesCommandTest, ListsTheCatalogueInItsOrder) {
  const auto ended = run({"devices", "--json"});
  EXPECT_EQ(ended.code, 0);
  std::vector<Json> names;
  for (const auto& device : Json::parse(ended.output)) names.push_back(device["name"]);
  EXPECT_THAT(names, ElementsAre("TM-400V2", "LodeOEMTreadmill", "LodeTreadmill", "TrackMaster", "KivBicycle",
                                 "Ergometer38K4", "ErgolineK2.4P10", "ErgosanaK4.8P10", "ErgometricsK2.4P3",
                                 nullptr, "MEDXINGPort", "MEDXING-SpO2"));
}

TEST(DevicesCommandTest, GivesLineSettingsAndFlags) {
  const Json list = Json::parse(run({"devices", "--json"}).output);
  EXPECT_EQ(list[6], Json::parse(R"({"kind":"Ergometer","name":"ErgolineK2.4P10","baud":4800,"databits":8,
    "stopbits":1,"parity":0,"getWithBP_SpO2":3,"setWithBP_SpO2":3,"canStopBP":false,"autoSend":false,
    "actualLoad":true})"));
  EXPECT_EQ(list[9], Json::parse(R"({"kind":"BP","name":null,"baud":9600,"databits":8,"stopbits":1,"parity":0,
    "getWithBP_SpO2":0,"setWithBP_SpO2":0,"canStopBP":true,"autoSend":true,"actualLoad":null})"));
}

TEST(DevicesCommandTest, PrintsATable) {
  const auto ended = run({"devices"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(
      ended.output,
      HasSubstr("\nErgometer  ErgolineK2.4P10      4800 8N1   yes         no           no        yes\n"));
  EXPECT_THAT(
      ended.output,
      HasSubstr("\nSpO2       MEDXING-SpO2            - -     no          -            yes       -\n"));
}

}  // namespace
}  // namespace tarsil::cli
