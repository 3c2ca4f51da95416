#include "simulators/Truth.hpp"

#include <array>
#include <chrono>
#include <cstdio>

namespace tarsil::simulators {
namespace {

using namespace std::chrono_literals;

constexpr Duration shortestInterval = 250ms;

std::string text(Truth::Exercise exercise, const Load& load) {
  std::array<char, 64> text{};
  switch (exercise) {
    case Truth::Exercise::none:
      return "nothing";
    case Truth::Exercise::treadmill:
      std::snprintf(text.data(), text.size(), "%.1f km/h %.1f %%", load.speed, load.grade);
      break;
    case Truth::Exercise::ergometer:
      std::snprintf(text.data(), text.size(), "%.0f W", load.power);
      break;
  }
  return text.data();
}

}  // namespace

std::string text(const TruthAt& entry) {
  const Truth& truth = entry.truth;
  std::array<char, 32> when{};
  std::snprintf(when.data(), when.size(), "%.2f s", std::chrono::duration<double>(entry.when).count());
  return std::string(when.data()) + ", asked " + text(truth.exercise, truth.asked) + ", actual " +
         text(truth.exercise, truth.actual) + (truth.isRunning ? ", running" : ", stopped");
}

void History::note(Duration now, const Truth& truth) {
  const bool hasComeToRest = truth == last_;
  last_ = truth;
  if (!entries_.empty()) {
    const auto& [when, before] = entries_.back();
    const bool isAsked = truth.asked != before.asked || truth.isRunning != before.isRunning;
    const bool hasMoved = truth.actual != before.actual;
    if (!isAsked && !(hasMoved && (hasComeToRest || now - when >= shortestInterval))) return;
  }
  entries_.push_back({now, truth});
}

}  // namespace tarsil::simulators
