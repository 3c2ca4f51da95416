#include "tools/tarsil/replay/Value.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include "tarsil/codec/BinaryDecimalHex.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

bool isHexadecimalDigit(char character) {
  return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

float nearestFloat(double value) {
  constexpr double largest = std::numeric_limits<float>::max();
  if (value > largest) return std::numeric_limits<float>::infinity();
  if (value < -largest) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

}  // namespace

void Value::refuse(const std::string& expected) const {
  throw ScriptError(name_ + " must be " + expected + ", not " +
                    json_->dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string Value::text() const {
  if (!json_->is_string()) refuse("a text");
  return json_->get<std::string>();
}

std::optional<std::string> Value::optionalText() const {
  if (isNull()) return std::nullopt;
  if (!json_->is_string()) refuse("a text or null");
  return text();
}

bool Value::flag() const {
  if (!json_->is_boolean()) refuse("true or false");
  return json_->get<bool>();
}

std::int64_t Value::integer(std::int64_t lowest, std::int64_t highest) const {
  const std::string expected = "an integer from " + std::to_string(lowest) + " to " + std::to_string(highest);
  if (!json_->is_number_integer()) refuse(expected);
  const bool tooLarge =
      json_->is_number_unsigned() &&
      json_->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (tooLarge) refuse(expected);
  const auto value = json_->get<std::int64_t>();
  if (value < lowest || value > highest) refuse(expected);
  return value;
}

float Value::number() const {
  if (json_->is_number()) return nearestFloat(json_->get<double>());
  if (*json_ == "nan") return std::numeric_limits<float>::quiet_NaN();
  if (*json_ == "inf") return std::numeric_limits<float>::infinity();
  if (*json_ == "-inf") return -std::numeric_limits<float>::infinity();
  refuse("a number, \"nan\", \"inf\" or \"-inf\"");
}

double Value::seconds() const {
  if (!json_->is_number()) refuse("a number of seconds");
  const auto value = json_->get<double>();
  if (std::abs(value) > longestTime) refuse("a number of seconds, at most a century");
  return value;
}

Bytes Value::bytes() const {
  const bool isHexadecimal = json_->is_string() && text().size() % 2 == 0;
  if (!isHexadecimal) refuse("hexadecimal text, two digits a byte");
  const std::string digits = text();
  if (!std::all_of(digits.begin(), digits.end(), isHexadecimalDigit)) {
    refuse("hexadecimal text, two digits a byte");
  }
  return BinaryDecimalHex::convertHexStrToData(digits).value_or(Bytes{});
}

std::vector<Value> Value::elements() const {
  if (!json_->is_array()) refuse("a list");
  std::vector<Value> values;
  for (const auto& element : *json_) {
    values.emplace_back(name_ + "[" + std::to_string(values.size()) + "]", element);
  }
  return values;
}

std::vector<std::string> Value::texts() const {
  std::vector<std::string> texts;
  for (const auto& element : elements()) texts.push_back(element.text());
  return texts;
}

}  // namespace tarsil::cli
