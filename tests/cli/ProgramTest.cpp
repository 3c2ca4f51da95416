#include "tests/cli/Program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "tests/cli-report/ScratchFolder.hpp"
#include "tools/tarsil/commands.hpp"

namespace tarsil::cli {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

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

TEST(ProgramTest, SaysWhatIsWrongWithACommandLineInItsOwnWords) {
  const auto errors = [](const std::vector<std::string>& arguments) { return run(arguments).errors; };
  EXPECT_EQ(errors({"devcies"}),
            "tarsil: there is no command \"devcies\"; did you mean \"devices\"?; see `tarsil "
            "--help`\n");
  EXPECT_THAT(errors({}), StartsWith("tarsil: name a command: devices, ports, "));
  EXPECT_EQ(errors({"devices", "--jsn"}),
            "tarsil: devices has no option --jsn; did you mean \"--json\"?; see `tarsil devices --help`\n");
  EXPECT_EQ(errors({"send", "TM-400V2", "--wht", "startDeivce"}),
            "tarsil: send has no option --wht; did you mean \"--what\"?; see `tarsil send --help`\n");
  EXPECT_EQ(errors({"devices", "too"}),
            "tarsil: \"too\" is one word too many for devices; see `tarsil devices --help`\n");
  EXPECT_EQ(errors({"report"}), "tarsil: FOLDER is required; see `tarsil report --help`\n");
  EXPECT_EQ(errors({"devices", "--json", "--markdown"}),
            "tarsil: --json excludes --markdown; see `tarsil devices --help`\n");
}

// What Tab offers.

std::vector<std::string> offers(const std::vector<std::string>& words) {
  std::vector<std::string> arguments{"complete"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const auto ended = run(arguments);
  EXPECT_EQ(ended.code, 0);
  return linesOf(ended.output);
}

TEST(CompletionTest, OffersWhatTheProgramKnows) {
  EXPECT_THAT(offers({"dev"}), ElementsAre("devices"));
  std::vector<std::string> names;
  for (const auto& command : commands()) names.push_back(command->name());
  EXPECT_EQ(offers({""}), names);
  EXPECT_THAT(offers({"replay", "--o"}), ElementsAre("--ops"));
  EXPECT_THAT(offers({"send", "TM"}), ElementsAre("TM-400V2"));
  EXPECT_THAT(offers({"send", "TM-400V2", "--what", "startD"}), ElementsAre("startDeivce"));
  EXPECT_THAT(offers({"simulate", "TrackMaster", "--fault", "refuse=B"}), Contains("refuse=BE"));
  EXPECT_THAT(offers({"run", "--protocol", "bru"}), ElementsAre("bruce"));
  EXPECT_THAT(offers({"run", "--exercise", "Track"}), ElementsAre("TrackMaster@", "TrackMaster"));
  EXPECT_THAT(offers({"stop", "Lode"}), ElementsAre("LodeOEMTreadmill@", "LodeTreadmill@"));
  EXPECT_THAT(offers({"cable", "Tan"}), ElementsAre("Tango@"));
  EXPECT_THAT(offers({"protocols", "nau"}), ElementsAre("naughton"));
  EXPECT_THAT(offers({"report", ""}), IsEmpty());
}

/// What bash puts in place of the last word of this line.
std::string inBash(const std::string& line) {
  const std::string script = "PATH=$(dirname " TARSIL_PROGRAM "):$PATH; source " TARSIL_SOURCE_FOLDER
                             "/tools/tarsil/completion/tarsil.bash; COMP_LINE='" +
                             line + "'; COMP_POINT=${#COMP_LINE}; _tarsil; echo \"${COMPREPLY[@]}\"";
  Program bash("/bin/bash", {"--norc", "-c", script});
  const auto ended = bash.wait();
  EXPECT_THAT(ended.errors, IsEmpty());
  return ended.output;
}

TEST(CompletionTest, BashHandsItOn) {
  EXPECT_EQ(inBash("tarsil dev"), "devices\n");
  EXPECT_EQ(inBash("tarsil run --protocol bru"), "bruce\n");
  EXPECT_EQ(inBash("tarsil stop Track"), "TrackMaster@\n");
  EXPECT_EQ(inBash("tarsil report "), "\n");
}

// Other shells are no part of what this product needs: a machine without one says that it left it out.

TEST(CompletionTest, FishHandsItOn) {
  if (std::system("command -v fish >/dev/null") != 0) GTEST_SKIP() << "no fish; .ci/run installs it";
  Program fish("/usr/bin/env", {"fish", "-c",
                                "set -x PATH (dirname " TARSIL_PROGRAM ") $PATH; source " TARSIL_SOURCE_FOLDER
                                "/tools/tarsil/completion/tarsil.fish; complete -C 'tarsil stop Track'"});
  EXPECT_EQ(fish.wait().output, "TrackMaster@\n");
}

TEST(CompletionTest, ZshReadsItsFile) {
  if (std::system("command -v zsh >/dev/null") != 0) GTEST_SKIP() << "no zsh; .ci/run installs it";
  Program zsh(
      "/usr/bin/env",
      {"zsh", "-fc",
       "PATH=$(dirname " TARSIL_PROGRAM "):$PATH; compadd() { print -r -- \"${@[(i)--]}: $@\"; }; _files() "
       "{ print files; }; words=(tarsil stop Track); CURRENT=3; source " TARSIL_SOURCE_FOLDER
       "/tools/tarsil/completion/_tarsil; words=(tarsil report ''); _tarsil"});
  const auto ended = zsh.wait();
  EXPECT_THAT(ended.output, HasSubstr(" -- TrackMaster@\n"));
  EXPECT_THAT(ended.output, HasSubstr("files\n"));
  EXPECT_THAT(ended.errors, IsEmpty());
}

}  // namespace
}  // namespace tarsil::cli
