// One simulated device on a pseudo-terminal: tarsil-simulator MODEL. Prints the path to open, then lives
// until its standard input ends, obeying the orders that it reads there (see simulators/hosting/Orders.hpp).

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/hosting/Orders.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"

using namespace std::chrono_literals;
using namespace tarsil;
using namespace tarsil::simulators;

int main(int argc, char** argv) {
  Patient patient;
  const auto device = argc == 2 ? makeSimulatedDevice(argv[1], patient) : nullptr;
  if (!device) {
    std::fprintf(stderr, "usage: %s MODEL, with MODEL one of:\n", argv[0]);
    for (const auto& model : simulatedModels()) std::fprintf(stderr, "  %s\n", model.c_str());
    return 2;
  }
  PseudoTerminalLine line(*device);
  Orders orders(STDIN_FILENO, *device, patient, line);
  const auto body = Timer::scheduled(100ms, true, [&](Timer&) { patient.advance(100ms); });

  std::puts(line.path().c_str());
  std::fflush(stdout);
  RunLoop::main().run();
  return 0;
}
