// Every driver and its twin get the same operations, chosen by a seed, and must do the same.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <limits>
#include <memory>
#include <string>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/process.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/TemporaryUserFolders.hpp"
#include "tests/twins/twins.hpp"

namespace tarsil::twins {
namespace {

using namespace std::chrono_literals;

struct Pair {
  const char* model;
  std::unique_ptr<Twin> (*makeTwin)();
  friend void PrintTo(const Pair& pair, std::ostream* stream) { *stream << pair.model; }
};

/// What both are asked: the same call of each.
struct Operation {
  std::string name;
  std::function<void(KivStressDevice&)> driver;
  std::function<void(Twin&)> twin;
};

class TwinsTest : public testing::TestWithParam<Pair> {
 protected:
  TwinsTest() { StressECGDeviceManager::share().delegate = managerHost_; }
  ~TwinsTest() override { StressECGDeviceManager::share().delegate = nullptr; }

  /// A new driver on a port of its own, and a new twin.
  void begin() {
    device_.reset();
    port_.emplace();
    device_ = standardCatalogue().modelNamed(GetParam().model)->makeDevice();
    device_->kiv_delegate = host_;
    device_->setSerialPort(port_->port());
    twin_ = GetParam().makeTwin();
  }

  float load(Random& random) {
    static const std::array<float, 12> rare{0,
                                            -0.0F,
                                            -0.05F,
                                            -5,
                                            0.05F,
                                            0.4F,
                                            25.6F,
                                            1e-5F,
                                            1e30F,
                                            1e12F,
                                            std::numeric_limits<float>::infinity(),
                                            std::numeric_limits<float>::quiet_NaN()};
    if (random.oneIn(12)) return random.oneOf(rare);
    const float tenths = static_cast<float>(random.below(random.oneIn(3) ? 15000 : 260));
    return tenths / 10;
  }

  Operation operation(Random& random) {
    if (random.oneIn(2)) {
      const Bytes chunk = twin_->chunk(random);
      return {"receive " + hexText(chunk), [this, chunk](KivStressDevice&) { port_->deliver(chunk); },
              [chunk](Twin& twin) { twin.receive(chunk); }};
    }
    if (random.oneIn(5)) {
      const Duration duration = (1 + random.below(15)) * 100ms;
      return {"advance", [this, duration](KivStressDevice&) { port_->advance(duration); },
              [duration](Twin& twin) { twin.advance(duration); }};
    }
    if (random.oneIn(40)) {
      return {"port",
              [this](KivStressDevice& device) {
                device.setSerialPort(device.serialPort() ? nullptr : port_->port());
              },
              [](Twin& twin) { twin.hasPort = !twin.hasPort; }};
    }
    if (random.oneIn(4)) {
      const float speed = load(random);
      const float grade = load(random);
      return {"setLoad " + floatText(speed) + " " + floatText(grade),
              [=](KivStressDevice& device) { device.setLoad(speed, grade); },
              [=](Twin& twin) { twin.setLoad(speed, grade); }};
    }
    static const std::array<Operation, 10> others{
        {{"startDeivce", &KivStressDevice::startDeivce, &Twin::startDeivce},
         {"stopStressDevice", &KivStressDevice::stopStressDevice, &Twin::stopStressDevice},
         {"requestLoad", &KivStressDevice::requestLoad, &Twin::requestLoad},
         {"requestLoad", &KivStressDevice::requestLoad, &Twin::requestLoad},
         {"deviceState", &KivStressDevice::deviceState, &Twin::deviceState},
         {"startBP", &KivStressDevice::startBP, &Twin::startBP},
         {"breakBP", &KivStressDevice::breakBP, &Twin::breakBP},
         {"requestBP", &KivStressDevice::requestBP, &Twin::requestBP},
         {"clearBP", &KivStressDevice::clearBP, &Twin::clearBP},
         {"requestSpO2", &KivStressDevice::requestSpO2, &Twin::requestSpO2}}};
    return random.oneOf(others);
  }

  template <class Work>
  static bool stops(Work work) {
    try {
      work();
      return false;
    } catch (const Stops&) {
      return true;
    }
  }

  /// False when the process would have stopped, in both.
  bool perform(const Operation& operation) {
    const bool driverStops = stops([&] { operation.driver(*device_); });
    const bool twinStops = stops([&] { operation.twin(*twin_); });
    EXPECT_EQ(driverStops, twinStops);
    EXPECT_EQ(port_->takeSent(), std::exchange(twin_->sent, {}));
    EXPECT_EQ(host_.takeCalls(), std::exchange(twin_->calls, {}));
    EXPECT_EQ(managerHost_.takeCalls(), std::exchange(twin_->managerCalls, {}));
    return !driverStops;
  }

  TemporaryUserFolders folders_;
  PrintedLines printed_;
  ScopedProcessHooks hooks_{
      {.fatal = [](std::string_view) { throw Stops(); }, .neverReturn = [] { throw Stops(); }}};
  RecordingHost host_;
  RecordingHost managerHost_;
  std::optional<ScriptedPort> port_;
  std::shared_ptr<KivStressDevice> device_;
  std::unique_ptr<Twin> twin_;
};

TEST_P(TwinsTest, DoTheSame) {
  const int operations = operationsWanted();
  int done = 0;
  int stopped = 0;
  for (unsigned seed = 1; done < operations; ++seed) {
    Random random(seed);
    begin();
    for (int i = 0; i < 200; ++i, ++done) {
      const Operation next = operation(random);
      SCOPED_TRACE("seed " + std::to_string(seed) + ", operation " + std::to_string(i) + ": " + next.name);
      const bool goesOn = perform(next);
      if (HasFailure()) return;
      stopped += goesOn ? 0 : 1;
      if (!goesOn) break;
    }
  }
  RecordProperty("stopped", stopped);
}

INSTANTIATE_TEST_SUITE_P(Drivers, TwinsTest,
                         testing::Values(Pair{"LodeTreadmill", makeLodeTreadmillTwin},
                                         Pair{"LodeOEMTreadmill", makeLodeOEMTreadmillTwin},
                                         Pair{"TrackMaster", makeTrackMasterTwin},
                                         Pair{"TM-400V2", makeTM400Twin},
                                         Pair{"ErgolineK2.4P10", makeErgolineTwin},
                                         Pair{"ErgosanaK4.8P10", makeErgosanaTwin},
                                         Pair{"ErgometricsK2.4P3", makeErgometricsTwin},
                                         Pair{"Ergometer38K4", makeLodeErgometerTwin},
                                         Pair{"Tango", makeTangoTwin}, Pair{"MEDXINGPort", makeMEDXINGTwin}));

}  // namespace
}  // namespace tarsil::twins
