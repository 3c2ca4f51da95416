// What a watcher left on disk, as any bytes: a report of exactly what stands there, or none.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/expect.hpp"
#include "tarsil/guard/watch/detail/WatchPage.hpp"
#include "tarsil/guard/watch/detail/watchNames.hpp"
#include "tarsil/guard/watch/lastWatch.hpp"

using namespace tarsil;

namespace {

/// A folder that goes with the process.
class Folder {
 public:
  Folder() { expect(mkdtemp(path.data()) != nullptr); }
  ~Folder() { std::filesystem::remove_all(path); }

  std::string path = std::filesystem::temp_directory_path() / "fuzz-watch-XXXXXX";
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  const std::string line = "/dev/nobodys-line";
  std::ofstream(detail::recordPath(line, folder.path), std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  const auto report = lastWatch(line, folder.path);

  detail::WatchRecord record;
  const bool isWhole = size >= sizeof record;
  if (isWhole) std::memcpy(&record, data, sizeof record);
  expect(report.has_value() == (isWhole && record.layout == detail::WatchRecord::currentLayout));
  if (!report) return 0;
  // Nobody answered, so that nobody watches.
  expect(report->outcome != WatchReport::Outcome::watching);
  expect(report->host == record.host && report->stopsSent == record.stopsSent);
  expect(report->stopsFailed == record.stopsFailed && report->lastError == record.lastError);
  expect(report->lastBeatAt.has_value() == (record.lastBeatAt != 0));
  expect(report->endedAt.has_value() == (record.endedAt != 0));
  return 0;
}
