#include "tools/tarsil/run/RecordingTerminal.hpp"

#include <utility>

namespace tarsil::cli {

RecordingTerminal::RecordingTerminal(std::shared_ptr<Terminal> terminal, std::string port,
                                     std::shared_ptr<Traffic> traffic)
    : terminal_(std::move(terminal)), port_(std::move(port)), traffic_(std::move(traffic)) {}

int RecordingTerminal::open(const std::string& path) {
  return terminal_->open(path);
}

int RecordingTerminal::clearStatusFlags(int descriptor) {
  return terminal_->clearStatusFlags(descriptor);
}

int RecordingTerminal::getAttributes(int descriptor, TerminalAttributes& attributes) {
  return terminal_->getAttributes(descriptor, attributes);
}

int RecordingTerminal::setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) {
  return terminal_->setAttributes(descriptor, when, attributes);
}

int RecordingTerminal::setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) {
  return terminal_->setSpecialSpeed(descriptor, attributes);
}

int RecordingTerminal::getModemLines(int descriptor, int& lines) {
  return terminal_->getModemLines(descriptor, lines);
}

int RecordingTerminal::setModemLines(int descriptor, int lines) {
  return terminal_->setModemLines(descriptor, lines);
}

ssize_t RecordingTerminal::read(int descriptor, void* buffer, std::size_t size) {
  const ssize_t count = terminal_->read(descriptor, buffer, size);
  record(Chunk::Direction::received, buffer, count);
  return count;
}

ssize_t RecordingTerminal::write(int descriptor, const void* bytes, std::size_t size) {
  const ssize_t count = terminal_->write(descriptor, bytes, size);
  record(Chunk::Direction::sent, bytes, count);
  return count;
}

int RecordingTerminal::duplicate(int descriptor) {
  return terminal_->duplicate(descriptor);
}

int RecordingTerminal::close(int descriptor) {
  return terminal_->close(descriptor);
}

void RecordingTerminal::record(Chunk::Direction direction, const void* bytes, ssize_t count) {
  if (count <= 0) return;
  traffic_->note(port_, direction,
                 ByteView(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count)));
}

}  // namespace tarsil::cli
