#include "tarsil/guard/Journal.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <tuple>
#include <utility>

#include "tarsil/guard/detail/FlatJson.hpp"
#include "tarsil/guard/detail/eventFields.hpp"
#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr int closed = -1;
/// A file that takes nothing for longer than this is in trouble.
constexpr Duration longestPause = 1s;
/// So long lines are gathered before they are written together.
constexpr Duration gathering = 30ms;
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
  // The clock of the day reaches as far, and counts finer.
  constexpr auto longest =
      std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::duration::max()).count();
  if (!began || *began < -longest || *began > longest) return std::nullopt;
  JournalHead head{.began = std::chrono::system_clock::time_point(std::chrono::milliseconds(*began))};
  for (const auto& [key, value] : object->texts()) head.facts.emplace(key, value);
  return head;
}

}  // namespace

/// The file, and the lines that it has not taken yet. Whoever finds lines and nobody writing writes them.
class JournalWriter::File : public std::enable_shared_from_this<File> {
 public:
  explicit File(std::filesystem::path path);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void begin(std::string_view head);
  void add(const std::string& line);
  void writePending();
  void flush();
  std::optional<std::string> trouble() const;

 private:
  /// 0, or the error's number.
  int append(std::string_view lines);
  void giveUp(int error);
  std::string failureText(const char* deed, int error) const;

  const std::filesystem::path path_;
  /// Touched by whoever writes, alone, like the size of the whole lines in it.
  int descriptor_;
  std::size_t size_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable wrote_;
  std::string pending_;
  bool isQueued_ = false;
  std::shared_ptr<DispatchSource> gatherer_;
  /// Somebody writes.
  std::optional<Clock::Instant> busySince_;
  std::optional<std::string> failure_;
};

JournalWriter::File::File(std::filesystem::path path)
    : path_(std::move(path)),
      descriptor_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
  if (descriptor_ == closed) throw JournalError(failureText("create", errno));
}

JournalWriter::File::~File() {
  if (gatherer_) gatherer_->cancel();
  if (descriptor_ != closed) ::close(descriptor_);
}

std::string JournalWriter::File::failureText(const char* deed, int error) const {
  return std::string("cannot ") + deed + " " + path_.string() + ": " + std::generic_category().message(error);
}

void JournalWriter::File::begin(std::string_view head) {
  const int error = append(head);
  if (error == 0) return;
  ::unlink(path_.c_str());  // it is no journal yet
  throw JournalError(failureText("write", error));
}

void JournalWriter::File::add(const std::string& line) {
  const std::lock_guard lock(mutex_);
  if (failure_) return;
  pending_ += line;
  if (isQueued_ || busySince_) return;
  isQueued_ = true;
  // Waking a thread costs more than all else here: a poll, its bytes, the reply and its reading wake one
  // once.
  gatherer_ = DispatchSource::timer(gathering, longestPause, Duration::zero(), DispatchQueue::global());
  gatherer_->setEventHandler([weak = weak_from_this(), weakSource = std::weak_ptr(gatherer_)] {
    if (const auto source = weakSource.lock()) source->cancel();
    if (const auto self = weak.lock()) self->writePending();
  });
  gatherer_->resume();
}

void JournalWriter::File::writePending() {
  std::unique_lock lock(mutex_);
  isQueued_ = false;
  while (!busySince_ && !pending_.empty()) {
    const std::string lines = std::exchange(pending_, {});
    busySince_ = Clock::now();
    lock.unlock();
    const int error = append(lines);
    lock.lock();
    busySince_.reset();
    if (error != 0) giveUp(error);
    wrote_.notify_all();
  }
}

void JournalWriter::File::flush() {
  writePending();
  std::unique_lock lock(mutex_);
  wrote_.wait_for(lock, longestPause, [this] { return !busySince_ && pending_.empty(); });
}

std::optional<std::string> JournalWriter::File::trouble() const {
  const std::lock_guard lock(mutex_);
  if (failure_) return failure_;
  if (busySince_ && Clock::now() - *busySince_ > longestPause)
    return path_.string() + " takes nothing just now";
  return std::nullopt;
}

int JournalWriter::File::append(std::string_view lines) {
  for (std::string_view rest = lines; !rest.empty();) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      const std::string_view written = lines.substr(0, lines.size() - rest.size());
      size_ += written.rfind('\n') + 1;  // none: npos, and so 0
      return error;
    }
  }
  size_ += lines.size();
  return 0;
}

void JournalWriter::File::giveUp(int error) {
  // Half a line would have to be guessed at.
  std::ignore = ::ftruncate(descriptor_, static_cast<off_t>(size_));
  ::close(std::exchange(descriptor_, closed));
  pending_.clear();
  failure_ = failureText("write", error);
}

JournalWriter::JournalWriter(const std::filesystem::path& path, const JournalHead& head, Clock::Instant start)
    : start_(start), file_(std::make_shared<File>(path)) {
  file_->begin(headLine(head));
}

JournalWriter::~JournalWriter() {
  flush();
}

const std::filesystem::path& JournalWriter::path() const {
  return file_->path();
}

void JournalWriter::write(const Event& event) {
  file_->add(journalLine(event, event.at - start_));
}

void JournalWriter::flush() {
  file_->flush();
}

std::optional<std::string> JournalWriter::trouble() const {
  return file_->trouble();
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
