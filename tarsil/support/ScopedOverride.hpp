#pragma once

#include <memory>
#include <utility>

namespace tarsil {

/// Puts another object in the place of a shared one (`UserFolders`, `SerialDeviceRegistry`,
/// `StressECGDeviceManager`), and the old one back at its end. Make and drop it as `Shared::exchangeShared`
/// wants to be called.
template <class Shared>
class ScopedOverride {
 public:
  explicit ScopedOverride(std::shared_ptr<Shared> other)
      : before_(Shared::exchangeShared(std::move(other))) {}
  ~ScopedOverride() { Shared::exchangeShared(std::move(before_)); }
  ScopedOverride(const ScopedOverride&) = delete;
  ScopedOverride& operator=(const ScopedOverride&) = delete;

 private:
  std::shared_ptr<Shared> before_;
};

}  // namespace tarsil
