#include "tarsil/drivers/vitals/BPDevice.hpp"

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
  void onReceivedBPWithSysBP(float, float, std::int64_t status) override {
    expect(0 <= status && status <= 4);
  }
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    expect(0 <= SpO2 && SpO2 <= 9999);
    expect(status == 1);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto tango = std::make_shared<BPDevice>();
  tango->kiv_delegate = std::make_shared<Host>();
  std::string whole;
  receiveAll({data, size}, [&](ByteView chunk) {
    const auto text = BinaryDecimalHex::getDataForString(chunk);
    if (!text) return;
    // Commands are told apart by how much came before, so that every state is met.
    if (whole.size() % 5 == 1) tango->requestBP();
    if (whole.size() % 5 == 2) tango->type = Tango_Type::SPO2;
    whole += *text;
    try {
      tango->processReply(chunk);
    } catch (const ProcessStopped&) {
      // A record of fewer than three groups has at most one end of a group.
      const std::size_t end = whole.find("\n\r");
      expect(end == std::string::npos || whole.find("\n\r", end + 2) == std::string::npos);
      throw;
    }
    if (tango->taskJoint.empty()) whole.clear();
    expect(tango->taskJoint == utf8::lastCharacters(whole, 30));
  });
  return 0;
}
