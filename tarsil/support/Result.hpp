#pragma once

#include <utility>

namespace tarsil {

/// Why a call of the operating system failed: its errno value.
struct Failure {
  int errorNumber = 0;
};

/// What a call of the operating system answers: its value, or why there is none.
template <class Value = void>
class [[nodiscard]] Result {
 public:
  Result(Value value) : value_(std::move(value)) {}
  Result(Failure failure) : error_(failure.errorNumber) {}

  explicit operator bool() const { return error_ == 0; }
  /// The errno value; 0 when the call succeeded.
  int error() const { return error_; }
  /// An empty value when the call failed.
  const Value& operator*() const { return value_; }
  const Value* operator->() const { return &value_; }

  bool operator==(const Result&) const = default;

 private:
  Value value_{};
  int error_ = 0;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Failure failure) : error_(failure.errorNumber) {}
  /// Whether the other succeeded; its value is dropped.
  template <class Value>
  Result(const Result<Value>& other) : error_(other.error()) {}

  explicit operator bool() const { return error_ == 0; }
  int error() const { return error_; }

  bool operator==(const Result&) const = default;

 private:
  int error_ = 0;
};

}  // namespace tarsil
