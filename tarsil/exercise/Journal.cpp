#include "tarsil/exercise/Journal.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <tuple>
#include <utility>

#include "tarsil/exercise/detail/FlatJson.hpp"
#include "tarsil/exercise/detail/eventFields.hpp"

namespace tarsil {
namespace {

constexpr int closed = -1;
/// What the first line says that the file is, and in which form.
constexpr const char* formatKey = "tarsil-journal";
constexpr std::int64_t format = 1;
constexpr const char* beganKey = "began";

std::string headLine(const JournalHead& head) {
  detail::FlatJsonWriter writer;
  writer.add(formatKey, format);
  const auto began = std::chrono::duration_cast<std::chrono::milliseconds>(head.began.time_since_epoch());
  writer.add(beganKey, std::int64_t{began.count()});
  for (const auto& [key, value] : head.facts) writer.add(key, value);
  return writer.line();
}

std::optional<JournalHead> readHead(std::string_view line) {
  auto object = detail::readFlatJson(line);
  if (!object || object->integer(formatKey) != format) return std::nullopt;
  const auto began = object->integer(beganKey);
  if (!began) return std::nullopt;
  JournalHead head{.began = std::chrono::system_clock::time_point(std::chrono::milliseconds(*began))};
  for (const auto& [key, value] : object->texts()) head.facts.emplace(key, value);
  return head;
}

}  // namespace

JournalWriter::JournalWriter(std::filesystem::path path, const JournalHead& head, Clock::Instant start)
    : path_(std::move(path)),
      start_(start),
      descriptor_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
  const auto check = [this](const char* deed, int error) {
    if (error == 0) return;
    if (descriptor_ != closed) ::close(descriptor_);
    throw JournalError(std::string("cannot ") + deed + " " + path_.string() + ": " +
                       std::generic_category().message(error));
  };
  check("create", descriptor_ < 0 ? errno : 0);
  check("write", append(headLine(head)));
}

JournalWriter::~JournalWriter() {
  if (descriptor_ != closed) ::close(descriptor_);
}

void JournalWriter::write(const Event& event) {
  if (descriptor_ == closed) return;
  if (const int error = append(journalLine(event, event.at - start_))) giveUp(error);
}

int JournalWriter::append(std::string_view line) {
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  size_ += line.size();
  return 0;
}

void JournalWriter::giveUp(int error) {
  // Half a line would have to be guessed at.
  std::ignore = ::ftruncate(descriptor_, static_cast<off_t>(size_));
  ::close(std::exchange(descriptor_, closed));
  failure_ = "cannot write " + path_.string() + ": " + std::generic_category().message(error);
  if (onFailure) onFailure(*failure_);
}

std::string journalLine(const Event& event, Duration at) {
  detail::FlatJsonWriter writer;
  writer.addSeconds("t", at);
  writer.add("source", std::string_view(name(event.source)));
  detail::writeFields(event.what, writer);
  return writer.line();
}

std::optional<Journal> readJournal(std::string_view text) {
  Journal journal;
  std::size_t number = 0;
  bool hasHead = false;
  while (!text.empty()) {
    ++number;
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
      journal.isTorn = true;
      break;
    }
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (!hasHead) {
      auto head = readHead(line);
      if (!head) return std::nullopt;
      journal.head = std::move(*head);
      hasHead = true;
    } else if (auto event = detail::readEvent(line)) {
      journal.events.push_back(std::move(*event));
    } else {
      journal.unreadableLines.push_back(number);
    }
  }
  if (!hasHead) return std::nullopt;
  return journal;
}

}  // namespace tarsil
