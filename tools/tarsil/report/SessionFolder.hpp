#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "tarsil/guard/Journal.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// The folder of one session, dated and its own: journal.jsonl, which the station writes as things happen,
/// and the report that is made of it at the end. Main thread.
class SessionFolder {
 public:
  /// Makes a folder below `parent`; no earlier session is ever touched. Throws CommandFailure when it cannot
  /// be made.
  SessionFolder(const std::filesystem::path& parent, JournalHead head);

  const std::filesystem::path& path() const { return path_; }
  /// For the station.
  JournalFile journalFile() const;
  /// There is no session: a folder without files goes again.
  void discard();

  void hear(const Event& event);
  /// Makes the report from the journal, and from everything heard where that is not complete.
  void finish();
  /// Why a file could not be written: the first reason.
  const std::optional<std::string>& failure() const { return failure_; }

 private:
  void fail(const std::string& reason);
  Journal journal() const;

  std::filesystem::path path_;
  const Clock::Instant start_ = Clock::now();
  Journal heard_;
  std::optional<std::string> failure_;
};

/// Below the user's documents, where sessions are kept when nobody says where.
std::filesystem::path standardSessionsFolder();

/// Writes session.csv and report.html into the folder, over those that are there. Every file
/// is tried. Throws ReportError for the first one that cannot be written, and ProtocolError for a journal
/// without its protocol.
void writeReport(const std::filesystem::path& folder, const Journal& journal);

}  // namespace tarsil::cli
