// Commands of any bytes, in pieces with time between them, to every simulated device: its truth stays that of
// a machine. The first byte chooses the model.

#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/expect.hpp"
#include "fuzz/receptions.hpp"
#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/physics/Patient.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

void expectPossible(const simulators::Load& load) {
  expect(std::isfinite(load.speed) && load.speed >= 0 && load.speed <= 30);
  expect(std::isfinite(load.grade) && std::abs(load.grade) <= 30);
  expect(std::isfinite(load.power) && load.power >= 0 && load.power <= 1000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const std::vector<std::string> models = simulators::simulatedModels();
  simulators::Patient patient;
  const auto device = simulators::makeSimulatedDevice(models[data[0] % models.size()], patient);
  receiveAll({data + 1, size - 1}, [&](ByteView chunk) {
    device->receive(chunk);
    device->advance(chunk.size() * 100ms);
    expectPossible(device->truth().actual);
    expect(!device->status().empty());
    for (const auto& message : device->takeOutput()) expect(!message.bytes.empty());
  });
  return 0;
}
