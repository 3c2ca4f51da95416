#include "bench/peers/Peer.hpp"

#if __has_include(<libserial/SerialPort.h>)
#include <libserial/SerialPort.h>

#include <exception>

namespace peers {
namespace {

class Port final : public Peer {
 public:
  std::string name() const override { return "LibSerial"; }
  bool readsInBackground() const override { return false; }
  void open(const std::string& path) override { port_.Open(path); }
  bool send(const std::string& bytes) override {
    port_.Write(bytes);
    return true;
  }
  bool receive(std::size_t count) override {
    try {
      while (count > 0) {
        // All at once where it is little, as a host that knows its reply asks for it.
        const std::size_t some = count < 1024 ? count : 1024;
        port_.Read(bytes_, some, 10'000);
        count -= some;
      }
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }
  void close() override { port_.Close(); }

 private:
  LibSerial::SerialPort port_;
  LibSerial::DataBuffer bytes_;
};

}  // namespace

void addLibserial(Peers& peers) {
  peers.push_back(std::make_unique<Port>());
}

}  // namespace peers
#else
void peers::addLibserial(Peers& /*peers*/) {}
#endif
