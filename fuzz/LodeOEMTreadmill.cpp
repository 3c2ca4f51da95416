#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"

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

enum class Verdict { ignored, accepted, stops };

/// What the whole list is: the driver must come to the same answer without it.
Verdict verdictOn(const std::vector<std::string>& entries) {
  const std::size_t count = entries.size();
  if (count < 6) return Verdict::ignored;
  std::vector<std::uint16_t> values;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    if (entries[i].empty() || entries[i].size() == 2) continue;
    const std::int64_t value = BinaryDecimalHex::getDecimalToHex(entries[i]);
    if (value > 0xFFFF) return Verdict::stops;
    values.push_back(static_cast<std::uint16_t>(value));
  }
  const bool fits = CRC16::calculateCRC(values) == std::array{entries[count - 2], entries[count - 1]};
  return fits ? Verdict::accepted : Verdict::ignored;
}

struct Host : KivStressPortDelegate {
  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    expect(speed >= 0 && grade >= 0);
    ++loads;
  }
  void onErrorWithCode(const std::string&, const std::string&) override { ++errors; }
  void deviceIsReadyWithIsReady(bool isReady) override {
    expect(isReady);
    ++readies;
  }
  int loads = 0;
  int errors = 0;
  int readies = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto host = std::make_shared<Host>();
  const auto treadmill = std::make_shared<LodeOEMTreadmill>();
  treadmill->kiv_delegate = host;
  treadmill->isState = size % 2 == 0;
  std::vector<std::string> whole;
  Host expected;
  receiveAll({data, size}, [&](ByteView chunk) {
    whole.push_back(upperHexText(chunk));
    const Verdict verdict = verdictOn(whole);
    const bool wasAsked = treadmill->isState;
    const bool isLoad = verdict == Verdict::accepted && whole[2] == "0A" && !wasAsked;
    try {
      treadmill->processReply(chunk);
    } catch (const ProcessStopped&) {
      expect(verdict == Verdict::stops || (isLoad && whole.size() < 12));
      throw;
    }
    expect(verdict != Verdict::stops);
    if (verdict == Verdict::accepted) {
      expected.errors += whole[2] == "EF" ? 1 : 0;
      expected.readies += whole[2] == "0A" && wasAsked ? 1 : 0;
      expected.loads += isLoad ? 1 : 0;
    }
    expect(host->errors == expected.errors && host->readies == expected.readies &&
           host->loads == expected.loads);
    expect(treadmill->result.count() == whole.size());
  });
  return 0;
}
