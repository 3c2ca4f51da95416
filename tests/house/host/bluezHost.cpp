#include <iostream>
#include <tarsil/bluetooth/bluez/makeBluezCentral.hpp>

int main() {
  std::cout << (tarsil::makeBluezCentral() != nullptr) << "\n";
}
