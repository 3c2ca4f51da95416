#pragma once

#include <cstdint>
#include <optional>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/FileDescriptor.hpp"

// What the runtime waits with. Each system has its own way, in a folder of its name. A call that fails for
// want of descriptors or memory, or through a fault in this process, stops the process.
namespace tarsil::detail {

/// A set of descriptors, each with an id of its own, that threads wait for. Any thread.
class DescriptorSet {
 public:
  using Id = std::uint64_t;
  struct Event {
    Id id;
    /// The descriptor hung up or met an error; it may hold bytes all the same.
    bool hungUp;
  };

  DescriptorSet();

  /// Reports the descriptor again and again while it is readable.
  void add(int descriptor, Id id);
  /// Reports it to one waiting thread each time that something new makes it readable.
  void addForNews(int descriptor, Id id);
  /// Reports it once, as soon as it is readable or hung up. False for a descriptor that cannot be waited for
  /// (a regular file).
  bool addOnce(int descriptor, Id id);
  /// Reports it once more.
  void rearm(int descriptor, Id id);
  void remove(int descriptor);

  /// A descriptor that is readable; waits up to `timeout` milliseconds for it, for ever when negative.
  std::optional<Event> wait(int timeout) const;

  /// Readable itself while one of the set is.
  int descriptor() const { return set_.get(); }

 private:
  const FileDescriptor set_;
};

/// A descriptor that is readable while it is raised; to raise it again is news. Any thread.
class Signal {
 public:
  Signal();
  void raise();
  void lower();
  int descriptor() const { return signal_.get(); }

 private:
  const FileDescriptor signal_;
};

/// A descriptor that becomes readable at an instant of the machine's time. Any thread.
class AlarmClock {
 public:
  AlarmClock();
  /// The end of time for never; an instant that has passed rings at once. Until then it is not readable.
  void setTo(Clock::Instant at);
  int descriptor() const { return timer_.get(); }

 private:
  const FileDescriptor timer_;
};

/// True when nothing more will ever come for the descriptor than what it may still hold, or an error is
/// pending. Moves bytes on that a terminal has received but not yet made readable.
bool isHungUp(int descriptor);

/// True on the thread that started the process.
bool isFirstThread();
/// Names the calling thread for whoever looks at the process: 15 characters at most.
void nameThisThread(const char* name);

}  // namespace tarsil::detail
