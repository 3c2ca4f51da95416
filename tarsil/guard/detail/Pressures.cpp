#include "tarsil/guard/detail/Pressures.hpp"

#include <chrono>
#include <utility>

namespace tarsil::detail {
namespace {

using namespace std::chrono_literals;

/// A result that was asked for comes within this, or it is asked for again.
constexpr Duration answerTime = 5s;
/// A cuff that needs longer than expected gets this many tries.
constexpr int mostFetches = 9;

}  // namespace

Pressures::Pressures(Cuff cuff, std::function<void()> missing)
    : cuff_(std::move(cuff)), missing_(std::move(missing)) {}

void Pressures::start() {
  isWanted_ = false;
  startedAt_ = Clock::now();
  fetchedAt_.reset();
  fetches_ = 0;
  cuff_.start();
}

void Pressures::abort() {
  isWanted_ = false;
  if (!startedAt_) return;
  startedAt_.reset();
  cuff_.abort();
}

void Pressures::beginAgain() {
  if (!startedAt_) return;
  startedAt_.reset();
  isWanted_ = true;
}

bool Pressures::isExpected() const {
  return startedAt_ && (cuff_.commandTime == Duration::zero() || fetchedAt_);
}

void Pressures::tick() {
  if (isWanted_) return start();
  if (!startedAt_) return;
  const Clock::Instant now = Clock::now();
  if (now - *startedAt_ < cuff_.measuring) return;
  if (fetchedAt_ && now - *fetchedAt_ < answerTime) return;
  if (fetches_ == mostFetches) {
    startedAt_.reset();
    return missing_();
  }
  ++fetches_;
  fetchedAt_ = now;
  cuff_.fetch();
}

void Pressures::measured() {
  startedAt_.reset();
  fetchedAt_.reset();
}

bool Pressures::holdsLine() const {
  const Clock::Instant now = Clock::now();
  const auto isBusy = [&](const std::optional<Clock::Instant>& since) {
    return since && now - *since < cuff_.commandTime;
  };
  return isBusy(startedAt_) || isBusy(fetchedAt_);
}

}  // namespace tarsil::detail
