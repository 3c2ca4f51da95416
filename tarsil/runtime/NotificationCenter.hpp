#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tarsil/runtime/Observation.hpp"

namespace tarsil {

/// A named piece of news with its details.
struct Notification {
  std::string name;
  /// Who posted it; only its identity counts.
  const void* object = nullptr;
  std::map<std::string, std::any> userInfo = {};
};

/// Hands notifications to whoever asked for them, on the posting thread, in the order of asking. Any thread.
class NotificationCenter {
 public:
  static NotificationCenter& defaultCenter();

  /// The observer is called until the returned observation is dropped.
  [[nodiscard]] Observation addObserver(const std::string& name,
                                        std::function<void(const Notification&)> observer);
  void post(const Notification& notification);

 private:
  struct State;
  NotificationCenter();
  std::shared_ptr<State> state_;
};

}  // namespace tarsil
