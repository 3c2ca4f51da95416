// How the replies of a P10 ergometer are cut: a letter, three digits, carriage return.

#include <algorithm>
#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/ergometer/P10Ergometer.hpp"

namespace tarsil {
namespace {

constexpr std::size_t replySize = 5;
constexpr std::size_t longestLine = 16;

std::optional<ReplyFraming::Kind> kindOf(std::uint8_t letter) {
  switch (letter) {
    case 'B':
      return ReplyFraming::Kind::load;
    case 'n':
      return ReplyFraming::Kind::pedalRate;
    case 'O':
    case 'U':
      return ReplyFraming::Kind::pressure;
    default:
      return std::nullopt;
  }
}

bool areDigits(ByteView bytes) {
  return std::all_of(bytes.begin(), bytes.end(),
                     [](std::uint8_t byte) { return byte >= '0' && byte <= '9'; });
}

bool isPrintable(ByteView bytes) {
  return std::all_of(bytes.begin(), bytes.end(),
                     [](std::uint8_t byte) { return byte >= ' ' && byte <= '~'; });
}

class P10Framing final : public ReplyFraming {
 public:
  // One more than a line may have: what is that long has lost its beginning.
  P10Framing() : ReplyFraming(longestLine + 1) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    if (kept.back() != '\r') return std::nullopt;
    const std::size_t end = kept.size();
    if (end >= replySize) {
      const ByteView reply = kept.last(replySize);
      const auto kind = kindOf(reply[0]);
      // Three digits, no fewer: a field that has lost one reads as another value, or stops the driver.
      if (kind && areDigits(reply.subspan(1, 3))) return Found{end - replySize, end, *kind};
    }
    if (kindOf(kept.front())) {
      countFailedCheck();
      return std::nullopt;
    }
    const bool isLine = end <= longestLine && isPrintable(kept.first(end - 1));
    return isLine ? std::optional(Found{0, end, Kind::other}) : std::nullopt;
  }

  // Fields are read from the start of all text that the driver has, and a measurement that it has been told
  // of must come with the next reply: neither is left from before. A diastolic is: it is asked for when a
  // measurement begins, and the systolic when it has ended. A systolic waits for the very next reply only;
  // one whose diastolic was lost would meet that of the next measurement, and so would each one after it.
  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& ergometer = dynamic_cast<P10Ergometer&>(decoder);
    ergometer.result.clear();
    ergometer.isBPCommand = false;
    if (reply.bytes[0] != 'U') ergometer.p10SBP.reset();
    ergometer.serialPortDidReceiveData(port, reply.bytes);
  }
};

}  // namespace

std::unique_ptr<ReplyFraming> P10Ergometer::makeFraming() {
  return std::make_unique<P10Framing>();
}

}  // namespace tarsil
