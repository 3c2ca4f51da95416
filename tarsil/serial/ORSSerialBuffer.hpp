#pragma once

#include <cstdint>
#include <memory>

#include "tarsil/runtime/Observable.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

namespace detail {
class SlidingBytes;
}

/// The newest bytes of a stream, up to a maximum length; older ones fall out. Observers of "data" hear of
/// every change, on the thread that makes it. One thread at a time.
class ORSSerialBuffer : public Observable {
 public:
  /// Throws std::logic_error: a buffer needs its maximum length.
  ORSSerialBuffer();
  /// In bytes. Nothing is allocated ahead, so every number is fine; 0 gives a buffer that stays empty.
  explicit ORSSerialBuffer(std::uint64_t maximumLength);
  ~ORSSerialBuffer();

  ORSSerialBuffer(const ORSSerialBuffer&) = delete;
  ORSSerialBuffer& operator=(const ORSSerialBuffer&) = delete;

  std::uint64_t maximumLength() const;

  /// Takes constant time per byte on average, full or not. The bytes must not be this buffer's own view.
  void appendData(ByteView data);
  void clearBuffer();

  /// A copy of the bytes held, oldest first.
  Bytes data() const;
  /// The same without a copy; valid until the buffer changes.
  ByteView view() const;

 private:
  std::unique_ptr<detail::SlidingBytes> bytes_;
};

}  // namespace tarsil
