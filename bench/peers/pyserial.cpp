#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/peers/Peer.hpp"

namespace peers {
namespace {

// The one that Debian's packages belong to, whichever comes first in the path.
const std::string python = "/usr/bin/python3 -c";

// Prints each trip in µs, then how long the stream took in s. Without a single quote, as the shell has it in
// two.
const std::string script = R"(
import sys, time, serial
path = sys.argv[1]
warming, timed, streamed = map(int, sys.argv[2:])
port = serial.Serial(path, 115200, timeout=10)
for trip in range(warming + timed):
    start = time.perf_counter()
    port.write(b"LOAD?\n")
    if len(port.read(8)) != 8: sys.exit(1)
    if trip >= warming: print((time.perf_counter() - start) * 1e6)
start = time.perf_counter()
while streamed > 0:
    some = port.read(port.in_waiting or 1)
    if not some: sys.exit(1)
    streamed -= len(some)
print(time.perf_counter() - start)
)";

}  // namespace

bool hasPyserial() {
  return std::system((python + " 'import serial' 2>/dev/null").c_str()) == 0;
}

std::optional<PyserialTurn> takePyserialTurn(const std::string& path, int warming, int timed,
                                             std::size_t streamed) {
  const std::string command = python + " '" + script + "' " + path + " " + std::to_string(warming) + " " +
                              std::to_string(timed) + " " + std::to_string(streamed);
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
  PyserialTurn turn;
  double number = 0;
  while (output && std::fscanf(output.get(), "%lf", &number) == 1) turn.trips.push_back(number);
  if (turn.trips.size() != static_cast<std::size_t>(timed) + 1) return std::nullopt;
  turn.streamSeconds = turn.trips.back();
  turn.trips.pop_back();
  return turn;
}

}  // namespace peers
