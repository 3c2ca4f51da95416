#include "tarsil/guard/detail/GuardedDriver.hpp"

#include <utility>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/guard/detail/Containment.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil::detail {

/// Hears both drivers.
class GuardedDriver::Host final : public KivStressPortDelegate {
 public:
  explicit Host(const Listener& listener) : listener_(listener) {}

  /// What the reply at hand is; none outside of one.
  std::optional<ReplyFraming::Kind> kind;

  // Some drivers repeat what they once read with every reply, so a value counts only where its reply is one.

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    if (kind == ReplyFraming::Kind::load) listener_.treadmillLoad(speed, grade);
  }
  void onReceivedErgometerPowerWithPower(float power) override {
    if (kind == ReplyFraming::Kind::load) listener_.power(power);
  }
  void onReceivedErgometerRpmWithRpm(float rpm) override {
    if (kind == ReplyFraming::Kind::pedalRate) listener_.pedalRate(rpm);
  }
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override {
    // A monitor acknowledges its initialisation with a pressure of 0/0.
    if (kind == ReplyFraming::Kind::acknowledgement) return listener_.event(MonitorReady{});
    if (kind == ReplyFraming::Kind::pressure) listener_.pressure({sysBP, diaBP}, status);
  }
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t /*status*/) override {
    if (kind == ReplyFraming::Kind::saturation) listener_.saturation(SpO2);
  }
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    listener_.refusal({code, details}, kind == ReplyFraming::Kind::stoppedAtMachine);
  }

 private:
  const Listener& listener_;
};

GuardedDriver::GuardedDriver(const DeviceModel& model, Listener listener)
    : make_(model.makeDevice),
      listener_(std::move(listener)),
      host_(std::make_shared<Host>(listener_)),
      framing_(model.makeFraming()),
      sender_(makeDriver()),
      reader_(makeDriver()) {}

GuardedDriver::~GuardedDriver() {
  retire();
}

std::shared_ptr<KivStressDevice> GuardedDriver::makeDriver() const {
  auto driver = make_();
  driver->kiv_delegate = host_;
  return driver;
}

/// Timers of their own may let drivers outlive their use.
void GuardedDriver::retire() {
  for (const auto& driver : {sender_, reader_}) {
    driver->kiv_delegate = nullptr;
    driver->setSerialPort(nullptr);
  }
}

void GuardedDriver::bind(std::shared_ptr<ORSSerialPort> port) {
  port_ = std::move(port);
  renew();
}

void GuardedDriver::renew() {
  retire();
  sender_ = makeDriver();
  reader_ = makeDriver();
  framing_->reset();
  if (!port_) return;
  const auto delegate = port_->delegate();
  sender_->setSerialPort(port_);
  port_->setDelegate(delegate);  // a driver makes itself the delegate of its port
}

void GuardedDriver::receive(const Bytes& bytes) {
  const auto replies = framing_->take(bytes);
  tellDiscarded();
  for (const auto& reply : replies) {
    if (!port_) return;  // a listener let go of the line
    read(reply);
  }
}

void GuardedDriver::read(const ReplyFraming::Reply& reply) {
  // Two drivers report through the shared manager; what it told its host before is put back at once.
  auto& manager = StressECGDeviceManager::share();
  const auto before = std::exchange(manager.delegate, KivStressPortDelegateRef(host_));
  host_->kind = reply.kind;
  const auto reader = reader_;
  const auto port = port_;
  const auto stopped = Containment::call([&] { framing_->decode(reply, *reader, *port); });
  host_->kind.reset();
  manager.delegate = before;

  if (stopped) return replace(*stopped);
  if (reply.kind == ReplyFraming::Kind::acknowledgement) listener_.acknowledged();
}

void GuardedDriver::command(const std::function<void(KivStressDevice&)>& call) {
  const auto sender = sender_;
  if (const auto stopped = Containment::call([&] { call(*sender); })) replace(*stopped);
}

void GuardedDriver::replace(const std::string& reason) {
  renew();
  listener_.event(DriverReplaced{reason});
}

void GuardedDriver::tellDiscarded() {
  const Discarded now{framing_->discardedBytes(), framing_->failedChecks()};
  const Discarded news{now.bytes - discarded_.bytes, now.badChecks - discarded_.badChecks};
  if (news.bytes == 0 && news.badChecks == 0) return;
  discarded_ = now;
  listener_.event(news);
}

}  // namespace tarsil::detail
