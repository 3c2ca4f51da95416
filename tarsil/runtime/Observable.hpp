#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/runtime/Observation.hpp"

namespace tarsil {

/// What happened to an observed key.
struct KeyChange {
  enum class Kind { setting, insertion, removal };

  std::string key;
  Kind kind = Kind::setting;
  /// For insertions and removals: the positions concerned, ascending; empty for a setting.
  std::vector<std::size_t> indexes = {};
};

/// An object whose keys (properties) can be observed. Observers are called after the change, on the thread
/// that made it, in the order in which they came.
class Observable {
 public:
  /// `observer` is called for each change of `key` until the returned observation is dropped. Any thread.
  [[nodiscard]] Observation observe(std::string_view key, std::function<void(const KeyChange&)> observer);

 protected:
  Observable();
  ~Observable();

  void announce(std::string_view key) const;
  void announce(const KeyChange& change) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tarsil
