#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/codec/CRC16.hpp"
#include "tarsil/support/hexText.hpp"

using namespace tarsil;

namespace {

/// Whether the whole list is a reply: the driver must come to the same answer without it.
bool isAccepted(const std::vector<std::string>& entries) {
  const std::size_t count = entries.size();
  if (count < 6) return false;
  std::vector<std::uint16_t> values;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    if (entries[i].size() == 2)
      values.push_back(static_cast<std::uint16_t>(BinaryDecimalHex::getDecimalToHex(entries[i])));
  }
  return CRC16::calculateCRC(values) == std::array{entries[count - 2], entries[count - 1]};
}

struct Host : KivStressPortDelegate {
  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    expect(speed >= 0 && grade >= 0);
    ++loads;
  }
  void onErrorWithCode(const std::string& code, const std::string&) override {
    expect(code != "80");
    ++errors;
  }
  int loads = 0;
  int errors = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto host = std::make_shared<Host>();
  const auto treadmill = std::make_shared<LodeTreadmill>();
  treadmill->kiv_delegate = host;
  std::vector<std::string> whole;
  receiveAll({data, size}, [&](ByteView chunk) {
    whole.push_back(upperHexText(chunk));
    const bool accepted = isAccepted(whole);
    const int callsBefore = host->loads + host->errors;
    try {
      treadmill->processReply(chunk);
    } catch (const ProcessStopped&) {
      expect(accepted && whole[2] == "80" && whole[1] == "44" && whole.size() == 15);
      throw;
    }
    const int calls = host->loads + host->errors - callsBefore;
    const bool bothKnown = treadmill->requestSpeed != -1.0F && treadmill->requestGrade != -1.0F;
    expect(calls == (accepted && (whole[2] != "80" || bothKnown) ? 1 : 0));
    const bool staysInFront = accepted && whole[2] == "80" && whole[1] == "44";
    expect(!staysInFront || whole.size() != 15);
    if (accepted && !staysInFront) whole.clear();
    expect(treadmill->result.count() == whole.size());
  });
  return 0;
}
