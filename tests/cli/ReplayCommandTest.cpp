#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/cli/Program.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// What a script that can be read prints.
std::string replay(const std::string& script) {
  const auto ended = run({"replay", "-"}, script);
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, IsEmpty());
  return ended.output;
}

/// Why a script cannot be read.
std::string refusal(const std::string& script) {
  const auto ended = run({"replay", "-"}, script);
  EXPECT_EQ(ended.code, 2) << script;
  return ended.errors;
}

std::string lines(const std::string& line, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += line;
  return text;
}

TEST(ReplayCommandTest, SkipsCommentsAndBlankLines) {
  EXPECT_EQ(replay("# a comment\n\n   \r\n{\"op\":\"codec\",\"fn\":\"ascii\",\"arg\":\"A\"}\r\n"),
            "[\"return\",65]\n");
}

TEST(ReplayCommandTest, PrintsOperationNumbersOnDemand) {
  const auto ended = run({"replay", "--ops", "-"}, R"({"op":"new","device":"LodeTreadmill"}
# not an operation
{"op":"startDeivce"}
)");
  EXPECT_EQ(ended.output, "[\"op#\",0]\n[\"op#\",1]\n[\"send\",\"020100a05003\"]\n");
}

TEST(ReplayCommandTest, PrintsEachOperationBeforeItReadsTheNext) {
  Program program({"replay", "-"});
  program.write("{\"op\":\"new\",\"device\":\"TrackMaster\"}\n{\"op\":\"startDeivce\"}\n");
  EXPECT_EQ(program.readLine(), "[\"send\",\"a1\"]");
  program.write("{\"op\":\"recv\",\"hex\":\"b1\"}\n");
  EXPECT_EQ(program.readLine(), "[\"log\",\"jointDeviceResult:B1\"]");
  EXPECT_EQ(program.readLine(), "[\"call\",\"device\",\"successfully\"]");
  EXPECT_EQ(program.wait().code, 0);
}

TEST(ReplayCommandTest, NamesFileLineAndReason) {
  const std::string path = testing::TempDir() + "tarsil-refused-" + std::to_string(getpid()) + ".jsonl";
  std::ofstream(path)
      << "{\"op\":\"new\",\"device\":\"TM_400V2\"}\n\n{\"op\":\"startDeivce\"}\n{\"op\":\"fly\"}\n";
  const auto ended = run({"replay", path});
  std::filesystem::remove(path);
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.output, "[\"send\",\"23e310001000fd\"]\n");
  EXPECT_EQ(ended.errors, "tarsil: " + path + ":4: a device has no operation \"fly\"\n");
}

