#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/support/bytes.hpp"
#include "tools/tarsil/replay/Json.hpp"

namespace tarsil::cli {

/// A value of an operation, read as the kind that is expected; any other kind throws ScriptError with the
/// value's name. Refers to the operation.
class Value {
 public:
  Value(std::string name, const Json& json) : name_(std::move(name)), json_(&json) {}

  bool isNull() const { return json_->is_null(); }
  bool isText() const { return json_->is_string(); }

  std::string text() const;
  /// None for null.
  std::optional<std::string> optionalText() const;
  bool flag() const;
  std::int64_t integer(std::int64_t lowest, std::int64_t highest) const;
  /// A number, or "nan", "inf", "-inf"; numbers that a float cannot hold become infinite.
  float number() const;
  /// A number of seconds; `longestTime` at most, either way.
  double seconds() const;
  /// A hundred years; the clock counts nanoseconds in 64 bits.
  static constexpr double longestTime = 3.2e9;
  /// Hexadecimal text, two digits a byte.
  Bytes bytes() const;
  std::vector<Value> elements() const;
  std::vector<std::string> texts() const;

 private:
  /// Throws ScriptError: the value is not `expected`.
  [[noreturn]] void refuse(const std::string& expected) const;

  std::string name_;
  const Json* json_;
};

}  // namespace tarsil::cli
