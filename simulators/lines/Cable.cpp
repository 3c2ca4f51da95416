#include "simulators/lines/Cable.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

/// Between the two halves of what was split: long enough for a reader to get them one after the other.
constexpr Duration splitPause = 2ms;
/// The longest that something waits for what comes after it.
constexpr Duration joinPatience = 50ms;

/// How long the bytes take at this speed (bit/s): a start bit, eight data bits and a stop bit each.
Duration timeOnTheLine(std::size_t bytes, std::uint64_t baudRate) {
  const double bits = 10.0 * static_cast<double>(bytes);
  return std::chrono::duration_cast<Duration>(
      std::chrono::duration<double>(bits / static_cast<double>(baudRate)));
}

/// The two ways of one cable have faults of their own.
std::uint32_t seedOf(const CableBehaviour& behaviour, Way way) {
  return behaviour.seed * 2654435761U + (way == Way::replies ? 1U : 2U);
}

}  // namespace

CableWay::CableWay(const CableBehaviour& behaviour, Way way, std::uint64_t baudRate, End end)
    : behaviour_(behaviour),
      way_(way),
      faults_(way == Way::replies ? behaviour.replies : behaviour.commands),
      baudRate_(baudRate),
      end_(std::move(end)),
      random_(seedOf(behaviour, way)),
      muted_(faults_.muted),
      lineIsFree_(Clock::now()),
      // An adapter's timer runs all the time, so it has got anywhere when the first byte comes.
      lastHandover_(Clock::now() -
                    Duration(random_.below(static_cast<std::uint64_t>(behaviour.latency.count())))) {}

CableWay::~CableWay() {
  if (timer_) timer_->invalidate();
}

void CableWay::put(ByteView message, bool inOnePiece) {
  count_.put += message.size();
  if (muted_) {
    count_.lost += message.size();
    return;
  }
  const Bytes bytes = damaged(message);
  const bool stayTogether = way_ == Way::commands || (behaviour_.gentle && inOnePiece);
  putOnLine(bytes, stayTogether ? bytes.size() : 1);
  proceed();
}

void CableWay::mute(bool muted) {
  muted_ = muted;
  if (muted) clear();
}

void CableWay::clear() {
  line_.clear();
  pieces_.clear();
  lineIsFree_ = Clock::now();
}

Bytes CableWay::damaged(ByteView message) {
  Bytes bytes;
  for (const std::uint8_t byte : message) appendDamaged(bytes, byte);
  if (cues_.empty() || bytes.empty()) return bytes;
  const ByteFault fault = cues_.front();
  cues_.pop_front();
  suffer(fault, bytes, bytes.size() / 2);
  return bytes;
}

void CableWay::appendDamaged(Bytes& bytes, std::uint8_t byte) {
  bytes.push_back(byte);
  // The first fault that happens is the only one, and each is drawn for every byte: what one chance is set to
  // does not move the faults of another.
  const bool lost = random_.happens(faults_.lose);
  const bool repeated = random_.happens(faults_.repeat);
  const bool changed = random_.happens(faults_.change);
  const bool added = random_.happens(faults_.add);
  const std::size_t position = bytes.size() - 1;
  if (lost) return suffer(ByteFault::lose, bytes, position);
  if (repeated) return suffer(ByteFault::repeat, bytes, position);
  if (changed) return suffer(ByteFault::change, bytes, position);
  if (added) return suffer(ByteFault::add, bytes, position);
}

void CableWay::suffer(ByteFault fault, Bytes& bytes, std::size_t position) {
  const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(position);
  switch (fault) {
    case ByteFault::lose:
      ++count_.lost;
      bytes.erase(place);
      break;
    case ByteFault::repeat:
      ++count_.repeated;
      bytes.insert(place, bytes[position]);
      break;
    case ByteFault::change:
      ++count_.changed;
      *place = otherThan(*place);
      break;
    case ByteFault::add:
      ++count_.added;
      bytes.insert(place, static_cast<std::uint8_t>(random_.below(256)));
      break;
  }
}

std::uint8_t CableWay::otherThan(std::uint8_t byte) {
  return static_cast<std::uint8_t>(byte + 1 + random_.below(255));
}

void CableWay::putOnLine(ByteView bytes, std::size_t bytesTogether) {
  if (behaviour_.gentle && way_ == Way::commands) {
    line_.push_back({Clock::now(), Bytes(bytes.begin(), bytes.end())});
    return;
  }
  const Clock::Instant begin = std::max(Clock::now(), lineIsFree_);
  for (std::size_t end = bytesTogether; end <= bytes.size() && end > 0; end += bytesTogether) {
    const ByteView together = bytes.subspan(end - bytesTogether, bytesTogether);
    line_.push_back({begin + timeOnTheLine(end, baudRate_), Bytes(together.begin(), together.end())});
  }
  lineIsFree_ = begin + timeOnTheLine(bytes.size(), baudRate_);
}

