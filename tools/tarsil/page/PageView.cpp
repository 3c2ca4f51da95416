#include "tools/tarsil/page/PageView.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tarsil/support/utf8.hpp"
#include "tools/tarsil/run/sessionWords.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration frameTime = 250ms;
constexpr Duration sampleTime = 1s;
/// A word that marks a moment is no story: in characters.
constexpr std::size_t longestWord = 60;

}  // namespace

PageView::PageView(PageServer& server, ExerciseTest& test, GuardedStation& station, SessionTitle title)
    : server_(server), test_(test), station_(station), title_(std::move(title)) {
  station.onEvent([this, isAlive = isAlive_](const Event& event) {
    if (!*isAlive) return;
    // Those of the opening came before.
    const Duration at = std::max(event.at - start_, Duration::zero());
    std::string entry = eventJson(event, at, test_.protocol().device);
    if (!entry.empty()) server_.add(std::move(entry));
  });
  server.setOrderTaker([this](const PageServer::Order& order) { take(order); });
  timer_ = Timer::scheduled(frameTime, true, [this](Timer&) { look(); });
  look();
}

PageView::~PageView() {
  timer_->invalidate();
  server_.setOrderTaker(nullptr);
  *isAlive_ = false;
}

void PageView::end(const SessionEnd& end) {
  timer_->invalidate();
  server_.end(nowJson(title_, test_, station_, passed(), end));
}

void PageView::look() {
  if (!lastSample_ || passed() - *lastSample_ >= sampleTime) {
    lastSample_ = passed();
    server_.add(sampleJson(test_, station_, *lastSample_));
  }
  server_.show(nowJson(title_, test_, station_, passed()));
}

void PageView::take(const PageServer::Order& order) {
  if (order.name == "stop") return test_.stop("stopped at the page");
  if (order.name == "hold" || order.name == "release") return test_.hold(order.name == "hold");
  if (order.name == "next") return test_.advance();
  if (order.name == "pressure") return test_.measurePressure();
  const std::string word(utf8::characters(order.word, 0, longestWord));
  if (order.name == "mark" && utf8::isValid(word) && !word.empty()) test_.mark(harmless(word));
}

}  // namespace tarsil::cli
