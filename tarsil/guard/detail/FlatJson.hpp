#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::detail {

/// One JSON object without objects or lists in it, as a line of text.
class FlatJsonWriter {
 public:
  /// Bytes that are no UTF-8 are written as the replacement character.
  void add(std::string_view key, std::string_view value);
  void add(std::string_view key, std::int64_t value);
  /// In as few digits as read back as the same value; null for what is not finite.
  void add(std::string_view key, float value);
  void add(std::string_view key, bool value);
  /// In seconds, to the microsecond.
  void addSeconds(std::string_view key, Duration value);

  /// The object and a line end.
  std::string line() const { return text_ + "}\n"; }

 private:
  void addRaw(std::string_view key, std::string_view value);

  std::string text_ = "{";
};

/// Such an object read back. Every query is none for a key that is not there, or has a value of another kind.
class FlatJson {
 public:
  std::optional<std::string> text(const std::string& key) const;
  std::optional<std::int64_t> integer(const std::string& key) const;
  /// Not a number for null.
  std::optional<float> number(const std::string& key) const;
  std::optional<bool> truth(const std::string& key) const;
  std::optional<Duration> seconds(const std::string& key) const;

  /// All texts with their keys.
  std::vector<std::pair<std::string, std::string>> texts() const;

 private:
  friend class FlatJsonReader;

  struct Value {
    bool isText = false;
    /// A text's characters, or the digits or letters of another value.
    std::string characters;
  };

  const std::string* bare(const std::string& key) const;

  std::map<std::string, Value> values_;
};

/// None when the line is no such object, or names a key twice.
std::optional<FlatJson> readFlatJson(std::string_view line);

}  // namespace tarsil::detail
