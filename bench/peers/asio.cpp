#include "bench/peers/Peer.hpp"

#if __has_include(<asio.hpp>)
#include <array>
#include <asio.hpp>
#include <optional>
#include <thread>

namespace peers {
namespace {

/// A context of its own reads on a thread and posts what came to the main thread's context.
class ReaderThread final : public Peer {
 public:
  std::string name() const override { return "Asio, reader thread"; }
  bool readsInBackground() const override { return true; }
  void open(const std::string& path) override {
    main_.emplace();
    reading_.emplace();
    mainStays_.emplace(main_->get_executor());
    port_.emplace(*reading_, path);
    handedOver_ = taken_ = 0;
    read();
    reader_ = std::thread([this] { reading_->run(); });
  }
  bool send(const std::string& bytes) override {
    asio::error_code error;
    asio::write(*port_, asio::buffer(bytes), error);
    return !error;
  }
  bool receive(std::size_t count) override {
    taken_ += count;
    while (handedOver_ < taken_) {
      if (main_->run_one_for(std::chrono::seconds(10)) == 0) return false;
    }
    return true;
  }
  void close() override {
    reading_->stop();
    reader_.join();
    port_.reset();
    mainStays_.reset();
    reading_.reset();
    main_.reset();
  }

 private:
  void read() {
    port_->async_read_some(asio::buffer(buffer_), [this](const asio::error_code& error, std::size_t count) {
      if (error) return;
      asio::post(*main_, [this, bytes = std::string(buffer_.data(), count)] { handedOver_ += bytes.size(); });
      read();
    });
  }

  std::optional<asio::io_context> main_;
  std::optional<asio::io_context> reading_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> mainStays_;
  std::optional<asio::serial_port> port_;
  std::array<char, 1024> buffer_{};
  std::thread reader_;
  std::size_t handedOver_ = 0;
  std::size_t taken_ = 0;
};

}  // namespace

void addAsio(Peers& peers) {
  peers.push_back(std::make_unique<ReaderThread>());
}

}  // namespace peers
#else
void peers::addAsio(Peers& /*peers*/) {}
#endif
