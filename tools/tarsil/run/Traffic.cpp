#include "tools/tarsil/run/Traffic.hpp"

#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::cli {

void Traffic::note(const std::string& port, Chunk::Direction direction, ByteView bytes) {
  Chunk chunk{.at = {}, .port = port, .direction = direction, .bytes = Bytes(bytes.begin(), bytes.end())};
  const std::lock_guard lock(mutex_);
  chunk.at = Clock::now();
  DispatchQueue::main().async([self = shared_from_this(), chunk = std::move(chunk)] {
    if (self->reader_) self->reader_(chunk);
  });
}

}  // namespace tarsil::cli
