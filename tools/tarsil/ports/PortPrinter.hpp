#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "tarsil/platform/SerialDeviceRegistry.hpp"

namespace tarsil::cli {

/// Writes what is known of serial devices, for people or as JSON.
class PortPrinter {
 public:
  enum class Style { text, json };

  PortPrinter(std::ostream& out, Style style) : out_(out), style_(style) {}

  /// All of them: a table, or a JSON list.
  void list(const SerialDeviceRegistry::Devices& devices) const;
  /// One piece of news a device: "+" or "-" and its line, or a JSON line whose "event" is "arrived" or
  /// "removed". Flushed.
  void arrived(const SerialDeviceRegistry::Devices& devices) const;
  void removed(const SerialDeviceRegistry::Devices& devices) const;

 private:
  void news(const char* sign, const char* event, const SerialDeviceRegistry::Devices& devices) const;

  std::ostream& out_;
  Style style_;
};

}  // namespace tarsil::cli
