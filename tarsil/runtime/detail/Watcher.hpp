#pragma once

namespace tarsil::detail {

/// Somebody who waits for a descriptor to become readable.
class Watcher {
 public:
  virtual ~Watcher() = default;
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// The descriptor is readable or hung up; it is not looked at again until `Reactor::rearm`. No lock is
  /// held.
  virtual void ready() = 0;

 protected:
  Watcher() = default;
};

}  // namespace tarsil::detail
