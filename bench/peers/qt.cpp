#include "bench/peers/Peer.hpp"

#if __has_include(<QSerialPort>)
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSerialPort>

namespace peers {
namespace {

class Port final : public Peer {
 public:
  std::string name() const override { return "QSerialPort"; }
  bool readsInBackground() const override { return false; }
  void open(const std::string& path) override {
    handedOver_ = taken_ = 0;
    port_ = std::make_unique<QSerialPort>(QString::fromStdString(path));
    QObject::connect(port_.get(), &QSerialPort::readyRead,
                     [this] { handedOver_ += static_cast<std::size_t>(port_->readAll().size()); });
    port_->open(QIODevice::ReadWrite);
  }
  bool send(const std::string& bytes) override {
    const auto size = static_cast<qint64>(bytes.size());
    return port_->write(bytes.data(), size) == size && port_->flush();
  }
  bool receive(std::size_t count) override {
    taken_ += count;
    QElapsedTimer waited;
    waited.start();
    while (handedOver_ < taken_) {
      if (waited.elapsed() > 10'000) return false;
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 1000);
    }
    return true;
  }
  void close() override { port_.reset(); }

 private:
  std::unique_ptr<QSerialPort> port_;
  std::size_t handedOver_ = 0;
  std::size_t taken_ = 0;
};

}  // namespace

void addQt(Peers& peers) {
  static int count = 1;
  static char name[] = "peers";
  static char* words[] = {name, nullptr};
  static QCoreApplication application(count, words);
  peers.push_back(std::make_unique<Port>());
}

}  // namespace peers
#else
void peers::addQt(Peers& /*peers*/) {}
#endif
