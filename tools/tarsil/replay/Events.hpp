#pragma once

#include <functional>
#include <utility>

#include "tools/tarsil/replay/Json.hpp"

namespace tarsil::cli {

/// What happens in a replay, handed on as JSON arrays in the order in which it happens.
class Events {
 public:
  using Listener = std::function<void(const Json& event)>;

  explicit Events(Listener listener) : listener_(std::move(listener)) {}
  Events(const Events&) = delete;
  Events& operator=(const Events&) = delete;

  /// Hands on what others have to say first (see `before`), then the event.
  void add(const Json& event);
  /// `source` is asked before every event: it may add events of its own that happened earlier.
  void before(std::function<void()> source) { before_ = std::move(source); }

  /// While muted, events are dropped: the process that they happen in no longer exists.
  void mute(bool muted) { muted_ = muted; }

 private:
  Listener listener_;
  std::function<void()> before_;
  bool muted_ = false;
};

}  // namespace tarsil::cli
