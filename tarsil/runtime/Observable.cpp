#include "tarsil/runtime/Observable.hpp"

#include <utility>

#include "tarsil/runtime/detail/ObserverList.hpp"

namespace tarsil {

struct Observable::State : detail::ObserverList<KeyChange> {};

Observable::Observable() : state_(std::make_shared<State>()) {}

Observable::~Observable() = default;

Observation Observable::observe(std::string_view key, std::function<void(const KeyChange&)> observer) {
  return state_->add(std::string(key), std::move(observer));
}

void Observable::announce(std::string_view key) const {
  announce(KeyChange{std::string(key)});
}

void Observable::announce(const KeyChange& change) const {
  // An observer may drop the last reference to this object.
  const auto state = state_;
  state->call(change.key, change);
}

}  // namespace tarsil
