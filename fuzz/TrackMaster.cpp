#include "tarsil/drivers/treadmill/TrackMaster.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/log/FileManagerTool.hpp"
#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/support/ScopedOverride.hpp"
#include "tarsil/support/hexText.hpp"

using namespace tarsil;

namespace {

/// Where no log can be written.
class NoFolders : public UserFolders {
 public:
  std::string home() override { return "/dev/null"; }
  std::string documents() override { return "/dev/null"; }
};

struct Host : KivStressPortDelegate {
  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    // 999.9 miles per hour, 999.9 percent.
    expect(speed >= 0 && speed < 1600.0F);
    expect(grade >= 0 && grade < 1000.0F);
    ++calls;
  }
  void onErrorWithCode(const std::string& code, const std::string&) override {
    expect(code == "00");
    ++calls;
  }
  void successfully() override { ++calls; }
  int calls = 0;
};

bool isReplyCode(std::string_view code) {
  for (const std::string_view known : {"B1", "B2", "B3", "B4", "BE", "BF", "D1", "D2"}) {
    if (code == known) return true;
  }
  return false;
}

/// What the scan leaves of the text: from the first reply code at an even position on.
std::string fromFirstCode(const std::string& text) {
  for (std::size_t at = 0; at < text.size(); at += 2) {
    if (isReplyCode(std::string_view(text).substr(at, 2))) return text.substr(at);
  }
  return "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScopedOverride<UserFolders> folders(std::make_shared<NoFolders>());
  const auto host = std::make_shared<Host>();
  const auto treadmill = std::make_shared<TrackMaster>();
  treadmill->kiv_delegate = host;
  treadmill->isState = size % 4 == 1;
  treadmill->isStop = size % 4 == 2;
  receiveAll({data, size}, [&](ByteView chunk) {
    const std::string found = fromFirstCode(treadmill->result + upperHexText(chunk));
    const int callsBefore = host->calls;
    try {
      treadmill->processReply(chunk);
    } catch (const ProcessStopped&) {
      expect(found.empty() && treadmill->result.empty());
      throw;
    }
    expect(!found.empty());
    const std::size_t consumed = found.size() - treadmill->result.size();
    expect(found.substr(consumed) == treadmill->result);
    const bool isLoad = found.front() == 'D';
    expect(consumed == 0 || consumed == (isLoad ? 10U : 2U) || (isLoad && consumed == 20));
    expect(isLoad || (consumed == 2 && host->calls == callsBefore + 1));
    expect(!isLoad || found.size() >= 20 || (consumed == 0 && host->calls == callsBefore));
  });
  if (treadmill->fileTimer) treadmill->fileTimer->invalidate();
  FileManagerTool::share().clearTimer();
  return 0;
}
