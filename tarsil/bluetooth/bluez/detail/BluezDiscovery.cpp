#include "tarsil/bluetooth/bluez/detail/BluezDiscovery.hpp"

#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"

namespace tarsil::bluez {

// BlueZ pauses its scan while it connects. Asked to stop it at that moment, it believes for good that it
// scans (seen in BlueZ 5.66): so the scan is stopped before a connection is attempted, or after.
void BluezDiscovery::reconcile() {
  if (!context_.isOn() || busy_ || owner_.needsDiscovery() == discovering_) return;
  if (discovering_ && owner_.isAttempting()) return;
  busy_ = true;
  discovering_ ? stop() : start();
}

void BluezDiscovery::reset() {
  ++life_;
  discovering_ = false;
  busy_ = false;
}

void BluezDiscovery::start() {
  // BlueZ takes calls in order: the filter holds when the scan starts.
  context_.bus->call(
      context_.adapter, BluezObjects::adapterInterface, "SetDiscoveryFilter", callTimeout,
      [](const std::optional<BusError>&) {},
      [](sdbus::MethodCall& call) {
        call << Properties{{"Transport", sdbus::Variant(std::string("le"))},
                           {"DuplicateData", sdbus::Variant(false)}};
      });
  context_.bus->call(context_.adapter, BluezObjects::adapterInterface, "StartDiscovery", callTimeout,
                     context_.life.guarded([this, life = life_](const std::optional<BusError>& error) {
                       if (life == life_) started(error);
                     }));
}

void BluezDiscovery::started(const std::optional<BusError>& error) {
  if (error) return failureOf(*error) == Failure::refused ? owner_.discoveryRefused() : startAgain();
  busy_ = false;
  discovering_ = true;
  reconcile();
  owner_.discoverySettled();
}

void BluezDiscovery::startAgain() {
  // Whatever state BlueZ is in, it starts from none.
  context_.bus->tell(context_.adapter, BluezObjects::adapterInterface, "StopDiscovery");
  context_.life.afterPause([this, life = life_] {
    if (life != life_) return;
    busy_ = false;
    // Connections do not wait for a scan that cannot start.
    owner_.discoverySettled();
    reconcile();
  });
}

void BluezDiscovery::stop() {
  context_.bus->call(context_.adapter, BluezObjects::adapterInterface, "StopDiscovery", callTimeout,
                     context_.life.guarded([this, life = life_](const std::optional<BusError>& error) {
                       if (life == life_) stopped(error);
                     }));
}

void BluezDiscovery::stopped(const std::optional<BusError>& error) {
  if (isInProgress(error)) {
    return context_.life.afterPause([this, life = life_] {
      if (life == life_) stop();
    });
  }
  // Any other error says that there is nothing to stop.
  busy_ = false;
  discovering_ = false;
  reconcile();
  owner_.discoverySettled();
}

}  // namespace tarsil::bluez
