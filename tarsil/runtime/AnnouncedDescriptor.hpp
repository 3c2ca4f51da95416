#pragma once

#include <memory>

namespace tarsil {

namespace detail {
class Arrivals;
}

/// Says of a descriptor that nobody but this program writes to its other end, and when it does. `VirtualTime`
/// then asks the system for the descriptor only after an announcement, where it asks for any other at every
/// turn: a simulated device that is quiet costs nothing. On the machine's time it changes nothing. Any
/// thread.
class AnnouncedDescriptor {
 public:
  /// Make it before anybody watches the descriptor, and drop it before the descriptor is closed; from then on
  /// the system is asked again.
  explicit AnnouncedDescriptor(int descriptor);
  ~AnnouncedDescriptor();
  AnnouncedDescriptor(const AnnouncedDescriptor&) = delete;
  AnnouncedDescriptor& operator=(const AnnouncedDescriptor&) = delete;

  /// Bytes went to the other end, or it was closed.
  void announce();

 private:
  const int descriptor_;
  const std::shared_ptr<detail::Arrivals> arrivals_;
};

}  // namespace tarsil
