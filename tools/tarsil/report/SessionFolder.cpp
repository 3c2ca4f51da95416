#include "tools/tarsil/report/SessionFolder.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>
#include <variant>

#include "tarsil/platform/UserFolders.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/report/ReportFile.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"
#include "tools/tarsil/report/csvLine.hpp"
#include "tools/tarsil/report/reportPage.hpp"

namespace tarsil::cli {
namespace {

/// "2024-03-01 14.05.09", with a number behind it for the next session of the same second.
std::filesystem::path newFolder(const std::filesystem::path& parent,
                                std::chrono::system_clock::time_point began) {
  const std::string name =
      fmt::format("{:%Y-%m-%d %H.%M.%S}", fmt::localtime(std::chrono::system_clock::to_time_t(began)));
  try {
    std::filesystem::create_directories(parent);
    std::filesystem::path folder = parent / name;
    for (int number = 2; !std::filesystem::create_directory(folder); ++number)
      folder = parent / fmt::format("{} ({})", name, number);
    return folder;
  } catch (const std::filesystem::filesystem_error& error) {
    throw CommandFailure(reportFailed, fmt::format("cannot create a folder in {}: {}", parent.string(),
                                                   error.code().message()));
  }
}

std::string csvText(const Journal& journal, StressDeviceType kind) {
  std::string text(csvHeader);
  for (const Event& event : journal.events) text += csvLine(event, event.at - Clock::Instant(), kind);
  return text;
}

}  // namespace

SessionFolder::SessionFolder(const std::filesystem::path& parent, JournalHead head)
    : path_(newFolder(parent, head.began)), heard_{.head = std::move(head)} {}

JournalFile SessionFolder::journalFile() const {
  return {.path = path_ / "journal.jsonl", .facts = heard_.head.facts};
}

void SessionFolder::discard() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void SessionFolder::hear(const Event& event) {
  const auto* alarm = std::get_if<AlarmRaised>(&event.what);
  if (alarm && alarm->kind == AlarmKind::journalFailed) fail(alarm->text);
  Event kept = event;
  kept.at = Clock::Instant(event.at - start_);
  heard_.events.push_back(std::move(kept));
}

Journal SessionFolder::journal() const {
  if (failure_) return heard_;
  std::ifstream file(journalFile().path);
  auto written = readJournal(std::string(std::istreambuf_iterator<char>(file), {}));
  return written ? std::move(*written) : heard_;
}

void SessionFolder::finish() {
  try {
    writeReport(path_, journal());
  } catch (const ReportError& error) {
    fail(error.what());
  }
}

void SessionFolder::fail(const std::string& reason) {
  if (!failure_) failure_ = reason;
}

std::filesystem::path standardSessionsFolder() {
  return std::filesystem::path(UserFolders::shared()->documents()) / "Tarsil sessions";
}

void writeReport(const std::filesystem::path& folder, const Journal& journal) {
  const SessionRecord record(journal);
  std::optional<ReportError> failure;
  const auto write = [&](const char* name, const std::string& text) {
    try {
      ReportFile file(folder / name);
      file.write(text);
      file.close();
    } catch (const ReportError& error) {
      if (!failure) failure = error;
    }
  };
  write("session.csv", csvText(journal, record.protocol().device));
  write("report.html", reportPage(record));
  if (failure) throw ReportError(*failure);
}

}  // namespace tarsil::cli
