#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tarsil/support/bytes.hpp"

namespace tarsil::cli {

using Json = nlohmann::json;

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
  bool isMuted() const { return muted_; }

 private:
  Listener listener_;
  std::function<void()> before_;
  bool muted_ = false;
};

/// A float as events carry it: the number that its shortest decimal text names, or "nan", "inf", "-inf".
Json number(float value);
/// Lower-case hexadecimal text.
Json hexadecimal(ByteView bytes);

}  // namespace tarsil::cli
