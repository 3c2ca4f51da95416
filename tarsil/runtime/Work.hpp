#pragma once

#include "tarsil/support/cpp20.hpp"

#include <concepts>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace tarsil {

/// Work handed to a queue: anything that can be called without an argument. It is moved and never copied, so
/// it may hold what cannot be copied. What takes no more room than eight pointers is kept within and
/// costs no memory of its own: a received chunk changes hands several times on its way to the host.
class Work {
 public:
  /// No work; a null function is none either.
  Work() = default;
  Work(std::nullptr_t) {}
  template <class Call>
  requires(!std::same_as<std::decay_t<Call>, Work> && std::invocable<std::decay_t<Call>&>) Work(Call&& call) {
    if constexpr (requires { call == nullptr; }) {
      if (call == nullptr) return;
    }
    hold<std::decay_t<Call>>(std::forward<Call>(call));
  }
  Work(Work&& other) noexcept { take(other); }
  Work& operator=(Work&& other) noexcept {
    if (this == &other) return *this;
    drop();
    take(other);
    return *this;
  }
  ~Work() { drop(); }

  explicit operator bool() const { return held_ != nullptr; }
  /// There must be work.
  void operator()() const { held_->call(); }

  void swap(Work& other) noexcept { std::swap(*this, other); }

 private:
  struct Held {
    virtual ~Held() = default;
    virtual void call() = 0;
    /// Moves itself to a place of the same size.
    virtual Held* moveTo(void* place) noexcept = 0;
  };

  template <class Call>
  struct HeldCall final : Held {
    template <class Source>
    explicit HeldCall(Source&& source) : callable(std::forward<Source>(source)) {}
    void call() override { static_cast<void>(callable()); }
    Held* moveTo(void* place) noexcept override { return new (place) HeldCall(std::move(callable)); }
    Call callable;
  };

  /// Stands for a call that is too large, or cannot be moved without failing.
  template <class Call>
  struct Elsewhere {
    void operator()() const { static_cast<void>((*callable)()); }
    std::unique_ptr<Call> callable;
  };

  static constexpr std::size_t room = 9 * sizeof(void*);
  template <class Call>
  static constexpr bool fits =
      sizeof(HeldCall<Call>) <= room &&
      alignof(HeldCall<Call>) <= alignof(void*) && std::is_nothrow_move_constructible_v<Call>;

  template <class Call, class Source>
  void hold(Source&& source) {
    if constexpr (fits<Call>) {
      held_ = new (place_) HeldCall<Call>(std::forward<Source>(source));
    } else {
      using Pointer = Elsewhere<Call>;
      held_ = new (place_) HeldCall<Pointer>(Pointer{std::make_unique<Call>(std::forward<Source>(source))});
    }
  }

  void take(Work& other) noexcept {
    if (other.held_ == nullptr) return;
    held_ = other.held_->moveTo(place_);
    other.drop();
  }

  // Empty before what it holds goes: that may look here.
  void drop() noexcept {
    if (Held* const held = std::exchange(held_, nullptr)) held->~Held();
  }

  alignas(void*) std::byte place_[room];
  Held* held_ = nullptr;
};

}  // namespace tarsil
