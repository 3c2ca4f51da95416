#include "tarsil/runtime/VirtualTime.hpp"

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <ctime>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/detail/VirtualTimeImplementation.hpp"
#include "tarsil/runtime/detail/schedule.hpp"
#include "tarsil/support/process.hpp"

namespace tarsil {
namespace {

std::atomic<VirtualTime::Implementation*> existing = nullptr;

/// The machine's clock does not share this one: how much of this one may pass before its news are looked for
/// again.
constexpr Duration betweenLooks = std::chrono::milliseconds(100);

std::chrono::system_clock::time_point aDayLikeAnyOther() {
  std::tm day{};
  day.tm_year = 2024 - 1900;
  day.tm_mon = 2;
  day.tm_mday = 1;
  day.tm_hour = 14;
  day.tm_min = 5;
  day.tm_sec = 9;
  day.tm_isdst = -1;
  return std::chrono::system_clock::from_time_t(std::mktime(&day));
}

}  // namespace

VirtualTime::VirtualTime() : VirtualTime(aDayLikeAnyOther()) {}

VirtualTime::VirtualTime(std::chrono::system_clock::time_point wallStart)
    : implementation_(std::make_unique<Implementation>(wallStart)) {}

VirtualTime::~VirtualTime() = default;

void VirtualTime::settle() {
  implementation_->lookAround();
  implementation_->settle();
}

void VirtualTime::advance(Duration duration) {
  implementation_->lookAround();
  implementation_->advanceTo(detail::after(implementation_->now(), duration));
}

VirtualTime::Implementation::Implementation(std::chrono::system_clock::time_point wallStart)
    : wallStart_(wallStart) {
  if (!RunLoop::isMainThread()) fatalError("a VirtualTime must be made on the main thread");
  if (existing != nullptr) fatalError("there is a VirtualTime already");
  existing = this;
}

VirtualTime::Implementation::~Implementation() {
  // What is dropped may set something off: a source's last reference, for one, its cancel handler. While this
  // is the current time, that comes here and is dropped in turn; afterwards the worker threads would run it.
  while (main_->drop() || background_->drop()) {
  }
  main_->abandon();
  background_->abandon();
  existing = nullptr;
}

VirtualTime::Implementation* VirtualTime::Implementation::current() {
  return existing;
}

std::chrono::system_clock::time_point VirtualTime::Implementation::wallNow() const {
  return wallStart_ +
         std::chrono::duration_cast<std::chrono::system_clock::duration>(now() - detail::VirtualClock::start);
}

Work VirtualTime::Implementation::takeDue() {
  if (Work work = main_->takeWork()) return work;
  if (Work work = background_->takeWork()) return work;
  if (Work report = main_->takeReadable()) return report;
  if (Work report = background_->takeReadable()) return report;
  return withFirstAlarm().takeAlarm(now());
}

void VirtualTime::Implementation::settle() {
  while (const Work due = takeDue()) due();
}

void VirtualTime::Implementation::advanceTo(Clock::Instant end) {
  do {
    settle();
  } while (jump(end));
}

bool VirtualTime::Implementation::jump(Clock::Instant end) {
  const auto next = withFirstAlarm().firstAlarm();
  const bool rings = next && next->at <= end;
  clock_->moveTo(std::max(now(), rings ? next->at : end));
  if (now() >= nextLook_) lookAround();
  return rings;
}

void VirtualTime::Implementation::lookAround() {
  main_->lookAround();
  background_->lookAround();
  nextLook_ = detail::after(now(), betweenLooks);
}

bool VirtualTime::Implementation::hasAlarm() const {
  return withFirstAlarm().firstAlarm().has_value();
}

bool VirtualTime::Implementation::waitForDescriptor() {
  auto descriptors = main_->armedDescriptors();
  const auto others = background_->armedDescriptors();
  descriptors.insert(descriptors.end(), others.begin(), others.end());
  if (descriptors.empty()) return false;
  poll(descriptors.data(), descriptors.size(), -1);
  lookAround();
  return true;
}

detail::Reactor& VirtualTime::Implementation::withFirstAlarm() const {
  const auto mainAlarm = main_->firstAlarm();
  const auto other = background_->firstAlarm();
  return !other || (mainAlarm && *mainAlarm < *other) ? *main_ : *background_;
}

}  // namespace tarsil
