#include "tarsil/log/FileManagerTool.hpp"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/process.hpp"
#include "tarsil/support/utf8.hpp"

namespace tarsil {
namespace {

using namespace std::string_view_literals;

constexpr std::chrono::seconds flushDelay{3};
constexpr const char* folderName = "/DeviceFile";
constexpr const char* recordTime = "yyyy-MM-dd HH:mm:ss";

std::tm localTime(std::chrono::system_clock::time_point date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
  std::tm fields{};
  localtime_r(&seconds, &fields);
  return fields;
}

// The field that a letter of a format stands for.
std::optional<int> fieldOf(const std::tm& time, char letter) {
  switch (letter) {
    case 'y':
      return time.tm_year + 1900;
    case 'M':
      return time.tm_mon + 1;
    case 'd':
      return time.tm_mday;
    case 'H':
      return time.tm_hour;
    case 'm':
      return time.tm_min;
    case 's':
      return time.tm_sec;
    default:
      return std::nullopt;
  }
}

std::string padded(int value, std::size_t width) {
  const std::string digits = std::to_string(value);
  return std::string(width - std::min(width, digits.size()), '0') + digits;
}

}  // namespace

FileManagerTool& FileManagerTool::share() {
  // Never destroyed: records may be written until the process ends, and its end flushes and closes the
  // stream.
  static FileManagerTool& tool = *new FileManagerTool;
  return tool;
}

FileManagerTool::FileManagerTool() = default;

FileManagerTool::~FileManagerTool() {
  clearTimer();
  if (logFile != nullptr) std::fclose(logFile);
}

void FileManagerTool::writeFile(const std::string& str) {
  if (!timer) {
    timer = Timer::scheduled(flushDelay, false, [this](Timer&) {
      fileFlush();
      clearTimer();
    });
  }
  if (!isFile) {
    createPath();
    isFile = true;
  }
  if (logFile == nullptr) {
    // The C library ignores the "d"; the log has always been opened so.
    logFile = std::fopen(getRootPath().c_str(), "wd");
  }
  // A log that cannot be written is no reason to disturb a test that runs: its records are lost in silence.
  if (logFile == nullptr) return;

  // Characters are counted, bytes are written: the format of this log cuts text outside ASCII short, and its
  // readers rely on that.
  const std::string_view text = std::string_view(str).substr(0, utf8::characterCount(str));
  for (const std::string_view part : {"\n"sv, timeOfRecord(), "->"sv, text})
    std::fwrite(part.data(), 1, part.size(), logFile);
}

// To lay a time out costs more than all else of a record, and many are written within a second.
std::string_view FileManagerTool::timeOfRecord() {
  const auto second = std::chrono::floor<std::chrono::seconds>(Clock::wallNow());
  if (second != second_) {
    second_ = second;
    secondText_ = currentDateToStringWithFormatter(second, recordTime);
  }
  return secondText_;
}

void FileManagerTool::createPath() {
  // In the home, although the file goes to the documents directory: where the user has moved that one, its
  // "DeviceFile" has to be there already.
  const std::string path = UserFolders::shared()->home() + "/Documents" + folderName;
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) printLine("cannot create " + path + ": " + error.message(), PrintedText::diagnostic);
}

std::string FileManagerTool::getRootPath() {
  if (!fileTime) fileTime = cdf("");
  return UserFolders::shared()->documents() + folderName + "/" + *fileTime + ".log";
}

bool FileManagerTool::getDocumentPath() {
  std::error_code error;
  return std::filesystem::is_directory(UserFolders::shared()->documents(), error);
}

void FileManagerTool::fileFlush() {
  // Without a stream fflush() would flush every stream of the host.
  if (logFile != nullptr) std::fflush(logFile);
}

void FileManagerTool::clearTimer() {
  if (timer) timer->invalidate();
  timer = nullptr;
}

std::string FileManagerTool::currentDateToStringWithFormatter(std::chrono::system_clock::time_point date,
                                                              const std::string& formatter) {
  const std::tm time = localTime(date);
  std::string text;
  for (std::size_t start = 0; start < formatter.size();) {
    const char letter = formatter[start];
    const std::size_t end = std::min(formatter.find_first_not_of(letter, start), formatter.size());
    const std::size_t width = end - start;
    const auto field = fieldOf(time, letter);
    if (!field) {
      text.append(width, letter);
    } else if (letter == 'y' && width == 2) {
      text += padded(*field % 100, 2);
    } else {
      text += padded(*field, width);
    }
    start = end;
  }
  return text;
}

std::string FileManagerTool::cdf(const std::string& suffix) {
  return currentDateToStringWithFormatter(Clock::wallNow(), recordTime) + suffix;
}

}  // namespace tarsil
