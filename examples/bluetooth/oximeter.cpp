// A host of the Bluetooth oximeter: prints each saturation.
// usage: example-bluetooth [--simulated] [COUNT]
//   --simulated   an oximeter without a radio, also where the machine has an adapter
//   COUNT         ends after so many values

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/drivers/vitals/MEDXINGSpO2.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tools/bluetooth/hostCentral.hpp"

namespace {

class Host : public tarsil::KivStressPortDelegate {
 public:
  explicit Host(int count) : left_(count) {}

  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t /*status*/) override {
    std::printf("oxygen saturation %.1f %%\n", static_cast<double>(SpO2));
    if (--left_ == 0) tarsil::RunLoop::main().stop();
  }

 private:
  int left_;
};

std::uint8_t restingSaturation() {
  static std::uint8_t saturation = 98;
  return saturation > 90 ? --saturation : saturation;
}

}  // namespace

int main(int argc, char** argv) {
  bool simulated = false;
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--simulated") {
      simulated = true;
    } else {
      count = std::atoi(argv[i]);
    }
  }

  // An application writes tarsil::makeBluezCentral() here and links Tarsil::bluez.
  const auto [central, isSimulated] = simulated ? tarsil::cli::simulatedCentral(restingSaturation)
                                                : tarsil::cli::hostCentral(restingSaturation);
  std::puts(isSimulated ? "a simulated oximeter" : "the machine's own Bluetooth");

  // The oximeter scans with this central, and hears from it. It looks for itself again after a lost link.
  const auto oximeter = std::make_shared<tarsil::MEDXINGSpO2>();
  oximeter->kiv_delegate = std::make_shared<Host>(count);
  oximeter->btManager = central;
  oximeter->handleDisconnect = false;
  central->setDelegate(oximeter);

  // The manager's commands for the role SpO2 reach it, and its helpers know the central.
  auto& station = tarsil::StressECGDeviceManager::share();
  station.SpO2D = oximeter;
  station.btManager = central;

  tarsil::RunLoop::main().run();

  // The manager keeps the central as long as the process lives, and the system the connection even longer.
  if (oximeter->peripheral) central->cancelPeripheralConnection(oximeter->peripheral);
  return 0;
}
