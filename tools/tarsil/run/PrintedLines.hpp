#pragma once

#include <memory>

#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil::cli {

/// While it exists, what the library prints for whoever debugs goes among the events of the station and not
/// to standard output, which belongs to the view. Make it before the station. Main thread.
class PrintedLines {
 public:
  PrintedLines();
  ~PrintedLines();
  PrintedLines(const PrintedLines&) = delete;
  PrintedLines& operator=(const PrintedLines&) = delete;

  /// Where lines go from now on; what was printed before it is lost.
  void setStation(const std::shared_ptr<GuardedStation>& station) { *station_ = station; }

 private:
  /// Shared with lines that are on their way to the main queue.
  const std::shared_ptr<std::weak_ptr<GuardedStation>> station_ =
      std::make_shared<std::weak_ptr<GuardedStation>>();
  ProcessHooks before_;
};

}  // namespace tarsil::cli
