#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tarsil/support/FileDescriptor.hpp"

namespace tarsil {

/// Two ends of one connection.
struct Pair {
  FileDescriptor reading;
  FileDescriptor writing;
};

inline Pair makePipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

inline Pair makeSockets() {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// The reading side is the terminal that a port would open, the writing one its other end.
inline Pair makeTerminal() {
  FileDescriptor controlling(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_EQ(grantpt(controlling.get()), 0);
  EXPECT_EQ(unlockpt(controlling.get()), 0);
  std::array<char, 64> name{};
  EXPECT_EQ(ptsname_r(controlling.get(), name.data(), name.size()), 0);
  FileDescriptor terminal(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios raw{};
  tcgetattr(terminal.get(), &raw);
  cfmakeraw(&raw);
  tcsetattr(terminal.get(), TCSANOW, &raw);
  return {std::move(terminal), std::move(controlling)};
}

inline void send(const FileDescriptor& descriptor, const std::string& text) {
  ASSERT_EQ(write(descriptor.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

/// At most `most` bytes; an empty text at the end of the stream and after a hang-up.
inline std::string receive(int descriptor, std::size_t most = 1024) {
  std::string text(most, '\0');
  const auto count = read(descriptor, text.data(), text.size());
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

}  // namespace tarsil
