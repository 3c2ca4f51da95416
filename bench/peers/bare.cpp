// The limits: nothing but the system's calls.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "bench/peers/Peer.hpp"

namespace peers {
namespace {

constexpr int patience = 10'000;  // ms

int openedRaw(const std::string& path) {
  const int line = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios modes{};
  tcgetattr(line, &modes);
  cfmakeraw(&modes);
  tcsetattr(line, TCSANOW, &modes);
  return line;
}

class OneThread final : public Peer {
 public:
  std::string name() const override { return "bare, one thread"; }
  bool readsInBackground() const override { return false; }
  void open(const std::string& path) override { line_ = openedRaw(path); }
  bool send(const std::string& bytes) override {
    return ::write(line_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  bool receive(std::size_t count) override {
    while (count > 0) {
      pollfd input{line_, POLLIN, 0};
      if (poll(&input, 1, patience) != 1) return false;
      const ssize_t some = ::read(line_, buffer_.data(), std::min(buffer_.size(), count));
      if (some <= 0) return false;
      count -= static_cast<std::size_t>(some);
    }
    return true;
  }
  void close() override { ::close(line_); }

 private:
  int line_ = -1;
  std::array<char, 1024> buffer_{};
};

/// A thread that reads, and the main thread, which it wakes.
class TwoThreads final : public Peer {
 public:
  std::string name() const override { return "bare, two threads"; }
  bool readsInBackground() const override { return true; }
  void open(const std::string& path) override {
    line_ = openedRaw(path);
    news_ = eventfd(0, EFD_CLOEXEC);
    end_ = eventfd(0, EFD_CLOEXEC);
    handedOver_ = 0;
    taken_ = 0;
    reader_ = std::thread([this] { read(); });
  }
  bool send(const std::string& bytes) override {
    return ::write(line_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  bool receive(std::size_t count) override {
    taken_ += count;
    while (handedOver_ < taken_) {
      pollfd news{news_, POLLIN, 0};
      std::uint64_t times = 0;
      if (poll(&news, 1, patience) != 1 || ::read(news_, &times, sizeof times) < 0) return false;
    }
    return true;
  }
  void close() override {
    const std::uint64_t once = 1;
    if (::write(end_, &once, sizeof once) > 0) reader_.join();
    for (const int descriptor : {line_, news_, end_}) ::close(descriptor);
  }

 private:
  void read() {
    std::array<char, 1024> buffer{};
    for (;;) {
      std::array<pollfd, 2> ready{pollfd{line_, POLLIN, 0}, pollfd{end_, POLLIN, 0}};
      poll(ready.data(), ready.size(), -1);
      if (ready[1].revents != 0) return;
      const ssize_t some = ::read(line_, buffer.data(), buffer.size());
      if (some <= 0) continue;
      handedOver_ += static_cast<std::size_t>(some);
      const std::uint64_t once = 1;
      if (::write(news_, &once, sizeof once) < 0) return;
    }
  }

  int line_ = -1;
  int news_ = -1;
  int end_ = -1;
  std::atomic<std::size_t> handedOver_ = 0;
  std::size_t taken_ = 0;
  std::thread reader_;
};

}  // namespace

void addBare(Peers& peers) {
  peers.push_back(std::make_unique<TwoThreads>());
  peers.push_back(std::make_unique<OneThread>());
}

}  // namespace peers
