#include "tarsil/guard/watch/lastWatch.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tarsil/guard/watch/detail/WatchPage.hpp"
#include "tarsil/guard/watch/detail/watchNames.hpp"
#include "tarsil/support/Error.hpp"
#include "tarsil/support/FileDescriptor.hpp"

namespace tarsil {
namespace {

using detail::MailAddress;
using detail::WatchCause;
using detail::WatcherMail;
using detail::WatchOutcome;
using detail::WatchRecord;

constexpr int patience = 1000;  // ms

std::optional<WatchRecord> readRecord(const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  WatchRecord record;
  if (file.get() < 0 || read(file.get(), &record, sizeof record) != sizeof record) return std::nullopt;
  if (record.layout != WatchRecord::currentLayout) return std::nullopt;
  return record;
}

/// None when no watcher of this line runs, or it does not answer.
std::optional<WatchRecord> ask(const std::string& line, WatcherMail wish) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  // The kernel gives us a name of our own, for the answer to come to.
  sockaddr own{.sa_family = AF_UNIX, .sa_data = {}};
  if (bind(socket.get(), &own, sizeof own.sa_family) != 0) return std::nullopt;
  // Connected, so that nobody but the watcher can answer.
  const MailAddress address(line);
  if (connect(socket.get(), address.get(), address.length()) != 0) return std::nullopt;
  if (send(socket.get(), &wish, 1, MSG_DONTWAIT | MSG_NOSIGNAL) != 1) return std::nullopt;

  pollfd answer{.fd = socket.get(), .events = POLLIN, .revents = 0};
  WatchRecord record;
  if (poll(&answer, 1, patience) != 1) return std::nullopt;
  if (recv(socket.get(), &record, sizeof record, MSG_DONTWAIT) != sizeof record) return std::nullopt;
  if (record.layout != WatchRecord::currentLayout) return std::nullopt;
  return record;
}

WatchReport::Time timeOf(std::int64_t nanoseconds) {
  return WatchReport::Time(
      std::chrono::duration_cast<WatchReport::Time::duration>(std::chrono::nanoseconds(nanoseconds)));
}

std::optional<WatchReport::Time> timeIfAny(std::int64_t nanoseconds) {
  return nanoseconds == 0 ? std::nullopt : std::optional(timeOf(nanoseconds));
}

WatchReport::Outcome outcomeOf(WatchOutcome outcome) {
  switch (outcome) {
    case WatchOutcome::watching:
      return WatchReport::Outcome::watching;
    case WatchOutcome::stopping:
      return WatchReport::Outcome::stopping;
    case WatchOutcome::stopSent:
      return WatchReport::Outcome::stopSent;
    case WatchOutcome::handedOver:
      return WatchReport::Outcome::handedOver;
    case WatchOutcome::disarmed:
      return WatchReport::Outcome::disarmed;
  }
  return WatchReport::Outcome::unknown;
}

WatchReport::Cause causeOf(WatchCause cause) {
  switch (cause) {
    case WatchCause::none:
      return WatchReport::Cause::none;
    case WatchCause::hostSilent:
      return WatchReport::Cause::hostSilent;
    case WatchCause::hostGone:
      return WatchReport::Cause::hostGone;
    case WatchCause::hostAsked:
      return WatchReport::Cause::hostAsked;
  }
  return WatchReport::Cause::none;
}

WatchReport reportOf(const WatchRecord& record) {
  return {.outcome = outcomeOf(record.outcome),
          .cause = causeOf(record.cause),
          .host = record.host,
          .startedAt = timeOf(record.startedAt),
          .lastBeatAt = timeIfAny(record.lastBeatAt),
          .firstStopAt = timeIfAny(record.firstStopAt),
          .lastStopAt = timeIfAny(record.lastStopAt),
          .endedAt = timeIfAny(record.endedAt),
          .stopsSent = record.stopsSent,
          .stopsFailed = record.stopsFailed,
          .lastError = record.lastError};
}

std::optional<WatchReport> report(const std::string& line, const std::string& records, WatcherMail wish) {
  if (const auto answer = ask(line, wish)) return reportOf(*answer);
  const auto left = readRecord(detail::recordPath(line, records));
  if (!left) return std::nullopt;
  WatchReport report = reportOf(*left);
  // A record is written when a watch begins and when it ends.
  if (report.outcome == WatchReport::Outcome::watching) report.outcome = WatchReport::Outcome::unknown;
  return report;
}

}  // namespace

std::string textOf(const WatchReport& report) {
  if (report.outcome == WatchReport::Outcome::unknown)
    return "an earlier host and its watcher process ended without a word";
  const auto times = [](std::uint32_t count) {
    return count == 1 ? std::string("once") : std::to_string(count) + " times";
  };
  const std::string reason = " (" + Error::posix(report.lastError, "").localizedDescription + ")";
  const std::string watcher = "the watcher process of an earlier host ";
  if (report.stopsSent == 0 && report.stopsFailed == 0) return watcher + "has not sent the stop";
  if (report.stopsSent == 0) return watcher + "could not send the stop" + reason;
  const std::string sent = watcher + "has sent the stop " + times(report.stopsSent);
  return report.stopsFailed == 0 ? sent : sent + " and failed " + times(report.stopsFailed) + reason;
}

std::optional<WatchReport> lastWatch(const std::string& line, const std::string& records) {
  return report(line, records, WatcherMail::report);
}

std::optional<WatchReport> takeLineFromWatcher(const std::string& line, const std::string& records) {
  return report(line, records, WatcherMail::handOver);
}

void forgetWatch(const std::string& line, const std::string& records) {
  unlink(detail::recordPath(line, records).c_str());
}

}  // namespace tarsil
