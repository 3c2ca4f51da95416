#include "simulators/lines/CableBehaviour.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr Duration longestTime = 10s;
constexpr std::int64_t largestPacket = 4096;
constexpr std::size_t usualPacket = 62;  // a full-speed USB packet of 64 bytes, less two of modem status

[[noreturn]] void refuse(std::string_view word, const std::string& why) {
  throw std::invalid_argument("cable: \"" + std::string(word) + "\" " + why);
}

struct Unit {
  std::string_view name;
  Duration length;
};

/// The longest name that fits comes first: "ms" ends in "s" as well.
constexpr std::array units{Unit{"us", 1us}, Unit{"ms", 1ms}, Unit{"s", 1s}};

Duration readTime(std::string_view word, std::string_view value) {
  for (const Unit& unit : units) {
    if (!value.ends_with(unit.name)) continue;
    const auto number = readDouble(value.substr(0, value.size() - unit.name.size()));
    if (!number) continue;
    const double nanoseconds = *number * static_cast<double>(unit.length.count());
    if (nanoseconds >= 0.0 && nanoseconds <= static_cast<double>(longestTime.count())) {
      return Duration(std::llround(nanoseconds));
    }
  }
  refuse(word, "has no time from 0 to 10 s, such as 16ms");
}

std::string textOf(Duration time) {
  for (auto unit = units.rbegin(); unit != units.rend(); ++unit) {
    if (time % unit->length == Duration::zero()) {
      return std::to_string(time / unit->length) + std::string(unit->name);
    }
  }
  return decimalText(std::chrono::duration<double, std::micro>(time).count()) + "us";
}

double readChance(std::string_view word, std::string_view value) {
  const std::size_t slash = value.find('/');
  const auto part = readDouble(value.substr(0, slash));
  const auto whole = slash == std::string_view::npos ? 1.0 : readDouble(value.substr(slash + 1));
  if (part && whole && *part >= 0.0 && *whole > 0.0 && std::isfinite(*whole) && *part <= *whole) {
    return *part / *whole;
  }
  refuse(word, "has no chance from 0 to 1, such as 1/200");
}

std::int64_t readCount(std::string_view word, std::string_view value, std::int64_t least,
                       std::int64_t largest) {
  const auto count = readInteger(value);
  if (count && *count >= least && *count <= largest) return *count;
  refuse(word, "has no whole number from " + std::to_string(least) + " to " + std::to_string(largest));
}

struct Fault {
  std::string_view name;
  ByteFault fault;
  double WayBehaviour::*chance;
};

constexpr std::array faults{Fault{"lose", ByteFault::lose, &WayBehaviour::lose},
                            Fault{"double", ByteFault::repeat, &WayBehaviour::repeat},
                            Fault{"change", ByteFault::change, &WayBehaviour::change},
                            Fault{"add", ByteFault::add, &WayBehaviour::add}};

/// Null for a name that is no fault.
const Fault* faultNamed(std::string_view name) {
  const auto fault =
      std::find_if(faults.begin(), faults.end(), [&](const Fault& f) { return f.name == name; });
  return fault == faults.end() ? nullptr : &*fault;
}

constexpr std::string_view ofReplies = "replies.";
constexpr std::string_view ofCommands = "commands.";

void mute(CableBehaviour& cable, std::string_view word, std::string_view value) {
  if (value != "replies" && value != "commands" && value != "both") {
    refuse(word, "mutes neither replies nor commands nor both");
  }
  cable.replies.muted = cable.replies.muted || value != "commands";
  cable.commands.muted = cable.commands.muted || value != "replies";
}

bool setFault(CableBehaviour& cable, std::string_view word, std::string_view name, std::string_view value) {
  const bool onlyReplies = name.starts_with(ofReplies);
  const bool onlyCommands = name.starts_with(ofCommands);
  if (onlyReplies) name.remove_prefix(ofReplies.size());
  if (onlyCommands) name.remove_prefix(ofCommands.size());
  const Fault* fault = faultNamed(name);
  if (!fault) return false;
  const double chance = readChance(word, value);
  if (!onlyCommands) cable.replies.*(fault->chance) = chance;
  if (!onlyReplies) cable.commands.*(fault->chance) = chance;
  return true;
}

