// The blood-pressure monitor, the exercise device's own cuff, and the oximeter.

#include <chrono>
#include <utility>

#include "tarsil/guard/detail/GuardedStationImplementation.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

/// An oximeter measures once a second; this long without a word it is lost.
constexpr Duration longestOximeterPause = 5s;
/// One over Bluetooth has to be found first.
constexpr Duration longestSearch = 30s;

}  // namespace

// The monitor

void GuardedStation::Implementation::openMonitor(const std::shared_ptr<const SerialDevice>& device) {
  const auto weak = weak_from_this();
  monitor_.emplace(*monitorModel_, driverListener(Source::monitor));
  monitorLine_ = std::make_shared<detail::Line>(device, *monitorModel_->makeDevice());
  auto lines = lineListener(Source::monitor);
  lines.opened = [weak](const auto& port) {
    if (const auto self = weak.lock()) self->monitorOpened(port);
  };
  lines.received = [weak](const Bytes& bytes) {
    if (const auto self = weak.lock()) self->monitor_->receive(bytes);
  };
  lines.lost = [weak] {
    const auto self = weak.lock();
    if (!self) return;
    self->monitor_->bind(nullptr);
    self->monitorIsReady_ = false;
    self->raise(AlarmKind::monitorLost, "the blood-pressure monitor's port is gone");
  };
  monitorLine_->setListener(std::move(lines));
  asked(Source::monitor, Command::open);
  monitorLine_->open();
}

void GuardedStation::Implementation::monitorOpened(const std::shared_ptr<ORSSerialPort>& port) {
  monitor_->bind(port);
  monitorIsReady_ = false;
  monitorAskedAt_.reset();
  initialiseMonitor();
}

void GuardedStation::Implementation::monitorReady() {
  monitorIsReady_ = true;
  clear(AlarmKind::monitorLost);
}

void GuardedStation::Implementation::initialiseMonitor() {
  constexpr Duration patience = 5s;
  if (!monitorLine_ || !monitorLine_->isOpen() || monitorIsReady_) return;
  const Clock::Instant now = Clock::now();
  if (monitorAskedAt_ && now - *monitorAskedAt_ < patience) return;
  if (monitorAskedAt_) raise(AlarmKind::monitorLost, "the blood-pressure monitor does not answer");
  monitorAskedAt_ = now;
  monitor_->renew();
  // The first start of a new driver only initialises the monitor.
  commandMonitor(Command::initialiseMonitor, &KivStressDevice::startBP);
}

void GuardedStation::Implementation::commandMonitor(Command command, void (KivStressDevice::*call)()) {
  asked(Source::monitor, command);
  monitor_->command([call](KivStressDevice& driver) { (driver.*call)(); });
  // The driver listens for one more echo with every command, and never stops to.
  const auto port = monitorLine_->port();
  if (!port) return;
  for (const auto& descriptor : port->packetDescriptors())
    port->stopListeningForPacketsMatchingDescriptor(descriptor);
}

// Pressures

void GuardedStation::Implementation::preparePressures() {
  const auto missing = [this] {
    builtInCuffIsDone();
    raise(AlarmKind::pressureMissing, "a blood pressure was asked for and did not come");
  };
  if (monitor_) {
    pressures_.emplace(
        detail::Pressures::Cuff{
            .start = [this] { commandMonitor(Command::startPressure, &KivStressDevice::startBP); },
            .fetch = [this] { commandMonitor(Command::requestPressure, &KivStressDevice::requestBP); },
            .abort = [this] { commandMonitor(Command::abortPressure, &KivStressDevice::breakBP); },
            .measuring = 90s},
        missing);
  } else if (facts_.answersPressure) {
    pressures_.emplace(
        detail::Pressures::Cuff{.start = [this] { startBuiltInCuff(); },
                                .fetch = [this] { fetchBuiltInPressure(); },
                                .abort =
                                    [this] {
                                      asked(Source::exercise, Command::abortPressure);
                                      driver_->command([](KivStressDevice& driver) { driver.breakBP(); });
                                    },
                                .measuring = 45s,
                                .commandTime = 900ms},
        missing);
  }
}

Answer GuardedStation::Implementation::measurePressure() {
  using Code = Answer::Code;
  Answer answer = Answer::accepted();
  const auto& line = monitorLine_ ? monitorLine_ : line_;
  if (!pressures_) {
    answer = Answer::refused(Code::noMonitor, "nothing here measures blood pressure and hands it over");
  } else if (!line->isOpen() || (monitorLine_ && !monitorIsReady_)) {
    answer = Answer::refused(Code::notOpen, line->name() + " is not open, or its device not ready");
  } else if (pressures_->isMeasuring()) {
    answer = Answer::refused(Code::alreadyMeasuring, "a blood pressure is being measured");
  }
  if (!answer.isAccepted()) return refuse(Command::startPressure, answer);
  clear(AlarmKind::pressureMissing);
  pressures_->measure();
  return answer;
}

