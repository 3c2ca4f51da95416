#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"

namespace tarsil::cli {

/// Asks one device what it answers anyhow (its load, or its readiness) and counts what comes back; nothing
/// that it sends moves anything. Main thread.
class LineCheck final : public ORSSerialPortDelegate, public std::enable_shared_from_this<LineCheck> {
 public:
  /// `device` is not null, and the model has a line.
  LineCheck(DeviceModel model, std::shared_ptr<const SerialDevice> device);

  void open();
  void ask();
  void close();

  const DeviceModel& model() const { return model_; }
  const SerialDevice& device() const { return *device_; }
  /// "38400 bit/s, 8N1"
  std::string settings() const;
  /// It talks without being asked.
  bool isAsked() const { return model_.kind != DeviceKind::oximeter; }
  /// Its driver discards what the machine answers, so that nothing can be told of it.
  bool isRead() const { return !model_.exercise || model_.exercise->loadReport != LoadReport::none; }

  bool isOpen() const { return isOpen_; }
  bool isClosed() const { return !port_ || !port_->isOpen(); }
  std::size_t asked() const { return asked_; }
  std::size_t receivedBytes() const { return receivedBytes_; }
  std::size_t frames() const { return frames_; }
  /// Since the first whole frame: who joins in the middle of one has lost nothing.
  std::uint64_t lostBytes() const { return framing_->discardedBytes() - before_.bytes; }
  std::uint64_t failedChecks() const { return framing_->failedChecks() - before_.checks; }
  /// From a question to the first frame that came after it.
  const std::vector<Duration>& answerTimes() const { return answerTimes_; }

  /// What speaks against this line, a reason each; empty: nothing.
  std::vector<std::string> reasons() const;

 private:
  struct Counts {
    std::uint64_t bytes = 0;
    std::uint64_t checks = 0;
  };

  void serialPortWasOpened(ORSSerialPort& port) override;
  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override;
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& data) override;
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& error) override;
  std::string reasonOf(const Error& error) const;

  const DeviceModel model_;
  const std::shared_ptr<const SerialDevice> device_;
  std::shared_ptr<ORSSerialPort> port_;
  std::shared_ptr<KivStressDevice> driver_;
  std::unique_ptr<ReplyFraming> framing_;
  bool isOpen_ = false;
  std::vector<std::string> failures_;
  std::size_t asked_ = 0;
  std::optional<Clock::Instant> waitsSince_;
  std::vector<Duration> answerTimes_;
  std::size_t receivedBytes_ = 0;
  std::size_t frames_ = 0;
  Counts before_;
};

}  // namespace tarsil::cli
