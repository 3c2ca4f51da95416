// How a TrackMaster's replies are cut: single codes, and speed and grade of five bytes each.

#include <algorithm>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"

namespace tarsil {
namespace {

constexpr std::uint8_t beyondLimit = 0xBE;
constexpr std::uint8_t disabled = 0xBF;
constexpr std::uint8_t speedReply = 0xD1;
constexpr std::uint8_t gradeReply = 0xD2;
constexpr std::size_t halfSize = 5;
constexpr std::size_t loadSize = 2 * halfSize;

bool isHalf(ByteView bytes, std::uint8_t code) {
  return bytes[0] == code && std::all_of(bytes.begin() + 1, bytes.end(),
                                         [](std::uint8_t byte) { return byte >= '0' && byte <= '9'; });
}

class TrackMasterFraming final : public ReplyFraming {
 public:
  TrackMasterFraming() : ReplyFraming(loadSize) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    const std::size_t end = kept.size();
    switch (kept.back()) {
      case 0xB1:
      case 0xB2:
      case 0xB3:
      case 0xB4:
        return Found{end - 1, end, Kind::acknowledgement};
      case beyondLimit:
        return Found{end - 1, end, Kind::refusal};
      case disabled:
        return Found{end - 1, end, Kind::stoppedAtMachine};
      default:
        break;
    }
    if (end < loadSize || !isHalf(kept.last(halfSize), gradeReply)) return std::nullopt;
    // A grade without its speed, or after another answer than its own speed, is half a load: the driver would
    // keep it for one that is still to come.
    if (!isHalf(kept.last(loadSize).first(halfSize), speedReply)) return std::nullopt;
    return Found{end - loadSize, end, Kind::load};
  }

  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& treadmill = dynamic_cast<TrackMaster&>(decoder);
    treadmill.result.clear();
    treadmill.serialPortDidReceiveData(port, reply.bytes);
  }
};

}  // namespace

std::unique_ptr<ReplyFraming> TrackMaster::makeFraming() {
  return std::make_unique<TrackMasterFraming>();
}

}  // namespace tarsil