Clock::Instant CableWay::nextHandover() const {
  // Only what comes from the device goes through the buffer of an adapter.
  return behaviour_.hasAdapter() && way_ == Way::replies ? adapterHandover() : line_.front().when;
}

Clock::Instant CableWay::adapterHandover() const {
  const Duration latency = behaviour_.latency;
  const Duration sinceLast = std::max(line_.front().when - lastHandover_, Duration(1));
  const Clock::Instant tick = lastHandover_ + (sinceLast + latency - Duration(1)) / latency * latency;
  if (line_.size() < behaviour_.packet) return tick;
  return std::min(tick, line_[behaviour_.packet - 1].when);
}

void CableWay::handOver(Clock::Instant now) {
  while (!line_.empty()) {
    Clock::Instant handover = nextHandover();
    if (handover > now) return;
    lastHandover_ = handover;
    // Without an adapter a late reader finds all that has come meanwhile; a gentle line waits for it.
    if (!behaviour_.hasAdapter() && !behaviour_.gentle && way_ == Way::replies) handover = now;
    Bytes packet = std::move(line_.front().bytes);
    line_.pop_front();
    const std::size_t largest = behaviour_.hasAdapter() ? behaviour_.packet : static_cast<std::size_t>(-1);
    const bool staysAlone = behaviour_.gentle || way_ == Way::commands;
    while (!staysAlone && !line_.empty() && line_.front().when <= handover && packet.size() < largest) {
      packet.insert(packet.end(), line_.front().bytes.begin(), line_.front().bytes.end());
      line_.pop_front();
    }
    sendOn(std::move(packet), handover);
  }
}

void CableWay::sendOn(Bytes bytes, Clock::Instant now) {
  const bool isSplit = random_.happens(behaviour_.split) && bytes.size() > 1;
  const bool isJoined = random_.happens(behaviour_.join);
  Clock::Instant when =
      now + Duration(random_.below(static_cast<std::uint64_t>(behaviour_.delay.count()) + 1));
  if (!pieces_.empty() && pieces_.back().isJoined) {
    Bytes waiting = std::move(pieces_.back().bytes);
    pieces_.pop_back();
    bytes.insert(bytes.begin(), waiting.begin(), waiting.end());
  }
  if (!pieces_.empty()) when = std::max(when, pieces_.back().when);
  if (isJoined) {
    pieces_.push_back({when + joinPatience, std::move(bytes), true});
  } else if (isSplit) {
    const auto half = bytes.begin() + 1 + static_cast<std::ptrdiff_t>(random_.below(bytes.size() - 1));
    pieces_.push_back({when, Bytes(bytes.begin(), half)});
    pieces_.push_back({when + splitPause, Bytes(half, bytes.end())});
  } else {
    pieces_.push_back({when, std::move(bytes)});
  }
}

void CableWay::deliverDue(Clock::Instant now) {
  while (!pieces_.empty() && pieces_.front().when <= now) {
    const Bytes bytes = std::move(pieces_.front().bytes);
    pieces_.pop_front();
    end_(bytes);
  }
}

void CableWay::proceed() {
  const Clock::Instant now = Clock::now();
  handOver(now);
  deliverDue(now);
  schedule();
}

void CableWay::schedule() {
  if (timer_) timer_->invalidate();
  timer_.reset();
  if (line_.empty() && pieces_.empty()) return;
  Clock::Instant next = Clock::Instant::max();
  if (!line_.empty()) next = nextHandover();
  if (!pieces_.empty()) next = std::min(next, pieces_.front().when);
  timer_ = Timer::scheduled(std::max(next - Clock::now(), Duration::zero()), false, [this](Timer&) {
    timer_.reset();
    proceed();
  });
}

Cable::Cable(const CableBehaviour& behaviour, std::uint64_t baudRate, CableWay::End host,
             CableWay::End device)
    : behaviour_(behaviour),
      replies_(behaviour, Way::replies, baudRate, std::move(host)),
      commands_(behaviour, Way::commands, baudRate, std::move(device)) {}

void Cable::putReply(ByteView message, bool inOnePiece) {
  if (isPluggedIn_) replies_.put(message, inOnePiece);
}

void Cable::putCommand(ByteView bytes) {
  if (isPluggedIn_) commands_.put(bytes, true);
}

void Cable::unplug() {
  isPluggedIn_ = false;
  replies_.clear();
  commands_.clear();
}

}  // namespace tarsil::simulators
