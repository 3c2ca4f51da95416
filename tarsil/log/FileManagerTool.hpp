#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarsil {

class Timer;

/// Writes a plain-text log of the traffic with the devices: one file per run of the process, under the user's
/// documents directory in "DeviceFile". Not for several threads at once: call it on the main thread.
class FileManagerTool {
 public:
  /// The one tool that all devices write to, made on first use.
  static FileManagerTool& share();

  /// A log of its own; its file closes with it.
  FileManagerTool();
  ~FileManagerTool();
  FileManagerTool(const FileManagerTool&) = delete;
  FileManagerTool& operator=(const FileManagerTool&) = delete;

  /// Appends one record: a line end, the local time, "->" and the text. The record reaches the disk about
  /// three seconds later, when the calling thread runs its run loop. Of the text as many bytes are written as
  /// it has characters, so that text outside ASCII is cut short. A file that cannot be opened is not noticed:
  /// its records are lost.
  void writeFile(const std::string& str);
  /// Creates the log directory; a failure is only printed.
  void createPath();
  /// The path of this run's file, fixed by the first call.
  std::string getRootPath();
  /// Whether the user's documents directory exists.
  bool getDocumentPath();
  /// Flushes what was written to the disk.
  void fileFlush();
  /// Lets go of the pending flush timer without flushing; the next record arms a new one.
  void clearTimer();

  /// `date` as local time. In `formatter` runs of the letters y, M, d, H, m and s stand for year, month, day,
  /// hour (0 to 23), minute and second, padded with zeros to the length of the run ("yy" is the year's last
  /// two digits); every other character stands for itself.
  static std::string currentDateToStringWithFormatter(std::chrono::system_clock::time_point date,
                                                      const std::string& formatter);
  /// The current local time as "yyyy-MM-dd HH:mm:ss", followed by `suffix`.
  static std::string cdf(const std::string& suffix);

  /// Names the log file; none before the first use.
  std::optional<std::string> fileTime;
  /// The pending flush; null when nothing waits for one.
  std::shared_ptr<Timer> timer;
  /// The log directory has been created in this run, or at least been tried.
  bool isFile = false;
  /// The open file; null before the first record, and after one that could not be written.
  std::FILE* logFile = nullptr;

 private:
  std::string_view timeOfRecord();

  // The second of the newest record, and its text.
  std::optional<std::chrono::sys_seconds> second_;
  std::string secondText_;
};

}  // namespace tarsil
