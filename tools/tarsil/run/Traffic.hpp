#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::cli {

/// Bytes that went over a line in one piece.
struct Chunk {
  enum class Direction : std::uint8_t { sent, received };

  Clock::Instant at;
  /// The port as the library names it.
  std::string port;
  Direction direction = Direction::sent;
  Bytes bytes;
};

/// Where the recording terminals bring what goes over their lines. The reader hears every chunk on the main
/// queue, in the order in which the bytes were moved.
class Traffic : public std::enable_shared_from_this<Traffic> {
 public:
  using Reader = std::function<void(const Chunk&)>;

  /// Null: nobody listens. Main thread.
  void setReader(Reader reader) { reader_ = std::move(reader); }
  /// Any thread. The object must live in a std::shared_ptr.
  void note(const std::string& port, Chunk::Direction direction, ByteView bytes);

 private:
  /// Keeps the times of chunks in the order of the queue.
  std::mutex mutex_;
  Reader reader_;
};

}  // namespace tarsil::cli
