#include "tests/cli/Program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "tools/tarsil/commands.hpp"

namespace tarsil::cli {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string manPage() {
  std::ifstream file(TARSIL_SOURCE_FOLDER "/docs/man/tarsil.1");
  std::ostringstream text;
  text << file.rdbuf();
  // The hyphen of an option is written "\-" there.
  return std::regex_replace(text.str(), std::regex(R"(\\-)"), "-");
}

/// The long options that a help text declares.
std::vector<std::string> longOptions(const std::string& help) {
  std::vector<std::string> options;
  const std::regex option(R"((^|\n)  (-\w,)?(--[a-z-]+))");
  for (std::sregex_iterator found(help.begin(), help.end(), option), end; found != end; ++found) {
    options.push_back((*found)[3]);
  }
  return options;
}

TEST(ProgramTest, SaysWhatItCanDo) {
  const auto ended = run({"--help"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.errors, IsEmpty());
  for (const auto& command : commands()) EXPECT_THAT(ended.output, HasSubstr("  " + command->name()));
}

TEST(ProgramTest, EveryCommandHasHelp) {
  for (const auto& command : commands()) {
    const auto ended = run({command->name(), "--help"});
    EXPECT_EQ(ended.code, 0) << command->name();
    EXPECT_THAT(ended.output, HasSubstr(command->summary()));
  }
}

TEST(ProgramTest, SaysItsVersion) {
  const auto ended = run({"--version"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_TRUE(std::regex_match(ended.output, std::regex(R"(\d+\.\d+\.\d+\n)"))) << ended.output;
}

TEST(ProgramTest, RefusesACommandLineInOneLine) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {}, {"fly"}, {"devices", "--fly"}, {"replay"}, {"devices", "too", "much"}}) {
    const auto ended = run(arguments);
    EXPECT_EQ(ended.code, 2);
    EXPECT_THAT(ended.output, IsEmpty());
    EXPECT_TRUE(std::regex_match(ended.errors, std::regex(R"(tarsil: [^\n]+\n)"))) << ended.errors;
  }
}

TEST(ProgramTest, ReportsOutputThatCannotBeWritten) {
  Program program("/bin/sh", {"-c", "exec " TARSIL_PROGRAM " devices > /dev/full"});
  const auto ended = program.wait();
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ended.errors, "tarsil: cannot write to standard output\n");
}

TEST(ProgramTest, TheManPageKnowsEveryCommandAndOption) {
  const std::string page = manPage();
  for (const auto& command : commands()) {
    EXPECT_THAT(page, HasSubstr("tarsil " + command->name()));
    for (const auto& option : longOptions(run({command->name(), "--help"}).output)) {
      EXPECT_THAT(page, HasSubstr(option)) << command->name();
    }
  }
}

/// What Tab offers at the end of these words.
std::string completions(const std::string& words) {
  const std::string script = "PATH=$(dirname " TARSIL_PROGRAM "):$PATH; source " TARSIL_SOURCE_FOLDER
                             "/tools/tarsil/completion/tarsil.bash; COMP_WORDS=(" +
                             words +
                             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tarsil; echo \"${COMPREPLY[@]}\"";
  Program bash("/bin/bash", {"--norc", "-c", script});
  const auto ended = bash.wait();
  EXPECT_THAT(ended.errors, IsEmpty());
  return ended.output;
}

TEST(ProgramTest, BashCompletesCommands) {
  EXPECT_EQ(completions("tarsil dev"), "devices\n");
  for (const auto& command : commands()) EXPECT_THAT(completions("tarsil ''"), HasSubstr(command->name()));
}

TEST(ProgramTest, BashCompletesOptionsAndModels) {
  EXPECT_EQ(completions("tarsil replay --o"), "--ops\n");
  EXPECT_EQ(completions("tarsil send TM"), "TM-400V2\n");
  EXPECT_EQ(completions("tarsil send TM-400V2 --what startD"), "startDeivce\n");
}

}  // namespace
}  // namespace tarsil::cli
