#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "tarsil/support/bytes.hpp"

namespace tarsil::cli {

/// A host of a TrackMaster that has its terminal open and waits for what it says.
class TrackMasterHost {
 public:
  explicit TrackMasterHost(const std::string& path) : descriptor_(open(path.c_str(), O_RDWR | O_NOCTTY)) {}
  ~TrackMasterHost() { close(descriptor_); }
  TrackMasterHost(const TrackMasterHost&) = delete;
  TrackMasterHost& operator=(const TrackMasterHost&) = delete;

  void ask(const Bytes& command) const {
    EXPECT_EQ(write(descriptor_, command.data(), command.size()), static_cast<ssize_t>(command.size()));
  }
  void waitForAnswer() const {
    pollfd readable{.fd = descriptor_, .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, 10'000), 1) << "nothing comes";
  }
  /// What one call of `read` gives; empty when the other side hung up.
  Bytes read() const {
    waitForAnswer();
    Bytes bytes(4096);
    const ssize_t count = ::read(descriptor_, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  /// As many bytes, in however many pieces.
  Bytes read(std::size_t count) const {
    Bytes all;
    while (all.size() < count) {
      const Bytes more = read();
      if (more.empty()) break;
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }

 private:
  const int descriptor_;
};

namespace track_master {

inline const Bytes startBelt{0xA1};
inline const Bytes requestSpeed{0xC1};
inline constexpr std::uint8_t started = 0xB1;
inline constexpr std::uint8_t disabled = 0xBF;
inline const Bytes standing{0xD1, '0', '0', '0', '0'};

}  // namespace track_master

}  // namespace tarsil::cli
