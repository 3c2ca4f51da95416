#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/support/utf8.hpp"

using namespace tarsil;

namespace {

class Host : public KivStressPortDelegate {
 public:
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    expect(-1 <= SpO2 && SpO2 <= 100 && SpO2 == std::floor(SpO2));
    expect(status == 1);
    ++reports;
  }
  int reports = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto host = std::make_shared<Host>();
  std::string befoSpO2Value;
  receiveAll({data, size}, [&](ByteView chunk) {
    const std::string hex = BinaryDecimalHex::hexStringFromData(chunk);
    const bool isFrame = utf8::characters(hex, 8, 4) == "2395";
    const std::string before = befoSpO2Value;
    const int reports = host->reports;
    try {
      MEDXINGFrame::report(chunk, befoSpO2Value, host);
    } catch (const ProcessStopped&) {
      expect(false);
    }
    expect(isFrame || befoSpO2Value == before);
    expect((host->reports > reports) == (befoSpO2Value != before));
    if (isFrame && hex.size() >= 18) expect(befoSpO2Value == hex.substr(16, 2));
  });
  return 0;
}
