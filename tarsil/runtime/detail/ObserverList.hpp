#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarsil/runtime/Observation.hpp"

namespace tarsil::detail {

/// Who wants to hear of which topic, in the order of asking. Observers may come and go at any time on any
/// thread, while they are called too: one that came during a call hears of the next one, one that left is
/// called no more. No lock is held while they are called.
template <class News>
class ObserverList : public std::enable_shared_from_this<ObserverList<News>> {
 public:
  using Observer = std::function<void(const News&)>;

  [[nodiscard]] Observation add(std::string topic, Observer observer) {
    auto entry = std::make_shared<const Entry>(Entry{std::move(topic), std::move(observer)});
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
    return Observation([list = this->weak_from_this(), entry = std::weak_ptr(entry)] {
      if (const auto still = list.lock()) still->remove(entry.lock());
    });
  }

  void call(std::string_view topic, const News& news) {
    for (const auto& entry : about(topic)) {
      if (isPresent(entry)) entry->observer(news);
    }
  }

 private:
  struct Entry {
    std::string topic;
    Observer observer;
  };
  using EntryPointer = std::shared_ptr<const Entry>;

  std::vector<EntryPointer> about(std::string_view topic) const {
    std::vector<EntryPointer> entries;
    const std::lock_guard lock(mutex_);
    std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(entries),
                 [&](const EntryPointer& entry) { return entry->topic == topic; });
    return entries;
  }

  bool isPresent(const EntryPointer& entry) const {
    const std::lock_guard lock(mutex_);
    return std::find(entries_.begin(), entries_.end(), entry) != entries_.end();
  }

  // `entry` is the caller's share, so that what the observer holds is let go of outside the lock.
  void remove(const EntryPointer& entry) {
    const std::lock_guard lock(mutex_);
    std::erase(entries_, entry);
  }

  mutable std::mutex mutex_;
  std::vector<EntryPointer> entries_;
};

}  // namespace tarsil::detail
