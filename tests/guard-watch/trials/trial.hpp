#pragma once

#include <cstdint>
#include <string_view>

#include "tarsil/guard/watch/Watcher.hpp"

/// What the program that fails and the program that looks on agree about.
namespace tarsil::trial {

/// How a host can fail. A letter on its standard input makes it do so by itself; the others are done to it.
struct Fault {
  std::string_view name;
  char order;
  /// A signal that is sent to it, or to its whole process group, instead of an order.
  int signal = 0;
  bool hitsGroup = false;
};

constexpr char orderedAbort = 'a';
constexpr char orderedStackOverflow = 's';
constexpr char orderedExhaustion = 'm';
constexpr char orderedEndlessLoop = 'l';
constexpr char orderedExit = 'e';
constexpr char orderedOtherProgram = 'p';

/// What a host says instead of a heartbeat once its watcher has taken over.
constexpr std::int64_t tookOver = -1;

constexpr Duration heartbeat = std::chrono::milliseconds(500);

/// Short, so that many trials take little time; with a second part, as for a treadmill that is slowed down
/// first.
inline std::vector<Watcher::Step> stop() {
  using namespace std::chrono_literals;
  return {{.bytes = {0x02, 0x20, 0x02}, .every = 20ms, .times = 4},
          {.bytes = {0xA2}, .every = 20ms, .times = 2}};
}

}  // namespace tarsil::trial
