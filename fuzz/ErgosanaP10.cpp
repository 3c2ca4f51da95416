#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"

#include <cstdint>
#include <memory>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/codec/BinaryDecimalHex.hpp"

using namespace tarsil;

namespace {

/// Hears the load, so that its fields are read.
class Host : public KivStressPortDelegate {
 public:
  void onReceivedErgometerPowerWithPower(float) override {}
  void onReceivedErgometerRpmWithRpm(float) override {}
  void onReceivedBPWithSysBP(float, float, std::int64_t) override { expect(false); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto ergometer = std::make_shared<ErgosanaP10>();
  ergometer->kiv_delegate = std::make_shared<Host>();
  receiveAll({data, size}, [&](ByteView chunk) {
    const auto text = BinaryDecimalHex::getDataForString(chunk);
    if (!text) return;
    try {
      ergometer->processReply(*text);
    } catch (const ProcessStopped&) {
      // A load may have emptied the text before its pressures were found missing.
      expect(ergometer->result.contains('\r') || ergometer->isBPCommand);
      throw;
    }
    // A load that was reported took its text with it.
    if (ergometer->result.contains('\r')) {
      expect(!ergometer->result.contains('B'));
      expect(!ergometer->result.contains('n'));
    }
  });
  return 0;
}
