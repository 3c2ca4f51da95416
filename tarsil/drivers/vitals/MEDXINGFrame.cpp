#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"

#include <cstddef>
#include <cstdint>

#include "tarsil/codec/BinaryDecimalHex.hpp"

namespace tarsil {
namespace {

constexpr std::size_t markPosition = 4;
constexpr std::uint8_t mark[] = {0x23, 0x95};
constexpr std::size_t saturationPosition = 8;
constexpr const char* outOfRange = "范围越界";
constexpr float noSaturation = -1.0F;
constexpr std::int64_t measured = 1;

bool isMeasurement(ByteView chunk) {
  return chunk.size() >= markPosition + 2 && chunk[markPosition] == mark[0] &&
         chunk[markPosition + 1] == mark[1];
}

}  // namespace

std::optional<MEDXINGFrame> MEDXINGFrame::parse(ByteView chunk) {
  if (!isMeasurement(chunk)) return std::nullopt;
  // A frame without a saturation byte still counts as a measurement, of none: a number would be taken for the
  // patient's.
  if (chunk.size() <= saturationPosition) return MEDXINGFrame{outOfRange, noSaturation};
  const ByteView saturation = chunk.subspan(saturationPosition, 1);
  const std::uint8_t percent = saturation.front();
  return MEDXINGFrame{BinaryDecimalHex::hexStringFromData(saturation),
                      percent > 100 ? noSaturation : static_cast<float>(percent)};
}

void MEDXINGFrame::report(ByteView chunk, std::string& befoSpO2Value, const KivStressPortDelegateRef& host) {
  const auto frame = parse(chunk);
  if (!frame || frame->saturationText == befoSpO2Value) return;
  befoSpO2Value = frame->saturationText;
  host.onReceivedSpO2WithSpO2(frame->saturation, measured);
}

}  // namespace tarsil