bool setKind(CableBehaviour& cable, std::string_view word) {
  const auto be = [&cable](const CableBehaviour& kind) {
    cable.gentle = kind.gentle;
    cable.latency = kind.latency;
    cable.packet = kind.packet;
  };
  if (word == "wire") return be(CableBehaviour::wire()), true;
  if (word == "adapter") return be(CableBehaviour::adapter()), true;
  if (word == "gentle") return be(CableBehaviour::gentleLine()), true;
  return false;
}

void set(CableBehaviour& cable, std::string_view word) {
  if (setKind(cable, word)) return;
  const std::size_t equals = std::min(word.find('='), word.size());
  const std::string_view name = word.substr(0, equals);
  const std::string_view value = word.substr(std::min(equals + 1, word.size()));
  if (name == "latency") {
    cable.latency = readTime(word, value);
  } else if (name == "packet") {
    cable.packet = static_cast<std::size_t>(readCount(word, value, 1, largestPacket));
  } else if (name == "delay") {
    cable.delay = readTime(word, value);
  } else if (name == "split") {
    cable.split = readChance(word, value);
  } else if (name == "join") {
    cable.join = readChance(word, value);
  } else if (name == "seed") {
    cable.seed =
        static_cast<std::uint32_t>(readCount(word, value, 0, std::numeric_limits<std::uint32_t>::max()));
  } else if (name == "mute") {
    mute(cable, word, value);
  } else if (!setFault(cable, word, name, value)) {
    refuse(word,
           "is none of wire, adapter, gentle, latency=, packet=, delay=, split=, join=, lose=, double=, "
           "change=, add=, mute=, seed=");
  }
}

void check(const CableBehaviour& cable, std::string_view text) {
  if (cable.packet > 0 && cable.latency == Duration::zero()) {
    refuse(text, "would keep what is less than a packet for ever: give it a latency");
  }
  if (cable.gentle &&
      (cable.hasAdapter() || cable.delay > Duration::zero() || cable.split > 0.0 || cable.join > 0.0)) {
    refuse(text, "cannot be gentle and have an adapter, a delay, splits or joins");
  }
}

void append(std::string& text, const std::string& word) {
  if (!text.empty()) text += ',';
  text += word;
}

void appendChance(std::string& text, const std::string& name, double chance) {
  if (chance > 0.0) append(text, name + "=" + decimalText(chance));
}

}  // namespace

std::optional<ByteFault> byteFaultNamed(std::string_view word) {
  const Fault* fault = faultNamed(word);
  return fault ? std::optional(fault->fault) : std::nullopt;
}

CableBehaviour CableBehaviour::adapter() {
  CableBehaviour cable;
  cable.latency = 16ms;
  cable.packet = usualPacket;
  return cable;
}

CableBehaviour CableBehaviour::gentleLine() {
  CableBehaviour cable;
  cable.gentle = true;
  return cable;
}

CableBehaviour CableBehaviour::read(std::string_view text) {
  CableBehaviour cable;
  std::string_view rest = text;
  for (;;) {
    const std::size_t comma = std::min(rest.find(','), rest.size());
    set(cable, rest.substr(0, comma));
    if (comma == rest.size()) break;
    rest.remove_prefix(comma + 1);
  }
  if (cable.latency > Duration::zero() && cable.packet == 0) cable.packet = usualPacket;
  check(cable, text);
  return cable;
}

std::string CableBehaviour::text() const {
  std::string text;
  if (gentle) append(text, "gentle");
  if (hasAdapter()) {
    append(text, "latency=" + textOf(latency));
    append(text, "packet=" + std::to_string(packet));
  }
  if (delay > Duration::zero()) append(text, "delay=" + textOf(delay));
  appendChance(text, "split", split);
  appendChance(text, "join", join);
  for (const Fault& fault : faults) {
    const std::string name(fault.name);
    if (replies.*(fault.chance) == commands.*(fault.chance)) {
      appendChance(text, name, replies.*(fault.chance));
    } else {
      appendChance(text, std::string(ofReplies) + name, replies.*(fault.chance));
      appendChance(text, std::string(ofCommands) + name, commands.*(fault.chance));
    }
  }
  if (replies.muted || commands.muted) {
    append(text, std::string("mute=") + (!commands.muted ? "replies" : !replies.muted ? "commands" : "both"));
  }
  if (seed != 1) append(text, "seed=" + std::to_string(seed));
  return text.empty() ? "wire" : text;
}

CableBehaviour usualCable() {
  return CableBehaviour::adapter();
}

}  // namespace tarsil::simulators
