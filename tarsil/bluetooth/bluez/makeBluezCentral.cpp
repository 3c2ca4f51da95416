#include "tarsil/bluetooth/bluez/makeBluezCentral.hpp"

#include "tarsil/bluetooth/bluez/detail/BluezCentral.hpp"

namespace tarsil {

std::shared_ptr<BluetoothCentral> makeBluezCentral() {
  return bluez::BluezCentral::create();
}

}  // namespace tarsil
