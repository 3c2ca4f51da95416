// Requests of any bytes to the attribute server of a simulated peripheral: its answers fit the connection,
// and name what they answer. Each request has its length in front of it.

#include "simulators/radio/AttributeServer.hpp"

#include <algorithm>
#include <cstdint>

#include "fuzz/expect.hpp"

using namespace tarsil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  simulators::AttributeServer server;
  server.addService(0xFFB0);
  const std::uint16_t value =
      server.addCharacteristic(0xFFB2, simulators::AttributeServer::notifies, Bytes(40, 7));
  server.addService(0x180A);
  server.addCharacteristic(0x2A29, simulators::AttributeServer::mayBeRead, {1, 2, 3});
  std::size_t mtu = 23;
  for (ByteView rest(data, size); !rest.empty();) {
    const std::size_t length = std::min<std::size_t>(rest.front() % 32U, rest.size() - 1);
    const ByteView request = rest.subspan(1, length);
    rest = rest.subspan(1 + length);
    const Bytes answer = server.answer(request);
    expect(answer.size() <= mtu);
    if (answer.size() == 3 && answer[0] == 0x03)
      mtu = std::clamp<std::size_t>(request[1] + 256U * request[2], 23, 247);
    if (!answer.empty() && answer[0] == 0x01) expect(answer.size() == 5 && answer[1] == request[0]);
    const auto told = server.notification(value, Bytes(300, 9));
    expect(told.has_value() == server.isSubscribed(value));
    expect(!told || told->size() <= mtu);
  }
  return 0;
}
