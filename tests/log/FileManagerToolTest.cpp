#include "tarsil/log/FileManagerTool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/support/ScopedOverride.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// Time stands at 2024-03-01 14:05:09.
class FileManagerToolTest : public testing::Test {
 protected:
  std::filesystem::path firstFile() const { return user.logs() / "2024-03-01 14:05:09.log"; }
  std::string onDisk() const { return contentsOf(firstFile()); }

  VirtualTime time;
  TemporaryUserFolders user;
  PrintedLines printed;
  FileManagerTool tool;
};

TEST_F(FileManagerToolTest, ARecordIsALineEndAStampAnArrowAndTheText) {
  tool.writeFile("abc");
  tool.fileFlush();
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->abc");
}

TEST_F(FileManagerToolTest, RecordsFollowEachOtherEachWithItsOwnStamp) {
  tool.writeFile("setSpeed:5.0,grade:2.5");
  time.advance(51s);
  tool.writeFile("---requestLode---");
  tool.writeFile("");
  tool.fileFlush();
  EXPECT_EQ(onDisk(),
            "\n2024-03-01 14:05:09->setSpeed:5.0,grade:2.5"
            "\n2024-03-01 14:06:00->---requestLode---"
            "\n2024-03-01 14:06:00->");
}

TEST_F(FileManagerToolTest, WritesAsManyBytesOfTheTextAsItHasCharacters) {
  tool.writeFile("串口");
  tool.writeFile("a串b");
  tool.writeFile("\xFF\xFE");
  tool.fileFlush();
  EXPECT_EQ(onDisk(),
            "\n2024-03-01 14:05:09->\xE4\xB8"
            "\n2024-03-01 14:05:09->a\xE4\xB8"
            "\n2024-03-01 14:05:09->\xFF\xFE");
}

TEST_F(FileManagerToolTest, CreatesTheFolderWithTheOnesAboveIt) {
  ASSERT_FALSE(std::filesystem::exists(user.documents()));
  tool.writeFile("abc");
  EXPECT_TRUE(std::filesystem::is_directory(user.logs()));
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
}

TEST_F(FileManagerToolTest, NamesItsFileAtTheFirstUseForTheWholeRun) {
  EXPECT_EQ(tool.getRootPath(), firstFile());
  time.advance(10s);
  EXPECT_EQ(tool.getRootPath(), firstFile());
  tool.writeFile("abc");
  tool.fileFlush();
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:19->abc");
}

TEST_F(FileManagerToolTest, ItsFieldsTellHowFarItIs) {
  EXPECT_EQ(tool.fileTime, std::nullopt);
  EXPECT_EQ(tool.timer, nullptr);
  EXPECT_FALSE(tool.isFile);
  EXPECT_EQ(tool.logFile, nullptr);
  tool.writeFile("abc");
  EXPECT_EQ(tool.fileTime, "2024-03-01 14:05:09");
  ASSERT_NE(tool.timer, nullptr);
  EXPECT_TRUE(tool.timer->isValid());
  EXPECT_TRUE(tool.isFile);
  EXPECT_NE(tool.logFile, nullptr);
  time.advance(3s);
  EXPECT_EQ(tool.timer, nullptr);
}

TEST_F(FileManagerToolTest, NamesItsFileAfterTheMomentOfTheFirstUse) {
  time.advance(1s);
  tool.writeFile("abc");
  EXPECT_EQ(tool.getRootPath(), user.logs() / "2024-03-01 14:05:10.log");
}

TEST_F(FileManagerToolTest, ASecondRunInTheSameSecondTruncatesTheFirst) {
  tool.writeFile("of the first run");
  tool.fileFlush();
  FileManagerTool second;
  second.writeFile("2");
  second.fileFlush();
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->2");
}

TEST_F(FileManagerToolTest, FlushesThreeSecondsAfterTheFirstRecord) {
  tool.writeFile("abc");
  time.advance(3s - 1ns);
  EXPECT_EQ(onDisk(), "");
  time.advance(1ns);
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->abc");
}

TEST_F(FileManagerToolTest, OneFlushServesAllRecordsBeforeIt) {
  tool.writeFile("a");
  time.advance(2s);
  tool.writeFile("b");
  time.advance(1s);
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->a\n2024-03-01 14:05:11->b");
}

TEST_F(FileManagerToolTest, TheNextRecordArmsTheFlushAgain) {
  tool.writeFile("a");
  time.advance(5s);
  tool.writeFile("b");
  time.advance(3s - 1ns);
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->a");
  time.advance(1ns);
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->a\n2024-03-01 14:05:14->b");
}

TEST_F(FileManagerToolTest, AClearedTimerFlushesNothingUntilTheNextRecordArmsANewOne) {
  tool.writeFile("a");
  tool.clearTimer();
  time.advance(1h);
  EXPECT_EQ(onDisk(), "");
  tool.writeFile("b");
  time.advance(3s);
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->a\n2024-03-01 15:05:09->b");
}

TEST_F(FileManagerToolTest, ClearingWithoutATimerAndFlushingWithoutAFileDoNothing) {
  tool.clearTimer();
  tool.fileFlush();
  EXPECT_FALSE(std::filesystem::exists(user.documents()));
}

TEST_F(FileManagerToolTest, ADestroyedToolClosesItsFileAndFlushesNoMore) {
  {
    FileManagerTool passing;
    passing.writeFile("abc");
  }
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->abc");
  time.advance(1min);
}

