// How a MEDXING oximeter's frames are cut: 23 95 at bytes 4 and 5, the saturation at byte 8.

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/vitals/MEDXINGPort.hpp"

namespace tarsil {
namespace {

constexpr std::size_t markPosition = 4;
constexpr std::size_t markSize = 2;
constexpr std::size_t shortest = 9;
constexpr std::size_t longest = 32;
constexpr std::size_t agreeingFrames = 3;

bool isMark(ByteView kept, std::size_t position) {
  return kept[position] == 0x23 && kept[position + 1] == 0x95;
}

/// A frame has no check and says nothing of its length, and one that has lost a byte would give the pulse for
/// the saturation. So its length is learnt, from marks at equal distances, and a frame counts when the next
/// one's mark comes exactly where it belongs: one frame late.
class MEDXINGFraming final : public ReplyFraming {
 public:
  MEDXINGFraming() : ReplyFraming(markPosition + agreeingFrames * longest + markSize) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    if (kept.size() < markSize || !isMark(kept, kept.size() - markSize)) return std::nullopt;
    const std::size_t mark = kept.size() - markSize;
    if (!length_ || !isMarkBefore(kept, mark, *length_)) {
      const auto learnt = learntLength(kept, mark);
      if (!learnt) return std::nullopt;
      length_ = learnt;
    }
    const std::size_t end = mark - markPosition;
    return Found{end - *length_, end, Kind::saturation};
  }

  static std::optional<std::size_t> learntLength(ByteView kept, std::size_t mark) {
    for (std::size_t length = shortest; length <= longest; ++length) {
      std::size_t frames = 0;
      while (frames < agreeingFrames && isMarkBefore(kept, mark - frames * length, length)) ++frames;
      if (frames == agreeingFrames) return length;
    }
    return std::nullopt;
  }

  /// Whether there is a mark that far before this one, with its frame's first bytes in front.
  static bool isMarkBefore(ByteView kept, std::size_t mark, std::size_t length) {
    return mark >= length + markPosition && isMark(kept, mark - length);
  }

  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& oximeter = dynamic_cast<MEDXINGPort&>(decoder);
    // An unchanged value of a living oximeter is news.
    oximeter.befoSpO2Value.clear();
    oximeter.serialPortDidReceiveData(port, reply.bytes);
  }

  /// Of a frame, once it is learnt.
  std::optional<std::size_t> length_;
};

}  // namespace

std::unique_ptr<ReplyFraming> MEDXINGPort::makeFraming() {
  return std::make_unique<MEDXINGFraming>();
}

}  // namespace tarsil
