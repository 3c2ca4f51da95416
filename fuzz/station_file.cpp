// A station's file of any bytes is refused with its name, or gives a station within the program's bounds.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/run/stationNamed.hpp"

using namespace tarsil;

namespace {

void expectUpTo(const std::optional<float>& limit, float greatest) {
  expect(!limit || (*limit > 0 && *limit <= greatest));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("station", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  expect(ftruncate(file, 0) == 0);
  expect(pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  try {
    const cli::Station station = cli::stationNamed(path);
    expect(station.exercise.find('@') != std::string::npos);
    expectUpTo(station.maxSpeed, 25);
    expectUpTo(station.maxGrade, 30);
    expectUpTo(station.maxPower, 999);
  } catch (const cli::CommandFailure& refused) {
    expect(std::string_view(refused.what()).starts_with(path + ":"));
  }
  return 0;
}