TEST_F(FileManagerToolTest, AFolderThatCannotBeCreatedIsPrintedOnceAndLoggingCarriesOn) {
  std::ofstream(user.documents()) << "a file where a folder should be";
  tool.writeFile("a");
  tool.writeFile("b");
  EXPECT_THAT(printed.diagnostic(),
              ElementsAre("cannot create " + user.logs().string() + ": Not a directory"));
  EXPECT_THAT(printed.fixed(), IsEmpty());
  time.advance(3s);
  EXPECT_EQ(contentsOf(user.documents()), "a file where a folder should be");
}

TEST_F(FileManagerToolTest, RecordsOfAFileThatCannotBeOpenedAreLost) {
  std::filesystem::create_directories(firstFile());
  tool.writeFile("lost");
  time.advance(3s);
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
  ASSERT_TRUE(std::filesystem::remove(firstFile()));
  tool.writeFile("kept");
  tool.fileFlush();
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:12->kept");
}

TEST_F(FileManagerToolTest, CreatesItsFolderOnlyOnce) {
  tool.writeFile("a");
  std::filesystem::remove_all(user.documents());
  tool.writeFile("b");
  EXPECT_FALSE(std::filesystem::exists(user.documents()));
}

TEST_F(FileManagerToolTest, CreatesTheFolderInTheHomeAndTheFileInTheDocumentsWhereverTheyAre) {
  class MovedDocuments : public UserFolders {
   public:
    explicit MovedDocuments(const TemporaryUserFolders& user) : user_(user) {}
    std::string home() override { return user_.home().string(); }
    std::string documents() override { return (user_.home() / "moved").string(); }

   private:
    const TemporaryUserFolders& user_;
  };
  const ScopedOverride<UserFolders> moved(std::make_shared<MovedDocuments>(user));
  EXPECT_EQ(tool.getRootPath(), user.home() / "moved/DeviceFile/2024-03-01 14:05:09.log");
  EXPECT_FALSE(tool.getDocumentPath());
  tool.createPath();
  EXPECT_TRUE(std::filesystem::is_directory(user.logs()));
  std::filesystem::create_directories(user.home() / "moved/DeviceFile");
  EXPECT_TRUE(tool.getDocumentPath());
  tool.writeFile("abc");
  tool.fileFlush();
  EXPECT_EQ(contentsOf(tool.getRootPath()), "\n2024-03-01 14:05:09->abc");
}

TEST_F(FileManagerToolTest, KnowsWhetherTheDocumentsDirectoryExists) {
  EXPECT_FALSE(tool.getDocumentPath());
  tool.createPath();
  EXPECT_TRUE(tool.getDocumentPath());
  std::filesystem::remove_all(user.documents());
  std::ofstream(user.documents()) << "a file";
  EXPECT_FALSE(tool.getDocumentPath());
}

TEST_F(FileManagerToolTest, FormatsDates) {
  const auto date = Clock::wallNow();
  const auto format = [&](const char* formatter) {
    return FileManagerTool::currentDateToStringWithFormatter(date, formatter);
  };
  EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss"), "2024-03-01 14:05:09");
  EXPECT_EQ(format("d.M.yy, H:m:s"), "1.3.24, 14:5:9");
  EXPECT_EQ(format("y yyyyyy ddd"), "2024 002024 001");
  EXPECT_EQ(format("HHmm"), "1405");
  EXPECT_EQ(format(""), "");
  EXPECT_EQ(format("--::串口"), "--::串口");
}

TEST_F(FileManagerToolTest, StampsTheCurrentTimeWithASuffix) {
  EXPECT_EQ(FileManagerTool::cdf(""), "2024-03-01 14:05:09");
  time.advance(10h);
  EXPECT_EQ(FileManagerTool::cdf(".log"), "2024-03-02 00:05:09.log");
}

/// The time zone of the process, as long as this exists.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    if (before_) {
      setenv("TZ", before_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> before_;
};

TEST(FileManagerToolTimeTest, StampsTheLocalTime) {
  const auto date = std::chrono::system_clock::from_time_t(1709301909);  // 2024-03-01 14:05:09 UTC
  const auto* stamp = "yyyy-MM-dd HH:mm:ss";
  {
    const TimeZone zone("EAST-10:30");
    EXPECT_EQ(FileManagerTool::currentDateToStringWithFormatter(date, stamp), "2024-03-02 00:35:09");
  }
  const TimeZone zone("WEST5");
  EXPECT_EQ(FileManagerTool::currentDateToStringWithFormatter(date, stamp), "2024-03-01 09:05:09");
}

TEST_F(FileManagerToolTest, FlushesOnTheRunLoopOfTheThreadThatWrote) {
  std::thread([&] { tool.writeFile("abc"); }).join();
  time.advance(1h);
  EXPECT_EQ(onDisk(), "") << "that thread ran no loop";
  tool.writeFile("def");
  time.advance(1h);
  EXPECT_EQ(onDisk(), "") << "a flush that will never come is still pending";
  tool.fileFlush();
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->abc\n2024-03-01 15:05:09->def");
}

using FileManagerToolDeathTest = FileManagerToolTest;

TEST_F(FileManagerToolDeathTest, TheEndOfTheProcessWritesWhatTheSharedToolHas) {
  EXPECT_EXIT(
      {
        FileManagerTool::share().writeFile("abc");
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(onDisk(), "\n2024-03-01 14:05:09->abc");
}

TEST(FileManagerToolShareTest, IsOneToolForEverybody) {
  EXPECT_EQ(&FileManagerTool::share(), &FileManagerTool::share());
}

}  // namespace
}  // namespace tarsil
