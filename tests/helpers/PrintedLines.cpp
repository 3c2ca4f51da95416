#include "tests/helpers/PrintedLines.hpp"

#include <mutex>
#include <string_view>

namespace tarsil {

struct PrintedLines::Record {
  std::mutex mutex;
  std::vector<std::string> fixed;
  std::vector<std::string> diagnostic;
};

PrintedLines::PrintedLines()
    : record_(std::make_shared<Record>()),
      hooks_({.print = [record = record_](std::string_view text, PrintedText kind) {
        const std::lock_guard lock(record->mutex);
        (kind == PrintedText::fixed ? record->fixed : record->diagnostic).emplace_back(text);
      }}) {}

PrintedLines::~PrintedLines() = default;

std::vector<std::string> PrintedLines::fixed() const {
  const std::lock_guard lock(record_->mutex);
  return record_->fixed;
}

std::vector<std::string> PrintedLines::diagnostic() const {
  const std::lock_guard lock(record_->mutex);
  return record_->diagnostic;
}

}  // namespace tarsil
