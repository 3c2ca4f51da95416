#pragma once

#include <memory>
#include <string>

namespace tarsil {

/// Writes a plain-text log of the traffic with the devices: one file per run of the process, under the user's
/// documents directory in "DeviceFile". Not for several threads at once: call it on the main thread.
class FileManagerTool {
 public:
  /// The one tool, made on first use.
  static FileManagerTool& share();

  FileManagerTool(const FileManagerTool&) = delete;
  FileManagerTool& operator=(const FileManagerTool&) = delete;

  /// Appends one record: a line end, the local time, "->" and the text. The record reaches the disk about
  /// three seconds later, when the calling thread runs its run loop. A file that cannot be opened is not
  /// noticed: its records are lost.
  void writeFile(const std::string& str);
  /// Creates the log directory; a failure is only printed.
  void createPath();
  /// The path of this run's file, fixed by the first call.
  std::string getRootPath();
  /// Flushes what was written to the disk.
  void fileFlush();
  /// Lets go of the pending flush timer without flushing; the next record arms a new one.
  void clearTimer();

 private:
  FileManagerTool();
  ~FileManagerTool();
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tarsil
