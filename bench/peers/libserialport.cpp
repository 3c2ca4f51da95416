#include "bench/peers/Peer.hpp"

#if __has_include(<libserialport.h>)
#include <libserialport.h>

#include <algorithm>
#include <array>

namespace peers {
namespace {

class Port final : public Peer {
 public:
  std::string name() const override { return "libserialport"; }
  bool readsInBackground() const override { return false; }
  void open(const std::string& path) override {
    if (sp_get_port_by_name(path.c_str(), &port_) != SP_OK) port_ = nullptr;
    // A pseudo-terminal has no modem lines to set, which this library takes for a failure of opening.
    isOpen_ = port_ != nullptr && sp_open(port_, SP_MODE_READ_WRITE) == SP_OK;
  }
  bool send(const std::string& bytes) override {
    return isOpen_ &&
           sp_blocking_write(port_, bytes.data(), bytes.size(), 10'000) == static_cast<int>(bytes.size());
  }
  bool receive(std::size_t count) override {
    while (isOpen_ && count > 0) {
      const int some = sp_blocking_read_next(port_, buffer_.data(), std::min(buffer_.size(), count), 10'000);
      if (some <= 0) return false;
      count -= static_cast<std::size_t>(some);
    }
    return isOpen_;
  }
  void close() override {
    if (isOpen_) sp_close(port_);
    if (port_ != nullptr) sp_free_port(port_);
    port_ = nullptr;
    isOpen_ = false;
  }

 private:
  sp_port* port_ = nullptr;
  bool isOpen_ = false;
  std::array<char, 1024> buffer_{};
};

}  // namespace

void addLibserialport(Peers& peers) {
  peers.push_back(std::make_unique<Port>());
}

}  // namespace peers
#else
void peers::addLibserialport(Peers& /*peers*/) {}
#endif
