#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/support/ScopedOverride.hpp"

namespace tarsil::cli {

/// Reads back what the library writes to its traffic log. While it exists, the log lies in a folder of its
/// own, which goes with it. Make it before anybody writes to the log. Main thread.
class TrafficLogReader {
 public:
  /// Throws std::filesystem::filesystem_error when there is no place for the folder.
  TrafficLogReader();
  ~TrafficLogReader();
  TrafficLogReader(const TrafficLogReader&) = delete;
  TrafficLogReader& operator=(const TrafficLogReader&) = delete;

  /// The records written since the last call, without their time stamps.
  std::vector<std::string> newRecords();

 private:
  std::filesystem::path home_;
  ScopedOverride<UserFolders> folders_;
  std::ifstream log_;
};

}  // namespace tarsil::cli
