// A journal of any bytes: every line of it is counted, and what could be read has words and reads back the
// same when it is written again.

#include "tarsil/guard/Journal.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tarsil/guard/eventText.hpp"

using namespace tarsil;

namespace {

std::string lineOf(const Event& event) {
  return journalLine(event, event.at - Clock::Instant());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto journal = readJournal(text);
  if (!journal) return 0;
  const auto lineEnds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  expect(1 + journal->events.size() + journal->unreadableLines.size() == lineEnds);
  expect(journal->isTorn == !text.ends_with('\n'));

  std::string again(text.substr(0, text.find('\n') + 1));
  for (const Event& event : journal->events) {
    textOf(event, StressDeviceType::Treadmill);
    textOf(event, StressDeviceType::Ergometer);
    again += lineOf(event);
  }
  const auto second = readJournal(again);
  expect(second && second->unreadableLines.empty() && !second->isTorn);
  expect(second->events.size() == journal->events.size());
  for (std::size_t i = 0; i < second->events.size(); ++i) {
    expect(lineOf(second->events[i]) == lineOf(journal->events[i]));
  }
  return 0;
}
