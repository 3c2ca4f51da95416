#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/tarsil/exitCodes.hpp"
#include "tools/tarsil/report/ReportFile.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"
#include "tools/tarsil/report/SessionScript.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/run/Station.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// The files that a session leaves in a folder: session.csv and session.jsonl, written as things happen, and
/// report.html, written at the end. Files of an earlier session there are replaced. Main thread.
class Report {
 public:
  /// Makes the folder and its files and joins the journal; the report lives as long as the journal is
  /// written. `protocol` must outlive it. Throws CommandFailure when a file cannot be made.
  Report(const std::filesystem::path& folder, const Protocol& protocol, const Station::Plan& plan,
         Journal& journal, const std::shared_ptr<Traffic>& traffic);
  ~Report();
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  /// Called once, soon after a file could not be written, from the main run loop: not while whoever wrote to
  /// the journal is busy with the devices.
  std::function<void(const std::string& reason)> onFailure;

  /// Writes report.html and closes the files; nothing is recorded after it.
  void finish(ExitCode result);
  /// Why a file could not be written: the first reason.
  const std::optional<std::string>& failure() const { return failure_; }

 private:
  void hear(const Entry& entry);
  void hear(const Chunk& chunk);
  /// Whatever happens to one file, the others go on.
  void attempt(const std::function<void()>& writing);

  const std::filesystem::path folder_;
  const Station::Plan plan_;
  const Clock::Instant start_;
  const std::chrono::system_clock::time_point began_ = Clock::wallNow();
  const std::shared_ptr<Traffic> traffic_;
  SessionRecord record_;
  SessionScript script_;
  std::unique_ptr<ReportFile> csvFile_;
  std::unique_ptr<ReportFile> scriptFile_;
  bool isFinished_ = false;
  std::optional<std::string> failure_;
  /// Lets the news of a failure come to nothing when the report is gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tarsil::cli
