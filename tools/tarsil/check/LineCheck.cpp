#include "tools/tarsil/check/LineCheck.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tarsil/platform/PortAccess.hpp"
#include "tarsil/support/Error.hpp"
#include "tools/tarsil/ports/rightsAdvice.hpp"

namespace tarsil::cli {

LineCheck::LineCheck(DeviceModel model, std::shared_ptr<const SerialDevice> device)
    : model_(std::move(model)),
      device_(std::move(device)),
      driver_(model_.makeDevice()),
      framing_(model_.makeFraming()) {}

void LineCheck::open() {
  // A port of its own: the registry's may serve somebody else.
  port_ = ORSSerialPort::serialPortWithDevice(device_);
  port_->setDelegate(shared_from_this());
  port_->setBaudRate(static_cast<std::uint64_t>(driver_->baud));
  port_->setNumberOfStopBits(static_cast<std::uint64_t>(driver_->stopbits.value_or(1)));
  port_->open();
}

void LineCheck::ask() {
  if (!isOpen_ || !isAsked()) return;
  if (model_.kind == DeviceKind::bloodPressureMonitor) {
    // The first of a driver initialises the monitor; the second would inflate its cuff.
    driver_ = model_.makeDevice();
    driver_->setSerialPort(port_);
    port_->setDelegate(shared_from_this());
    driver_->startBP();
  } else {
    driver_->requestLoad();
  }
  ++asked_;
  waitsSince_ = Clock::now();
}

void LineCheck::close() {
  if (port_) port_->close();
}

std::string LineCheck::settings() const {
  return fmt::format("{} bit/s, {}N{}", driver_->baud, driver_->databits.value_or(8),
                     driver_->stopbits.value_or(1));
}

std::vector<std::string> LineCheck::reasons() const {
  std::vector<std::string> reasons = failures_;
  if (!isOpen_ && reasons.empty()) reasons.emplace_back("the port did not open");
  if (!reasons.empty() || !isRead()) return reasons;
  if (frames_ == 0) {
    reasons.push_back(receivedBytes_ == 0
                          ? "nothing came back: is it switched on, and is this its cable?"
                          : "bytes came, but no whole reply of this model: is it another model, or "
                            "does the cable lose bytes?");
    return reasons;
  }
  if (isAsked() && answerTimes_.size() < asked_)
    reasons.push_back(fmt::format("{} of {} questions got no answer", asked_ - answerTimes_.size(), asked_));
  if (lostBytes() > 0) reasons.push_back(fmt::format("{} bytes belong to no reply", lostBytes()));
  if (failedChecks() > 0) reasons.push_back(fmt::format("{} replies have a wrong check", failedChecks()));
  return reasons;
}

void LineCheck::serialPortWasOpened(ORSSerialPort& /*port*/) {
  isOpen_ = true;
  driver_->setSerialPort(port_);
  // The driver has become its delegate.
  port_->setDelegate(shared_from_this());
}

void LineCheck::serialPortWasRemovedFromSystem(ORSSerialPort& /*port*/) {
  failures_.emplace_back("the port has vanished");
}

void LineCheck::serialPortDidReceiveData(ORSSerialPort& /*port*/, const Bytes& data) {
  receivedBytes_ += data.size();
  const std::size_t count = framing_->take(data).size();
  if (count == 0) return;
  if (frames_ == 0) before_ = {framing_->discardedBytes(), framing_->failedChecks()};
  frames_ += count;
  if (waitsSince_) answerTimes_.push_back(Clock::now() - *std::exchange(waitsSince_, std::nullopt));
}

void LineCheck::serialPortDidEncounterError(ORSSerialPort& /*port*/, const Error& error) {
  // No model of ours has flow control.
  if (error.code == ENOTSUP) return;
  std::string reason = reasonOf(error);
  if (std::find(failures_.begin(), failures_.end(), reason) == failures_.end())
    failures_.push_back(std::move(reason));
}

std::string LineCheck::reasonOf(const Error& error) const {
  const std::string path = device_->calloutPath.value_or("");
  if (error.code == EAGAIN || error.code == EBUSY) {
    const auto programs = programsHolding(path);
    return "another program has it open" +
           (programs.empty() ? "" : fmt::format(": {}", fmt::join(programs, ", ")));
  }
  return whyNotOpenable(path).value_or(error.localizedDescription);
}

}  // namespace tarsil::cli
