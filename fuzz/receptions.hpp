#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>

#include "tarsil/support/bytes.hpp"
#include "tarsil/support/process.hpp"

/// What a stop of the process, or of the thread, is while `receiveAll` runs.
struct ProcessStopped {};

/// Cuts the fuzzer's bytes into chunks, as a port might read them, and hands them over one by one until they
/// end or one of them stops the process or never returns, which many may. Each chunk has its length in front
/// of it, 31 bytes at most. Nothing is printed meanwhile.
inline void receiveAll(tarsil::ByteView bytes, const std::function<void(tarsil::ByteView)>& receive) {
  const auto before = tarsil::exchangeProcessHooks({.fatal = [](std::string_view) { throw ProcessStopped(); },
                                                    .neverReturn = [] { throw ProcessStopped(); },
                                                    .print = [](std::string_view, tarsil::PrintedText) {}});
  try {
    while (!bytes.empty()) {
      const std::size_t length = std::min<std::size_t>(bytes.front() % 32U, bytes.size() - 1);
      receive(bytes.subspan(1, length));
      bytes = bytes.subspan(1 + length);
    }
  } catch (const ProcessStopped&) {
  }
  tarsil::exchangeProcessHooks(before);
}
