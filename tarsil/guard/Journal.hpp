#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/guard/Event.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil {

/// A journal's file cannot be made; the text names it and the reason.
struct JournalError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What is known of a session before its first event.
struct JournalHead {
  std::chrono::system_clock::time_point began{};
  /// Whatever a reader needs to understand the rest: model, port, protocol, patient, program. Valid UTF-8.
  std::map<std::string, std::string> facts = {};
};

/// Where a station writes down what happens.
struct JournalFile {
  /// Made anew; the folder is there already. Empty: a file of its own in `.local/state/tarsil/journals` in
  /// the user's home, named after the moment.
  std::filesystem::path path = {};
  /// For the head, beside what the station knows: protocol, patient, program.
  std::map<std::string, std::string> facts = {};
};

/// Writes what happens in a session to a file, a JSON object a line: the head first, then every event with
/// its time. A worker thread hands the lines to the system, gathered for 30 ms, so that a process that is
/// killed loses moments only, and a disk that takes its time holds up nobody. Any thread.
class JournalWriter {
 public:
  /// Makes the file. Throws `JournalError` when it cannot be made or is there already: no journal is ever
  /// written over. Events count their time from `start`.
  JournalWriter(const std::filesystem::path& path, const JournalHead& head,
                Clock::Instant start = Clock::now());
  /// Flushes.
  ~JournalWriter();
  JournalWriter(const JournalWriter&) = delete;
  JournalWriter& operator=(const JournalWriter&) = delete;

  const std::filesystem::path& path() const;

  /// Never waits for the file. Does nothing any more after a failure: what is in the file stays whole lines.
  void write(const Event& event);
  /// Returns when the file has everything, or takes nothing for a second.
  void flush();
  /// Why the file is not complete now, as a sentence without its full stop: it could not be written, and then
  /// it stays as it is; or it has taken nothing for a second, and may go on. None while it is.
  std::optional<std::string> trouble() const;

 private:
  class File;

  const Clock::Instant start_;
  const std::shared_ptr<File> file_;
};

/// A journal read back.
struct Journal {
  JournalHead head;
  /// In the order of the file; the session began at the instant 0 of their times.
  std::vector<Event> events = {};
  /// Numbers of lines that cannot be read, counted from 1.
  std::vector<std::size_t> unreadableLines = {};
  /// The writer was cut off in the middle of its last line, which is left out.
  bool isTorn = false;
};

/// Reads what a `JournalWriter` wrote, also of a process that was killed. None when the text does not begin
/// with a journal's head. Any thread.
std::optional<Journal> readJournal(std::string_view text);

/// The line of an event, with its line end; `at` is the time since the session began. Any thread.
std::string journalLine(const Event& event, Duration at);

}  // namespace tarsil
