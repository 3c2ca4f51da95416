#include "tarsil/serial/detail/SequenceMatcher.hpp"

#include <utility>

namespace tarsil::detail {

SequenceMatcher::SequenceMatcher(Bytes sequence) : finder_(std::move(sequence)) {}

std::optional<Bytes> SequenceMatcher::append(std::uint8_t byte) {
  if (!finder_.feed(byte)) return std::nullopt;
  finder_.reset();
  return finder_.sequence();
}

}  // namespace tarsil::detail
