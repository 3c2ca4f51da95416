#include "tarsil/runtime/detail/CurrentQueue.hpp"

namespace tarsil::detail {
namespace {

thread_local const CurrentQueue* top = nullptr;

}  // namespace

CurrentQueue::CurrentQueue(const DispatchQueue::Implementation& queue, Origin origin)
    : queue_(queue), origin_(origin), outer_(top) {
  top = this;
}

CurrentQueue::~CurrentQueue() {
  top = outer_;
}

const DispatchQueue::Implementation* CurrentQueue::innermost() {
  return top == nullptr ? nullptr : &top->queue_;
}

bool CurrentQueue::contains(const DispatchQueue::Implementation& queue) {
  for (const auto* entry = top; entry != nullptr; entry = entry->outer_) {
    if (&entry->queue_ == &queue) return true;
  }
  return false;
}

bool CurrentQueue::waitsFor(const DispatchQueue::Implementation& queue) {
  for (const auto* entry = top; entry != nullptr; entry = entry->outer_) {
    if (&entry->queue_ == &queue) return true;
    if (entry->origin_ == Origin::reactor) return false;
  }
  return true;
}

}  // namespace tarsil::detail
