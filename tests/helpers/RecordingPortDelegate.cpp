#include "tests/helpers/RecordingPortDelegate.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

std::string address(const void* object) {
  std::ostringstream stream;
  stream << object;
  return stream.str();
}

}  // namespace

RecordedCall removed() {
  return {"removed()"};
}
RecordedCall received(ByteView data) {
  return {"received(" + hexText(data) + ")"};
}
RecordedCall packet(ByteView bytes, const ORSSerialPortDelegate::Descriptor& descriptor) {
  return {"packet(" + hexText(bytes) + ", descriptor " + address(descriptor.get()) + ")"};
}
RecordedCall response(ByteView bytes, const ORSSerialPortDelegate::Request& request) {
  return {"response(" + hexText(bytes) + ", request " + address(request.get()) + ")"};
}
RecordedCall timedOut(const ORSSerialPortDelegate::Request& request) {
  return {"timedOut(request " + address(request.get()) + ")"};
}
RecordedCall failed(int errorNumber) {
  return {"failed(" + std::to_string(errorNumber) + ": " + std::generic_category().message(errorNumber) +
          ")"};
}
RecordedCall opened() {
  return {"opened()"};
}
RecordedCall closed() {
  return {"closed()"};
}

struct RecordingPortDelegate::Record {
  mutable std::mutex mutex;
  RecordedCalls calls;
  std::vector<Selector> listed;
  bool answersListed = false;
  std::function<void(ORSSerialPort&, const RecordedCall&)> action;
};

class RecordingPortDelegate::Delegate final : public ORSSerialPortDelegate {
 public:
  explicit Delegate(std::shared_ptr<Record> record) : record_(std::move(record)) {}

  bool respondsTo(Selector selector) const {
    const std::lock_guard lock(record_->mutex);
    const auto& listed = record_->listed;
    return (std::find(listed.begin(), listed.end(), selector) != listed.end()) == record_->answersListed;
  }

  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override { note(port, removed()); }
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override {
    note(port, received(data));
  }
  void serialPortDidReceivePacket(ORSSerialPort& port, const Bytes& bytes,
                                  const Descriptor& matchingDescriptor) override {
    note(port, packet(bytes, matchingDescriptor));
  }
  void serialPortDidReceiveResponse(ORSSerialPort& port, const Bytes& bytes,
                                    const Request& toRequest) override {
    note(port, response(bytes, toRequest));
  }
  void serialPortRequestDidTimeout(ORSSerialPort& port, const Request& request) override {
    note(port, timedOut(request));
  }
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& error) override {
    EXPECT_EQ(error, Error::posix(error.code, port.path()));
    note(port, failed(error.code));
  }
  void serialPortWasOpened(ORSSerialPort& port) override { note(port, opened()); }
  void serialPortWasClosed(ORSSerialPort& port) override { note(port, closed()); }

 private:
  void note(ORSSerialPort& port, const RecordedCall& call) {
    EXPECT_TRUE(RunLoop::isMainThread()) << call.text << " off the main thread";
    std::function<void(ORSSerialPort&, const RecordedCall&)> action;
    {
      const std::lock_guard lock(record_->mutex);
      record_->calls.push_back(call);
      action = record_->action;
    }
    if (action) action(port, call);
  }

  std::shared_ptr<Record> record_;
};

RecordingPortDelegate::RecordingPortDelegate()
    : record_(std::make_shared<Record>()), delegate_(std::make_shared<Delegate>(record_)) {}

RecordingPortDelegate::operator ORSSerialPortDelegateRef() const {
  return delegate_;
}

RecordedCalls RecordingPortDelegate::calls() const {
  const std::lock_guard lock(record_->mutex);
  return record_->calls;
}

RecordedCalls RecordingPortDelegate::takeCalls() {
  const std::lock_guard lock(record_->mutex);
  return std::exchange(record_->calls, {});
}

void RecordingPortDelegate::answerOnly(std::initializer_list<Selector> selectors) {
  const std::lock_guard lock(record_->mutex);
  record_->listed = selectors;
  record_->answersListed = true;
}

void RecordingPortDelegate::answerAllBut(std::initializer_list<Selector> selectors) {
  const std::lock_guard lock(record_->mutex);
  record_->listed = selectors;
  record_->answersListed = false;
}

void RecordingPortDelegate::onCall(std::function<void(ORSSerialPort&, const RecordedCall&)> action) {
  const std::lock_guard lock(record_->mutex);
  record_->action = std::move(action);
}

void RecordingPortDelegate::drop() {
  delegate_.reset();
}

}  // namespace tarsil
