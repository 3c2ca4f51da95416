#pragma once

#include <optional>

#include "tarsil/runtime/detail/Reactor.hpp"
#include "tarsil/runtime/detail/Source.hpp"

namespace tarsil::detail {

/// Waits for a descriptor to become readable.
class ReadSource final : public Source, public Watcher {
 public:
  ReadSource(int descriptor, DispatchQueue queue) : Source(std::move(queue)), descriptor_(descriptor) {}

  void ready(bool hungUp) override {
    hungUp_ = hungUp;
    happened();
  }

 private:
  void arm() override;
  void disarm() override;
  void willFire() override;

  const int descriptor_;
  bool watched_ = false;
  std::optional<Reactor::WatchId> watch_;
  /// What the last report said.
  bool hungUp_ = false;
  /// The descriptor had hung up and was empty when the handler was last called.
  bool atEnd_ = false;
};

}  // namespace tarsil::detail
