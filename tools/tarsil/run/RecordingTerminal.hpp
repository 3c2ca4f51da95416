#pragma once

#include <memory>
#include <string>

#include "tarsil/platform/TerminalWrapper.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// Another terminal, whose bytes in both directions are also told to the traffic. Any thread.
class RecordingTerminal final : public TerminalWrapper {
 public:
  RecordingTerminal(std::shared_ptr<Terminal> terminal, std::string port, std::shared_ptr<Traffic> traffic);

  ssize_t read(int descriptor, void* buffer, std::size_t size) override;
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override;

 private:
  void record(Chunk::Direction direction, const void* bytes, ssize_t count);

  const std::string port_;
  const std::shared_ptr<Traffic> traffic_;
};

}  // namespace tarsil::cli
