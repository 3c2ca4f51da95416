// Every model's framing, fed in pieces, against a reader that looks at everything it ever received, and its
// driver behind it, which no reply may stop. The first byte chooses the model.

#include "tarsil/core/ReplyFraming.hpp"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "tarsil/codec/CRC16.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/station/standardCatalogue.hpp"

using namespace tarsil;
using namespace std::string_view_literals;

namespace {

/// In a pattern 9 is a digit, A a capital letter, + a sign and ? any byte.
bool fits(std::uint8_t byte, char pattern) {
  if (pattern == '9') return byte >= '0' && byte <= '9';
  if (pattern == 'A') return byte >= 'A' && byte <= 'Z';
  if (pattern == '+') return byte == '+' || byte == '-';
  return pattern == '?' || byte == static_cast<std::uint8_t>(pattern);
}

bool fits(ByteView bytes, std::string_view pattern) {
  if (bytes.size() != pattern.size()) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!fits(bytes[i], pattern[i])) return false;
  }
  return true;
}

/// The check over all bytes but the last.
bool endsInItsCheck(ByteView bytes) {
  const auto check = CRC16::calculateCRC(std::vector<std::uint16_t>(bytes.begin(), bytes.end() - 1));
  return std::stoi(check[0], nullptr, 16) == bytes[bytes.size() - 2] &&
         std::stoi(check[1], nullptr, 16) == bytes.back();
}

bool isLodeReply(ByteView bytes) {
  if (bytes.size() < 6 || bytes[0] != 0x02 || bytes[3] != bytes.size() - 6) return false;
  for (std::size_t size = 6; size < bytes.size(); ++size) {
    if (endsInItsCheck(bytes.first(size))) return false;
  }
  return endsInItsCheck(bytes);
}

bool isLodeOEMReply(ByteView bytes) {
  if (fits(bytes, "\xAC\x01\x0A?????\0?\0?\0\0"sv)) return true;
  if (bytes.size() < 6 || bytes.size() > 14) return false;
  if (!fits(bytes.first(3), "\xAC\x01\xEF"sv) || !fits(bytes.last(2), "\0\0"sv)) return false;
  for (std::size_t i = 1; i + 1 < bytes.size(); ++i) {
    if (fits(bytes.subspan(i, 2), "\xAC\x01"sv)) return false;
  }
  return true;
}

bool isTrackMasterReply(ByteView bytes) {
  if (bytes.size() == 1) return "\xB1\xB2\xB3\xB4\xBE\xBF"sv.find(static_cast<char>(bytes[0])) < 6;
  return fits(bytes,
              "\xD1"
              "9999\xD2"
              "9999"sv);
}

bool isP10Reply(ByteView bytes) {
  return fits(bytes, "B999\r") || fits(bytes, "n999\r") || fits(bytes, "O999\r") || fits(bytes, "U999\r");
}

bool isTangoReply(ByteView bytes) {
  return fits(bytes, "INITR\n\r00000\n\r00000\n\r00000\n\r") ||
         fits(bytes, "999A\n\r+9999\n\r+9999\n\r+9999\n\r") ||
         fits(bytes, "9999A\n\r+9999\n\r+9999\n\r+9999\n\r");
}

bool isNoReply(ByteView /*bytes*/) {
  return false;
}

struct Twin {
  const char* model;
  /// Whether these bytes, from the first to the last, are a reply.
  bool (*isReply)(ByteView bytes);
  /// Of two replies with the same end.
  bool takesTheShortest;
};

constexpr std::array<Twin, 7> twins{{{"LodeTreadmill", isLodeReply, true},
                                     {"LodeOEMTreadmill", isLodeOEMReply, false},
                                     {"TrackMaster", isTrackMasterReply, false},
                                     {"ErgolineK2.4P10", isP10Reply, false},
                                     {"ErgosanaK4.8P10", isP10Reply, false},
                                     {"Tango", isTangoReply, false},
                                     {"TM-400V2", isNoReply, false}}};
constexpr std::size_t longestReply = 261;

/// Keeps everything, and looks at all of it behind the last reply, for each byte.
class SlowReader {
 public:
  explicit SlowReader(const Twin& twin) : twin_(twin) {}

  std::optional<Bytes> take(std::uint8_t byte) {
    all_.push_back(byte);
    const ByteView rest = ByteView(all_).subspan(used_);
    std::optional<Bytes> found;
    for (std::size_t size = 1; size <= std::min(rest.size(), longestReply); ++size) {
      if (!twin_.isReply(rest.last(size))) continue;
      found = Bytes(rest.end() - static_cast<std::ptrdiff_t>(size), rest.end());
      if (twin_.takesTheShortest) break;
    }
    if (found) used_ = all_.size();
    return found;
  }

 private:
  const Twin& twin_;
  Bytes all_;
  std::size_t used_ = 0;
};

/// A port that is never opened, for the drivers' sake.
ORSSerialPort& closedPort() {
  static const auto port = [] {
    VirtualDeviceRegistry::shared()->add("/dev/null", "ttyFuzz");
    return ORSSerialPort::serialPortWithPath("/dev/null");
  }();
  return *port;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const auto catalogue = standardCatalogue();
  const Twin& twin = twins.at(data[0] % twins.size());
  const auto model = catalogue.modelNamed(twin.model);
  const auto framing = model->makeFraming();
  const auto decoder = model->makeDevice();
  SlowReader slow(twin);
  std::uint64_t received = 0;
  std::uint64_t handedOut = 0;
  receiveAll({data + 1, size - 1}, [&](ByteView chunk) {
    std::vector<Bytes> expected;
    for (const std::uint8_t byte : chunk) {
      if (auto reply = slow.take(byte)) expected.push_back(std::move(*reply));
    }
    auto replies = framing->take(chunk);
    received += chunk.size();
    for (const auto& reply : replies) {
      handedOut += reply.bytes.size();
      try {
        framing->decode(reply, *decoder, closedPort());
      } catch (const ProcessStopped&) {
        expect(false);
      }
    }
    std::erase_if(replies, [&](const ReplyFraming::Reply& reply) { return !twin.isReply(reply.bytes); });
    expect(replies.size() == expected.size());
    for (std::size_t i = 0; i < replies.size(); ++i) expect(replies[i].bytes == expected[i]);
    expect(handedOut + framing->discardedBytes() <= received);
    expect(handedOut + framing->discardedBytes() + longestReply >= received);
  });
  return 0;
}
