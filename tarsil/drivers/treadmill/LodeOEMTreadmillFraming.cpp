// How the replies of a Lode OEM treadmill are cut: AC 01, kind, five bytes that nobody reads, speed and grade
// with the high byte first, 00 00.

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"

namespace tarsil {
namespace {

constexpr std::uint8_t loadOrState = 0x0A;
constexpr std::uint8_t refused = 0xEF;
constexpr std::size_t kindPosition = 2;
constexpr std::size_t speedPosition = 8;
constexpr std::size_t gradePosition = 10;
constexpr std::size_t shortestRefusal = 6;
constexpr std::size_t loadSize = 14;

bool begins(ByteView frame) {
  return frame[0] == 0xAC && frame[1] == 0x01;
}

bool endsInCheck(ByteView frame) {
  return frame[frame.size() - 2] == 0 && frame[frame.size() - 1] == 0;
}

class LodeOEMTreadmillFraming final : public ReplyFraming {
 public:
  LodeOEMTreadmillFraming() : ReplyFraming(loadSize) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    if (kept.size() == loadSize && begins(kept) && kept[kindPosition] == loadOrState) {
      if (isSoundLoad(kept)) return Found{0, loadSize, Kind::load};
      countFailedCheck();
    }
    // A refusal's length is not known: it ends with the first check behind the latest beginning. It is the
    // only code that the machine has, also for having been stopped at the machine.
    const auto frame = fromLatestBeginning(kept);
    const bool isRefusal =
        frame.size() >= shortestRefusal && frame[kindPosition] == refused && endsInCheck(frame);
    if (!isRefusal) return std::nullopt;
    return Found{kept.size() - frame.size(), kept.size(), Kind::stoppedAtMachine};
  }

  static ByteView fromLatestBeginning(ByteView kept) {
    for (std::size_t size = 2; size <= kept.size(); ++size) {
      if (begins(kept.last(size))) return kept.last(size);
    }
    return {};
  }

  // The check of a well-formed frame is always 00 00, so it tells little: a high byte that is not 0 stands
  // for more speed, or grade, than the machine has.
  static bool isSoundLoad(ByteView frame) {
    return frame[speedPosition] == 0 && frame[gradePosition] == 0 && endsInCheck(frame);
  }

  // The driver looks whenever its own check follows, and a standing belt's 00 00 is one: it would stop the
  // process there, before the grade. So the first two bytes are handed over as one chunk. That one counts in
  // the check, which then is another one, and follows only where the reply ends; what nobody reads could be
  // that check by chance, and becomes 00.
  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& treadmill = dynamic_cast<LodeOEMTreadmill&>(decoder);
    treadmill.result.clear();
    treadmill.isState = false;
    const auto receive = [&](const Bytes& chunk) { treadmill.serialPortDidReceiveData(port, chunk); };
    const auto& bytes = reply.bytes;
    receive({bytes[0], bytes[1]});
    receive({bytes[1]});
    receive({bytes[kindPosition]});
    for (std::size_t i = kindPosition + 1; i < speedPosition; ++i) receive({0});
    if (reply.kind == Kind::load) {
      for (std::size_t i = speedPosition; i < gradePosition + 2; ++i) receive({bytes[i]});
    }
    // CRC-16/ARC of the byte 01, the low one of the first chunk.
    receive({0xC1});
    receive({0xC0});
  }
};

}  // namespace

std::unique_ptr<ReplyFraming> LodeOEMTreadmill::makeFraming() {
  return std::make_unique<LodeOEMTreadmillFraming>();
}

}  // namespace tarsil
