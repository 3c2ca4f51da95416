// The page of a session whose journal holds any events: however wild its numbers and texts, it is made, of a
// size that a reader can open, and no text of a device or a person becomes a part of the page's own.

#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tools/tarsil/report/csvLine.hpp"
#include "tools/tarsil/report/reportPage.hpp"

using namespace tarsil;

namespace {

/// In front of the fuzzer's lines; the first byte chooses.
constexpr std::string_view heads[] = {
    R"({"tarsil-journal":1,"began":1709301909123,"model":"LodeTreadmill","reportsLoad":"yes","mass":"75",)"
    R"("protocol":"name Bruce\ndevice treadmill\nstage 3:00 2.7 10\nrecovery 2:00 1.6 0\n"})",
    R"({"tarsil-journal":1,"began":1709301909123,"model":"ErgolineK2.4P10","reportsLoad":"yes","mass":"-1e30",)"
    R"("protocol":"name Ramp\ndevice bicycle\nwarm-up 1:00 20\nramp 10:00 25 225\npressure every 1:00\n"})"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text =
      std::string(heads[data[0] % 2]) + "\n" + std::string(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto journal = readJournal(text);
  expect(journal.has_value());
  const cli::SessionRecord record(*journal);
  const std::string page = cli::reportPage(record);
  expect(page.size() < 1'000'000 + 100 * size);
  expect(page.find("<fuzz") == std::string::npos);
  for (const Event& event : journal->events) {
    const std::string line = cli::csvLine(event, event.at - Clock::Instant(), record.protocol().device);
    expect(line.ends_with('\n'));
  }
  return 0;
}
