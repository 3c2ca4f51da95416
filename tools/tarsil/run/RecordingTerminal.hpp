#pragma once

#include <memory>
#include <string>

#include "tarsil/platform/Terminal.hpp"
#include "tools/tarsil/run/Traffic.hpp"

namespace tarsil::cli {

/// Another terminal, whose bytes in both directions are also told to the traffic. Any thread.
class RecordingTerminal final : public Terminal {
 public:
  RecordingTerminal(std::shared_ptr<Terminal> terminal, std::string port, std::shared_ptr<Traffic> traffic);

  int open(const std::string& path) override;
  int clearStatusFlags(int descriptor) override;
  int getAttributes(int descriptor, TerminalAttributes& attributes) override;
  int setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override;
  int setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override;
  int getModemLines(int descriptor, int& lines) override;
  int setModemLines(int descriptor, int lines) override;
  ssize_t read(int descriptor, void* buffer, std::size_t size) override;
  ssize_t write(int descriptor, const void* bytes, std::size_t size) override;
  int duplicate(int descriptor) override;
  int close(int descriptor) override;

 private:
  void record(Chunk::Direction direction, const void* bytes, ssize_t count);

  const std::shared_ptr<Terminal> terminal_;
  const std::string port_;
  const std::shared_ptr<Traffic> traffic_;
};

}  // namespace tarsil::cli