TEST(ReplayCommandTest, RefusesWhatItCannotRead) {
  const std::string device = "{\"op\":\"new\",\"device\":\"LodeTreadmill\"}\n";
  const std::string station = "{\"op\":\"new\",\"device\":\"manager\",\"drive\":true}\n";
  const std::string port = "{\"op\":\"new\",\"device\":\"Port\",\"implements\":[]}\n";
  EXPECT_THAT(refusal("{"), StartsWith("tarsil: standard input:1: no JSON: "));
  EXPECT_THAT(refusal("\xff"), StartsWith("tarsil: standard input:1: no JSON: "));
  EXPECT_THAT(refusal("[]"), HasSubstr("an operation must be a JSON object"));
  EXPECT_THAT(refusal("{}"), HasSubstr("\"op\" is missing"));
  EXPECT_THAT(refusal("{\"op\":1}"), HasSubstr("\"op\" must be a text, not 1"));
  EXPECT_THAT(refusal("{\"op\":\"startDeivce\"}"), HasSubstr("\"startDeivce\" needs a \"new\" before it"));
  EXPECT_THAT(refusal("{\"op\":\"new\",\"device\":\"X\"}"), HasSubstr("there is no device \"X\""));
  EXPECT_THAT(refusal("{\"op\":\"new\",\"device\":\"TM-400V2\",\"port\":\"ajar\"}"),
              HasSubstr("not \"ajar\""));
  EXPECT_THAT(refusal(device + "{\"op\":\"setLoad\",\"args\":[5]}"),
              HasSubstr(":2: \"setLoad\" takes 2 arguments in \"args\", not 1"));
  EXPECT_THAT(refusal(device + "{\"op\":\"setLoad\",\"args\":[5,\"fast\"]}"),
              HasSubstr("\"args\"[1] must be a number, \"nan\", \"inf\" or \"-inf\", not \"fast\""));
  EXPECT_THAT(refusal(device + "{\"op\":\"recv\",\"hex\":\"0\"}"), HasSubstr("must be hexadecimal text"));
  EXPECT_THAT(refusal(device + "{\"op\":\"recv\",\"hex\":\"0g\"}"), HasSubstr("must be hexadecimal text"));
  EXPECT_THAT(refusal(device + "{\"op\":\"advance\",\"s\":-1}"), HasSubstr("the clock cannot go back"));
  EXPECT_THAT(refusal(device + "{\"op\":\"advance\",\"s\":1e300}"), HasSubstr("a century"));
  EXPECT_THAT(refusal("{\"op\":\"advance\",\"s\":3e9}\n{\"op\":\"advance\",\"s\":3e9}"),
              HasSubstr(":2: the clock stops after a century"));
  EXPECT_THAT(refusal(device + "{\"op\":\"delegate\",\"device\":[\"onError\"]}"),
              HasSubstr("a host has no selector \"onError\""));
  EXPECT_THAT(refusal(station + "{\"op\":\"openPort\",\"args\":[\"ECG\"]}"),
              HasSubstr("there is no role \"ECG\""));
  EXPECT_THAT(refusal(station + "{\"op\":\"recv\",\"role\":7,\"hex\":\"\"}"),
              HasSubstr("there is no role 7"));
  EXPECT_THAT(refusal(port + "{\"op\":\"listen\",\"id\":\"d\"}"), HasSubstr("there is no descriptor \"d\""));
  EXPECT_THAT(
      refusal(port + "{\"op\":\"descriptor\",\"id\":\"d\",\"kind\":\"regex\",\"pattern\":\"(\",\"max\":1}"),
      HasSubstr("\"pattern\": "));
  EXPECT_THAT(refusal("{\"op\":\"codec\",\"fn\":\"rot13\",\"arg\":\"\"}"),
              HasSubstr("there is no codec \"rot13\""));
  EXPECT_THAT(refusal("{\"op\":\"codec\",\"fn\":\"calculateCRC\",\"arg\":[65536]}"),
              HasSubstr("an integer from 0 to 65535, not 65536"));
}

