#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
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

/// Writes what happens in a session to a file, a JSON object a line: the head first, then every event with
/// its time. Each line is handed to the system at once, so that a process that is killed loses nothing that
/// had happened. Main thread.
class JournalWriter {
 public:
  /// Makes the file. Throws `JournalError` when it cannot be made or is there already: no journal is ever
  /// written over. Events count their time from `start`.
  JournalWriter(std::filesystem::path path, const JournalHead& head, Clock::Instant start = Clock::now());
  ~JournalWriter();
  JournalWriter(const JournalWriter&) = delete;
  JournalWriter& operator=(const JournalWriter&) = delete;

  /// Does nothing any more after a failure: what is in the file stays whole lines.
  void write(const Event& event);
  /// Why the file is not complete; none while it is.
  const std::optional<std::string>& failure() const { return failure_; }
  /// Called once, from within `write`, when an event could not be written.
  std::function<void(const std::string& reason)> onFailure;

 private:
  /// 0, or the error's number.
  int append(std::string_view line);
  void giveUp(int error);

  const std::filesystem::path path_;
  const Clock::Instant start_;
  int descriptor_;
  /// Of whole lines.
  std::size_t size_ = 0;
  std::optional<std::string> failure_;
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
