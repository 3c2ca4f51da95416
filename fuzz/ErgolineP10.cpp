#include "tarsil/drivers/ergometer/ErgolineP10.hpp"

#include <cstdint>
#include <memory>
#include <string>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/support/utf8.hpp"

using namespace tarsil;

namespace {

/// Hears everything, so that every field is read.
class Host : public KivStressPortDelegate {
 public:
  void onReceivedErgometerPowerWithPower(float) override {}
  void onReceivedErgometerRpmWithRpm(float) override {}
  void onReceivedBPWithSysBP(float, float, std::int64_t status) override { expect(status == 0); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  StressECGDeviceManager::share().delegate = std::make_shared<Host>();
  const auto ergometer = std::make_shared<ErgolineP10>();
  std::string whole;
  receiveAll({data, size}, [&](ByteView chunk) {
    const auto text = BinaryDecimalHex::getDataForString(chunk);
    if (!text) return;
    whole += *text;
    // The facts hold also when the reply stops the process.
    try {
      ergometer->processReply(*text);
    } catch (const ProcessStopped&) {
      expect(ergometer->result.contains('\r'));
      throw;
    }
    for (const char marker : {'\r', 'B', 'n', 'O', 'U'})
      expect(ergometer->result.contains(marker) == (whole.find(marker) != std::string::npos));
    const auto field = utf8::characters(whole, 1, 3);
    expect(ergometer->result.field() == (field.empty() ? "范围越界" : field));
    expect(!ergometer->isBPCommand || !ergometer->p10SBP);
  });
  StressECGDeviceManager::share().delegate = nullptr;
  return 0;
}
