#pragma once

#include <atomic>
#include <memory>

namespace tarsil::detail {

/// Whether something may have come for a descriptor since it was last found to hold nothing. Any thread.
class Arrivals {
 public:
  /// Of a descriptor that is announced; null for any other.
  static std::shared_ptr<Arrivals> announcedFor(int descriptor);

  void announce() { expected_ = true; }
  /// From now on something may come unannounced.
  void becomeUnknown() {
    unknown_ = true;
    expected_ = true;
  }

  bool mayHaveCome() const { return expected_; }
  /// Called before the system is asked: what comes while it answers counts as news.
  void beginAsking() { expected_ = unknown_.load(); }

 private:
  std::atomic<bool> expected_ = true;
  std::atomic<bool> unknown_ = false;
};

}  // namespace tarsil::detail
