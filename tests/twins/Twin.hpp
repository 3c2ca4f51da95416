#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"
#include "tests/helpers/RecordingHost.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::twins {

/// How many operations a driver and its twin get.
inline int operationsWanted() {
  const char* wanted = std::getenv("TWIN_OPERATIONS");
  return wanted ? std::atoi(wanted) : 3000;
}

/// The process, or the thread, would stop here.
struct Stops {};

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  unsigned below(unsigned count) { return static_cast<unsigned>(engine_() % count); }
  bool oneIn(unsigned count) { return below(count) == 0; }
  template <class List>
  auto oneOf(const List& list) {
    return list[below(static_cast<unsigned>(list.size()))];
  }

 private:
  std::mt19937 engine_;
};

/// A driver's rules, told step by step with everything that it ever heard at hand: what it sends, and what
/// its hosts hear. An operation that a twin does not override is one that its driver ignores.
class Twin {
 public:
  virtual ~Twin() = default;

  virtual void startDeivce() {}
  virtual void stopStressDevice() {}
  virtual void setLoad(float /*kmph_or_power*/, float /*grade*/) {}
  virtual void requestLoad() {}
  virtual void deviceState() {}
  virtual void startBP() {}
  virtual void breakBP() {}
  virtual void requestBP() {}
  virtual void clearBP() {}
  virtual void requestSpO2() {}
  /// A chunk that is not empty.
  virtual void receive(ByteView /*chunk*/) {}
  virtual void advance(Duration duration) { now += duration; }

  /// The next chunk that the device might send: most lead deep into the rules.
  virtual Bytes chunk(Random& random) { return {static_cast<std::uint8_t>(random.below(256))}; }

  bool hasPort = true;
  Duration now{};
  std::vector<Bytes> sent;
  RecordedCalls calls;
  /// Of the manager's delegate.
  RecordedCalls managerCalls;

 protected:
  void send(const Bytes& bytes) {
    if (hasPort && !bytes.empty()) sent.push_back(bytes);
  }
  void sendText(std::string_view characters) { send(text(characters)); }
};

}  // namespace tarsil::twins
