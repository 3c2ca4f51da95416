#include "tarsil/runtime/NotificationCenter.hpp"

#include <utility>

#include "tarsil/runtime/detail/ObserverList.hpp"

namespace tarsil {

struct NotificationCenter::State : detail::ObserverList<Notification> {};

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: whoever posts in the last moments of the process still finds it.
  static NotificationCenter& center = *new NotificationCenter;
  return center;
}

Observation NotificationCenter::addObserver(const std::string& name,
                                            std::function<void(const Notification&)> observer) {
  return state_->add(name, std::move(observer));
}

void NotificationCenter::post(const Notification& notification) {
  state_->call(notification.name, notification);
}

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}

}  // namespace tarsil