TEST(ReplayCommandTest, RefusesAFileThatIsNotThere) {
  const auto ended = run({"replay", "/nowhere/script.jsonl"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_EQ(ended.errors, "tarsil: cannot read /nowhere/script.jsonl: No such file or directory\n");
}

TEST(ReplayCommandTest, GivesNothingAfterAFatalStopUntilTheNextNew) {
  const auto ended = run({"replay", "--ops", "-"}, R"({"op":"new","device":"TM_400V2"}
{"op":"setLoad","args":["nan",0]}
{"op":"startDeivce"}
{"op":"codec","fn":"ascii","arg":"A"}
{"op":"advance","s":10}
{"op":"new","device":"TM_400V2"}
{"op":"startDeivce"}
)");
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, IsEmpty());
  EXPECT_EQ(ended.output,
            "[\"op#\",0]\n"
            "[\"op#\",1]\n"
            "[\"fatal\",\"ten times the speed in km/h does not fit a 64-bit integer: nan\"]\n"
            "[\"op#\",2]\n[\"op#\",3]\n[\"op#\",4]\n[\"op#\",5]\n[\"op#\",6]\n"
            "[\"send\",\"23e310001000fd\"]\n");
}

TEST(ReplayCommandTest, NothingIsLeftOfAnOldDevice) {
  // A ramp-down that polls each second, a delayed command and a pending request.
  EXPECT_EQ(replay(R"({"op":"new","device":"TrackMaster"}
{"op":"stopStressDevice"}
{"op":"new","device":"ErgolineP10"}
{"op":"startBP"}
{"op":"new","device":"BPDevice"}
{"op":"breakBP"}
{"op":"clearBP"}
{"op":"new","device":"LodeTreadmill"}
{"op":"advance","s":10}
)"),
            "[\"send\",\"a3303030\"]\n[\"send\",\"a430303030\"]\n[\"send\",\"530d\"]\n[\"send\","
            "\"53544f500a0d\"]\n");
}

TEST(ReplayCommandTest, ALongChunkStaysInOnePiece) {
  EXPECT_EQ(replay("{\"op\":\"new\",\"device\":\"TrackMaster\"}\n{\"op\":\"recv\",\"hex\":\"b1" +
                   lines("00", 2999) + "\"}\n"),
            "[\"log\",\"jointDeviceResult:B1" + lines("00", 2999) +
                "\"]\n[\"call\",\"device\",\"successfully\"]\n");
}

TEST(ReplayCommandTest, ADriverHearsAChunkWhateverItsPort) {
  EXPECT_EQ(replay(R"({"op":"new","device":"MEDXINGPort","port":"none"}
{"op":"recv","hex":"000000002395000061"}
{"op":"port","state":"closed"}
{"op":"recv","hex":"000000002395000060"}
{"op":"port","state":"open"}
{"op":"recv","hex":"00000000239500005f"}
)"),
            "[\"call\",\"device\",\"onReceivedSpO2WithSpO2:status:\",97.0,1]\n"
            "[\"call\",\"device\",\"onReceivedSpO2WithSpO2:status:\",96.0,1]\n"
            "[\"call\",\"device\",\"onReceivedSpO2WithSpO2:status:\",95.0,1]\n");
}

TEST(ReplayCommandTest, WritesFloatsAsTheirShortestText) {
  EXPECT_EQ(replay(R"({"op":"new","device":"ErgosanaP10"}
{"op":"recv","hex":"42302e310d"}
{"op":"recv","hex":"42376530200d"}
{"op":"recv","hex":"42396539200d"}
)"),
            "[\"call\",\"device\",\"onReceivedErgometerPowerWithPower:\",0.1]\n"
            "[\"call\",\"device\",\"onReceivedErgometerPowerWithPower:\",7.0]\n"
            "[\"call\",\"device\",\"onReceivedErgometerPowerWithPower:\",9000000000.0]\n");
}

TEST(ReplayCommandTest, KeepsTheOrderOfPortsThatAScriptGives) {
  EXPECT_EQ(replay(R"({"op":"new","device":"manager","drive":true}
{"op":"ports","names":["a","b"]}
{"op":"ports","names":["串口","b","a","b"]}
{"op":"getPort","args":[false]}
)"),
            "[\"return\",[\"串口\",\"b\",\"a\",\"b\"]]\n");
}

TEST(ReplayCommandTest, LeavesNoFileBehind) {
  const std::filesystem::path folder = testing::TempDir() + "tarsil-temporary-" + std::to_string(getpid());
  std::filesystem::create_directory(folder);
  Program program("/usr/bin/env", {"TMPDIR=" + folder.string(), TARSIL_PROGRAM, "replay", "-"});
  program.write("{\"op\":\"new\",\"device\":\"TrackMaster\"}\n{\"op\":\"requestLoad\"}\n");
  EXPECT_EQ(program.wait().code, 0);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  std::filesystem::remove_all(folder);
}

TEST(ReplayCommandTest, ReportsAFolderThatCannotBeMade) {
  Program program("/usr/bin/env", {"TMPDIR=/nowhere", TARSIL_PROGRAM, "replay", "-"});
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 1);
  EXPECT_THAT(ended.errors, StartsWith("tarsil: "));
}

TEST(ReplayCommandTest, ReportsOutputThatCannotBeWritten) {
  Program program("/bin/sh", {"-c", "exec " TARSIL_PROGRAM " replay - > /dev/full"});
  program.write("{\"op\":\"codec\",\"fn\":\"ascii\",\"arg\":\"A\"}\n");
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ended.errors, "tarsil: cannot write to standard output\n");
}

}  // namespace
}  // namespace tarsil::cli
