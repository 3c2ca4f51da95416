#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "tarsil/station/standardCatalogue.hpp"
#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

TEST(DevicesCommandTest, ListsTheCatalogueInItsOrder) {
  const auto ended = run({"devices", "--json"});
  EXPECT_EQ(ended.code, 0);
  std::vector<Json> names;
  for (const auto& device : Json::parse(ended.output)) names.push_back(device["name"]);
  std::vector<Json> expected;
  for (const auto& model : standardCatalogue().models()) {
    // The library's devices of this model have no name.
    expected.push_back(model.kind == DeviceKind::bloodPressureMonitor ? Json() : Json(model.name));
  }
  EXPECT_EQ(names, expected);
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

TEST(DevicesCommandTest, PrintsTheTableOfTheReadme) {
  const auto ended = run({"devices", "--markdown"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output,
              HasSubstr("| `TrackMaster` | Treadmill | 4800 | 0 and 0.7 to 19 km/h; 0 to 25 % | "));
  std::ifstream file(TARSIL_SOURCE_FOLDER "/README.md");
  const std::string readme(std::istreambuf_iterator<char>(file), {});
  EXPECT_THAT(readme, HasSubstr("\n\n" + ended.output + "\n"))
      << "the README's table is what `tarsil devices --markdown` prints";
}

TEST(DevicesCommandTest, PrintsOneFormAtATime) {
  EXPECT_EQ(run({"devices", "--markdown", "--json"}).code, 2);
}

}  // namespace
}  // namespace tarsil::cli
