#pragma once

#include <cstdint>
#include <optional>

#include "tarsil/runtime/detail/FileDescriptor.hpp"

namespace tarsil::detail {

/// A set of descriptors, each with an id of its own, that threads wait for. Any thread.
class Epoll {
 public:
  using Id = std::uint64_t;

  Epoll();

  /// Reports the descriptor again and again while it is readable.
  void add(int descriptor, Id id);
  /// Reports it once, as soon as it is readable or hung up. False for a descriptor that cannot be waited for
  /// (a regular file); any other failure stops the process.
  bool addOnce(int descriptor, Id id);
  /// Reports it once more.
  void rearm(int descriptor, Id id);
  void remove(int descriptor);

  /// The id of a descriptor that is readable; waits up to `timeout` milliseconds for it, for ever when
  /// negative.
  std::optional<Id> wait(int timeout) const;

  /// Readable itself while one of the set is.
  int descriptor() const { return epoll_.get(); }

 private:
  const FileDescriptor epoll_;
};

}  // namespace tarsil::detail
