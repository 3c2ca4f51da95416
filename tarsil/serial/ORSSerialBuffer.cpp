#include "tarsil/serial/ORSSerialBuffer.hpp"

#include <stdexcept>

#include "tarsil/serial/detail/SlidingBytes.hpp"

namespace tarsil {

ORSSerialBuffer::ORSSerialBuffer() {
  throw std::logic_error("Use -[ORSSerialBuffer initWithMaximumLength:]");
}

ORSSerialBuffer::ORSSerialBuffer(std::uint64_t maximumLength)
    : bytes_(std::make_unique<detail::SlidingBytes>(maximumLength)) {}

ORSSerialBuffer::~ORSSerialBuffer() = default;

std::uint64_t ORSSerialBuffer::maximumLength() const {
  return bytes_->maximumLength();
}

void ORSSerialBuffer::appendData(ByteView data) {
  bytes_->append(data);
  announce("data");
}

void ORSSerialBuffer::clearBuffer() {
  bytes_->clear();
  announce("data");
}

Bytes ORSSerialBuffer::data() const {
  const ByteView bytes = view();
  return {bytes.begin(), bytes.end()};
}

ByteView ORSSerialBuffer::view() const {
  return bytes_->view();
}

}  // namespace tarsil
