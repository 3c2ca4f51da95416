#include "tools/tarsil/run/RecordingTerminal.hpp"

#include <utility>

namespace tarsil::cli {

RecordingTerminal::RecordingTerminal(std::shared_ptr<Terminal> terminal, std::string port,
                                     std::shared_ptr<Traffic> traffic)
    : TerminalWrapper(std::move(terminal)), port_(std::move(port)), traffic_(std::move(traffic)) {}

ssize_t RecordingTerminal::read(int descriptor, void* buffer, std::size_t size) {
  const ssize_t count = TerminalWrapper::read(descriptor, buffer, size);
  record(Chunk::Direction::received, buffer, count);
  return count;
}

ssize_t RecordingTerminal::write(int descriptor, const void* bytes, std::size_t size) {
  const ssize_t count = TerminalWrapper::write(descriptor, bytes, size);
  record(Chunk::Direction::sent, bytes, count);
  return count;
}

void RecordingTerminal::record(Chunk::Direction direction, const void* bytes, ssize_t count) {
  if (count <= 0) return;
  traffic_->note(port_, direction,
                 ByteView(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count)));
}

}  // namespace tarsil::cli
