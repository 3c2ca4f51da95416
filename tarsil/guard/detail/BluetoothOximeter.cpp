#include "tarsil/guard/detail/BluetoothOximeter.hpp"

#include <utility>

namespace tarsil::detail {

class BluetoothOximeter::Host final : public KivStressPortDelegate {
 public:
  Host(std::weak_ptr<MEDXINGSpO2> oximeter, std::function<void(float)> saturation)
      : oximeter_(std::move(oximeter)), saturation_(std::move(saturation)) {}

  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t /*status*/) override {
    // The driver keeps an unchanged value to itself; a station has to know that it was measured again.
    if (const auto oximeter = oximeter_.lock()) oximeter->befoSpO2Value.clear();
    saturation_(SpO2);
  }

 private:
  std::weak_ptr<MEDXINGSpO2> oximeter_;
  std::function<void(float)> saturation_;
};

BluetoothOximeter::BluetoothOximeter(std::shared_ptr<BluetoothCentral> central,
                                     std::function<void(float)> saturation)
    : central_(std::move(central)),
      oximeter_(std::make_shared<MEDXINGSpO2>()),
      host_(std::make_shared<Host>(oximeter_, std::move(saturation))) {
  oximeter_->kiv_delegate = host_;
  oximeter_->btManager = central_;
  oximeter_->handleDisconnect = false;  // connects at once, and again after a lost link
  central_->setDelegate(oximeter_);
}

BluetoothOximeter::~BluetoothOximeter() {
  close();
}

void BluetoothOximeter::close() {
  oximeter_->kiv_delegate = nullptr;
  oximeter_->handleDisconnect = true;
  central_->stopScan();
  if (oximeter_->peripheral) central_->cancelPeripheralConnection(oximeter_->peripheral);
}

}  // namespace tarsil::detail
