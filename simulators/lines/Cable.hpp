#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>

#include "simulators/Random.hpp"
#include "simulators/lines/CableBehaviour.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

/// One way of a cable: what is put in comes out at the other end when, in what pieces and as damaged as the
/// cable's behaviour says. It lives in the time of the calling thread's run loop, virtual or the machine's.
class CableWay {
 public:
  /// Takes what arrives, one call for each piece that a reader gets at once.
  using End = std::function<void(const Bytes&)>;

  /// `baudRate` in bit/s.
  CableWay(const CableBehaviour& behaviour, Way way, std::uint64_t baudRate, End end);
  ~CableWay();
  CableWay(const CableWay&) = delete;
  CableWay& operator=(const CableWay&) = delete;

  /// Puts a message on the line; `inOnePiece` matters to a gentle line only.
  void put(ByteView message, bool inOnePiece);
  /// The next message suffers this fault in its middle. Several wait for a message each.
  void cue(ByteFault fault) { cues_.push_back(fault); }
  /// Nothing gets through, what is under way included.
  void mute(bool muted);
  /// What is under way is lost.
  void clear();
  /// Bytes that were put in so far, and what became of them.
  struct Count {
    std::uint64_t put = 0, lost = 0, repeated = 0, changed = 0, added = 0;
  };
  const Count& count() const { return count_; }

 private:
  /// Bytes on the line that arrive together.
  struct Arrival {
    Clock::Instant when;
    Bytes bytes;
  };
  /// What the far end gets in one piece.
  struct Piece {
    Clock::Instant when;
    Bytes bytes;
    /// Waits for the piece after it.
    bool isJoined = false;
  };

  Bytes damaged(ByteView message);
  void appendDamaged(Bytes& bytes, std::uint8_t byte);
  void suffer(ByteFault fault, Bytes& bytes, std::size_t position);
  std::uint8_t otherThan(std::uint8_t byte);
  void putOnLine(ByteView bytes, std::size_t bytesTogether);
  Clock::Instant nextHandover() const;
  Clock::Instant adapterHandover() const;
  void handOver(Clock::Instant now);
  void sendOn(Bytes bytes, Clock::Instant now);
  void deliverDue(Clock::Instant now);
  void proceed();
  void schedule();

  const CableBehaviour behaviour_;
  const Way way_;
  const WayBehaviour faults_;
  const std::uint64_t baudRate_;
  const End end_;
  Random random_;
  bool muted_;
  std::deque<ByteFault> cues_;
  Count count_;

  /// The line, and behind it the adapter's buffer: both hold what was not handed over yet.
  std::deque<Arrival> line_;
  Clock::Instant lineIsFree_;
  Clock::Instant lastHandover_;
  /// What was handed over and has not arrived, by its time.
  std::deque<Piece> pieces_;
  std::shared_ptr<Timer> timer_;
};

/// What stands between a simulated device and its host: a line, perhaps an adapter, and what plugs and wear
/// do to both. Main thread.
class Cable {
 public:
  Cable(const CableBehaviour& behaviour, std::uint64_t baudRate, CableWay::End host, CableWay::End device);

  const CableBehaviour& behaviour() const { return behaviour_; }

  /// A message of the device, for the host. While the cable is unplugged it is lost.
  void putReply(ByteView message, bool inOnePiece);
  /// What the host wrote at once, for the device. While the cable is unplugged it is lost.
  void putCommand(ByteView bytes);

  CableWay& replies() { return replies_; }
  CableWay& commands() { return commands_; }
  CableWay& operator[](Way way) { return way == Way::replies ? replies_ : commands_; }

  /// What is under way is lost, and nothing gets through until it is plugged in.
  void unplug();
  void plugIn() { isPluggedIn_ = true; }
  bool isPluggedIn() const { return isPluggedIn_; }

 private:
  const CableBehaviour behaviour_;
  CableWay replies_;
  CableWay commands_;
  bool isPluggedIn_ = true;
};

}  // namespace tarsil::simulators
