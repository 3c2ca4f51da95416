#include "tools/tarsil/replay/receiving.hpp"

namespace tarsil::cli {
namespace {

// A port reads at most this many bytes at once.
constexpr std::size_t longestRead = 1024;

/// Stands in for the driver while a chunk comes in several reads: the script says that it is one chunk.
class ChunkGatherer final : public ORSSerialPortDelegate {
 public:
  ChunkGatherer(ORSSerialPortDelegate& driver, std::size_t size) : driver_(driver), size_(size) {}

  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override {
    chunk_.insert(chunk_.end(), data.begin(), data.end());
    if (chunk_.size() == size_) driver_.serialPortDidReceiveData(port, chunk_);
  }

 private:
  ORSSerialPortDelegate& driver_;
  std::size_t size_;
  Bytes chunk_;
};

}  // namespace

doubles::ScriptedTerminal& scriptedTerminal(const ORSSerialPort& port) {
  return dynamic_cast<doubles::ScriptedTerminal&>(*port.device()->terminal);
}

void deliverChunk(VirtualTime& time, ORSSerialPort& port, ORSSerialPortDelegate& driver, const Bytes& chunk) {
  if (!port.isOpen() || chunk.empty()) return driver.serialPortDidReceiveData(port, chunk);
  const auto delegate = port.delegate();
  const auto gatherer = std::make_shared<ChunkGatherer>(driver, chunk.size());
  if (chunk.size() > longestRead) port.setDelegate(gatherer);
  scriptedTerminal(port).deliver(chunk);
  time.settle();
  port.setDelegate(delegate);
}

}  // namespace tarsil::cli
