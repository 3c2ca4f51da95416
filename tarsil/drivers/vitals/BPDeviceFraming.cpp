// How a Tango monitor's replies are cut: groups that end in line feed and carriage return.

#include <string_view>

#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/drivers/vitals/BPDevice.hpp"

namespace tarsil {
namespace {

constexpr std::string_view initialisationEcho = "INITR\n\r00000\n\r00000\n\r00000\n\r";
// 9 a digit, A a capital letter, + either sign. The record's number may have one digit more.
constexpr std::string_view record = "999A\n\r+9999\n\r+9999\n\r+9999\n\r";
constexpr std::size_t longest = record.size() + 1;

bool isDigit(std::uint8_t byte) {
  return byte >= '0' && byte <= '9';
}

bool matches(std::uint8_t byte, char pattern) {
  if (pattern == '9') return isDigit(byte);
  if (pattern == 'A') return byte >= 'A' && byte <= 'Z';
  if (pattern == '+') return byte == '+' || byte == '-';
  return byte == static_cast<std::uint8_t>(pattern);
}

bool endsWithRecord(ByteView kept) {
  if (kept.size() < record.size()) return false;
  const ByteView end = kept.last(record.size());
  for (std::size_t i = 0; i < record.size(); ++i) {
    if (!matches(end[i], record[i])) return false;
  }
  return true;
}

bool endsWithEcho(ByteView kept) {
  if (kept.size() < initialisationEcho.size()) return false;
  const ByteView end = kept.last(initialisationEcho.size());
  return std::string_view(reinterpret_cast<const char*>(end.data()), end.size()) == initialisationEcho;
}

class BPDeviceFraming final : public ReplyFraming {
 public:
  BPDeviceFraming() : ReplyFraming(longest) {}

 private:
  std::optional<Found> find(ByteView kept) override {
    const std::size_t end = kept.size();
    if (endsWithEcho(kept)) return Found{end - initialisationEcho.size(), end, Kind::acknowledgement};
    if (!endsWithRecord(kept)) return std::nullopt;
    const bool hasFourthDigit = end > record.size() && isDigit(kept[end - record.size() - 1]);
    return Found{end - record.size() - (hasFourthDigit ? 1 : 0), end, Kind::pressure};
  }

  void handOver(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const override {
    auto& monitor = dynamic_cast<BPDevice&>(decoder);
    monitor.taskJoint.clear();
    monitor.serialPortDidReceiveData(port, reply.bytes);
  }
};

}  // namespace

std::unique_ptr<ReplyFraming> BPDevice::makeFraming() {
  return std::make_unique<BPDeviceFraming>();
}

}  // namespace tarsil