Answer GuardedStation::Implementation::abortPressure() {
  if (!isMeasuringPressure()) {
    return refuse(Command::abortPressure,
                  Answer::refused(Answer::Code::notRunning, "no blood pressure is being measured"));
  }
  pressures_->abort();
  builtInCuffIsDone();
  return Answer::accepted();
}

void GuardedStation::Implementation::pressureReported(Pressure pressure, std::int64_t status) {
  if (!pressures_ || !pressures_->isExpected()) return;
  constexpr float highest = 300;
  const bool isPlausible =
      pressure.diastolic > 0 && pressure.systolic > pressure.diastolic && pressure.systolic <= highest;
  const Source source = monitorLine_ ? Source::monitor : Source::exercise;
  if (!isPlausible) {
    return emit(source, Implausible{"a pressure of " + decimalText(pressure.systolic) + "/" +
                                    decimalText(pressure.diastolic) + " mmHg"});
  }
  pressures_->measured();
  builtInCuffIsDone();
  pressure_ = {pressure, Clock::now()};
  clear(AlarmKind::pressureMissing);
  emit(source, PressureMeasured{pressure, status});
}

// The built-in cuff

// An Ergosana takes the first command of a measurement for the start of the exercise, with the load that it
// was told last. So without an exercise the load goes away before, and the device is stopped afterwards.

void GuardedStation::Implementation::startBuiltInCuff() {
  const bool isAtRest = state_ != State::running;
  if (isAtRest) asked(Source::exercise, Command::setLoad);
  asked(Source::exercise, Command::startPressure);
  driver_->command([isAtRest](KivStressDevice& driver) {
    if (isAtRest) driver.setLoad(0, 0);
    driver.startBP();
  });
}

void GuardedStation::Implementation::builtInCuffIsDone() {
  if (!isCuffBuiltIn() || state_ == State::running || state_ == State::stopping) return;
  asked(Source::exercise, Command::stop);
  driver_->command([](KivStressDevice& driver) { driver.stopStressDevice(); });
}

/// The driver asks for the systolic value only; the diastolic one is asked for by the frame that ends its
/// start of a measurement, alone.
void GuardedStation::Implementation::fetchBuiltInPressure() {
  driver_->renew();  // it may hold a half of an old pressure
  asked(Source::exercise, Command::requestPressure);
  driver_->command([](KivStressDevice& driver) { driver.requestBP(); });
  Timer::scheduled(300ms, false, [weak = weak_from_this()](Timer&) {
    const auto self = weak.lock();
    const auto port = self ? self->line_->port() : nullptr;
    if (port) port->sendData(Bytes{'U', '\r'});
  });
}

// The oximeter

void GuardedStation::Implementation::openOximeter(const std::shared_ptr<const SerialDevice>& device) {
  const auto weak = weak_from_this();
  auto listener = driverListener(Source::oximeter);
  listener.saturation = [this](float saturation) { saturationReported(saturation); };
  oximeter_.emplace(*oximeterModel_, std::move(listener));
  oximeterLine_ = std::make_shared<detail::Line>(device, *oximeterModel_->makeDevice());
  auto lines = lineListener(Source::oximeter);
  lines.opened = [weak](const auto& port) {
    if (const auto self = weak.lock()) self->oximeter_->bind(port);
  };
  lines.received = [weak](const Bytes& bytes) {
    if (const auto self = weak.lock()) self->oximeter_->receive(bytes);
  };
  lines.lost = [weak] {
    const auto self = weak.lock();
    if (!self) return;
    self->oximeter_->bind(nullptr);
    self->raise(AlarmKind::oximeterLost, "the oximeter's port is gone");
  };
  oximeterLine_->setListener(std::move(lines));
  asked(Source::oximeter, Command::open);
  oximeterLine_->open();
}

void GuardedStation::Implementation::saturationReported(float saturation) {
  oximeterHeardAt_ = Clock::now();
  clear(AlarmKind::oximeterLost);
  if (saturation <= 0 || saturation > 100) {
    return emit(Source::oximeter, Implausible{"no saturation"});
  }
  saturation_ = {saturation, Clock::now()};
  emit(Source::oximeter, SaturationMeasured{saturation});
}

// Both

void GuardedStation::Implementation::lookAfterAuxiliaries() {
  if (oximeterLine_ || bluetooth_) {
    const Clock::Instant since = oximeterHeardAt_.value_or(openedAt_);
    const Duration longest = bluetooth_ && !oximeterHeardAt_ ? longestSearch : longestOximeterPause;
    if (Clock::now() - since > longest) raise(AlarmKind::oximeterLost, "the oximeter is silent");
  }
  initialiseMonitor();
}

}  // namespace tarsil
