// How a Lode treadmill's replies are cut: STX, command, status, data length, data, two check bytes.

#include "tarsil/codec/Crc16Register.hpp"
#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/support/hexText.hpp"

namespace tarsil {
namespace {

constexpr std::uint8_t STX = 0x02;
constexpr std::uint8_t accepted = 0x80;
constexpr std::size_t headerSize = 4;
constexpr std::size_t checkSize = 2;
constexpr std::size_t shortest = headerSize + checkSize;
constexpr std::size_t longest = headerSize + 0xFF + checkSize;

enum Code : std::uint8_t {
  START = 0x01,
  STATUS = 0x02,
  STOP = 0x03,
  SET_SPEED = 0x05,
  SET_ELEVATION = 0x07,
  REAL_SPEED = 0x08,
  TRIGGER_STOP = 0x09,
  REAL_ELEVATION = 0x0A,
  RESET = 0x0B,
  START_BPM = 0x41,
  ABORT_BPM = 0x43,
};

/// The driver's own test, which it makes after every byte from the sixth on: so a frame in which it holds
/// before the end is none that the driver can read. The check's low byte is among the bytes that it is taken
/// over.
bool isSound(ByteView frame) {
  Crc16Register crc;
  for (std::size_t size = 1; size <= frame.size(); ++size) {
    const bool holds =
        size >= shortest && frame[size - 2] == (crc.value() & 0xFF) && frame[size - 1] == crc.value() >> 8;
    if (holds) return size == frame.size();
    crc.add(frame[size - 1]);
  }
  return false;
}

ReplyFraming::Kind refusalKind(std::uint8_t code, std::uint8_t status) {
  // Emergency stop active, or no session active: the machine's own stop ends the session.
  const bool isStopped = (code == START && status == 0x02) || (code == RESET && status == 0x02) ||
                         ((code == SET_SPEED || code == SET_ELEVATION) && (status == 0x02 || status == 0x08));
  return isStopped ? ReplyFraming::Kind::stoppedAtMachine : ReplyFraming::Kind::refusal;
}

ReplyFraming::Kind kindOf(ByteView frame) {
  const std::uint8_t code = frame[1];
  const std::uint8_t status = frame[2];
  if (status != accepted) return refusalKind(code, status);
  switch (code) {
    case REAL_SPEED:
    case REAL_ELEVATION:
      return ReplyFraming::Kind::load;
    case STATUS:
      return ReplyFraming::Kind::readiness;
    case START:
    case STOP:
    case SET_SPEED:
    case SET_ELEVATION:
    case TRIGGER_STOP:
    case RESET:
    case START_BPM:
    case ABORT_BPM:
      return ReplyFraming::Kind::acknowledgement;
    default:
      // A pressure above all: undecoded, it stays in front of every later reply, and the driver is deaf.
      return ReplyFraming::Kind::other;
  }
}

class LodeTreadmillFraming final : public ReplyFraming {
 public:
  LodeTreadmillFraming() : ReplyFraming(longest) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    // The latest beginning counts: one before it is the rest of a frame that was hit.
    for (std::size_t size = shortest; size <= kept.size(); ++size) {
      const ByteView frame = kept.last(size);
      if (frame[0] != STX || frame[3] != size - shortest) continue;
      if (isSound(frame)) return Found{kept.size() - size, kept.size(), kindOf(frame)};
      countFailedCheck();
    }
    return std::nullopt;
  }

  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& treadmill = dynamic_cast<LodeTreadmill&>(decoder);
    const std::uint8_t code = reply.bytes[1];
    treadmill.result.clear();
    // The words for a refusal are those of the command that was refused.
    treadmill.currentCommand = LodeTreadmill::commandFromRawValue(upperHexText(ByteView(&code, 1)));
    for (const std::uint8_t byte : reply.bytes) treadmill.serialPortDidReceiveData(port, {byte});
    if (code == REAL_SPEED) return;
    // Behind the grade the pair was reported; nothing but a new pair is reported again.
    treadmill.requestSpeed = -1.0F;
    treadmill.requestGrade = -1.0F;
  }
};

}  // namespace

std::unique_ptr<ReplyFraming> LodeTreadmill::makeFraming() {
  return std::make_unique<LodeTreadmillFraming>();
}

}  // namespace tarsil
