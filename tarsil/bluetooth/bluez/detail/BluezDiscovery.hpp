#pragma once

#include <cstdint>
#include <optional>

#include "tarsil/bluetooth/bluez/detail/BluezContext.hpp"

namespace tarsil::bluez {

/// Has BlueZ scan on the adapter in use while that is needed: asks it to start or to stop, one request at a
/// time, and again where that fails. Main thread.
class BluezDiscovery {
 public:
  /// Whom it asks, and tells.
  class Owner {
   public:
    virtual ~Owner() = default;
    virtual bool needsDiscovery() const = 0;
    /// BlueZ is making a connection.
    virtual bool isAttempting() const = 0;
    /// The scan has started or stopped, or cannot start for the moment.
    virtual void discoverySettled() = 0;
    /// The system forbids it.
    virtual void discoveryRefused() = 0;
  };

  BluezDiscovery(const BluezContext& context, Owner& owner) : context_(context), owner_(owner) {}

  /// Starts or stops the scan where the owner's answers ask for it. Called whenever they may have changed.
  void reconcile();
  /// BlueZ has been asked to start or stop and has not answered yet, or will be asked again.
  bool isBusy() const { return busy_; }
  /// The scan ended with the adapter that it ran on.
  void reset();

 private:
  void start();
  void stop();
  void started(const std::optional<BusError>& error);
  void stopped(const std::optional<BusError>& error);
  void startAgain();

  const BluezContext& context_;
  Owner& owner_;
  /// BlueZ has confirmed that it scans for us.
  bool discovering_ = false;
  bool busy_ = false;
  /// Counts the calls of `reset`: an answer from before is out of date.
  std::uint64_t life_ = 0;
};

}  // namespace tarsil::bluez
