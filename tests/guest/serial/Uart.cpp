#include "tests/guest/serial/Uart.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace tarsil {
namespace {

/// A door of the guest to the machine that it runs in, by its name.
int openDoor(const std::string& name, int flags) {
  for (const auto& door : std::filesystem::directory_iterator("/sys/class/virtio-ports")) {
    std::string found;
    std::getline(std::ifstream(door.path() / "name"), found);
    if (found == name) return open(("/dev/" + door.path().filename().string()).c_str(), flags | O_CLOEXEC);
  }
  return -1;
}

/// A command to the machine, and its answer.
void tell(int monitor, std::string_view command) {
  EXPECT_EQ(write(monitor, command.data(), command.size()), static_cast<ssize_t>(command.size()));
  std::array<char, 4096> answer{};
  EXPECT_GT(read(monitor, answer.data(), answer.size() - 1), 0);
  EXPECT_NE(std::string_view(answer.data()).find("return"), std::string_view::npos) << answer.data();
}

/// Greets, and has to be answered, before it obeys.
int openMonitor() {
  const int monitor = openDoor("monitor", O_RDWR);
  std::array<char, 4096> greeting{};
  EXPECT_GT(read(monitor, greeting.data(), greeting.size()), 0);
  tell(monitor, R"({"execute": "qmp_capabilities"})");
  return monitor;
}

}  // namespace

Uart::Uart() : line_(openDoor("line", O_RDWR | O_NONBLOCK)) {
  EXPECT_GE(line_, 0);
  read();
}

Uart::~Uart() {
  close(line_);
}

Bytes Uart::read() {
  Bytes all;
  std::array<std::uint8_t, 4096> buffer;
  for (;;) {
    const ssize_t count = ::read(line_, buffer.data(), buffer.size());
    if (count <= 0) return all;
    all.insert(all.end(), buffer.begin(), buffer.begin() + count);
  }
}

void Uart::write(ByteView bytes) {
  EXPECT_EQ(::write(line_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

void Uart::sendBreak() {
  static const int monitor = openMonitor();
  tell(monitor, R"({"execute": "chardev-send-break", "arguments": {"id": "line"}})");
}

std::string Uart::settings() {
  std::ifstream log("/run/hardware/log");
  std::string last;
  for (std::string line; std::getline(log, line);) last = line;
  unsigned long speed = 0;
  char parity = 0;
  int dataBits = 0;
  int stopBits = 0;
  EXPECT_EQ(std::sscanf(last.c_str(), "serial_update_parameters baudrate=%lu parity='%c' data=%d stop=%d",
                        &speed, &parity, &dataBits, &stopBits),
            4)
      << last;
  return std::to_string(speed) + " " + std::to_string(dataBits) + parity + std::to_string(stopBits);
}

}  // namespace tarsil
