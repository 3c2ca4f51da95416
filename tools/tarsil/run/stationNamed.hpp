#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarsil::cli {

/// What a station consists of and how far it may go, kept in a file so that nobody types it every day.
struct Station {
  /// MODEL@PORT
  std::string exercise;
  /// Ports; empty: none. The oximeter's may be "bluetooth".
  std::string monitor;
  std::string oximeter;
  /// km/h, percent, watts
  std::optional<float> maxSpeed;
  std::optional<float> maxGrade;
  std::optional<float> maxPower;
  bool isStrict = false;
  /// Folder in which each session gets one; empty: the usual one.
  std::string report;
};

/// The user's stations and the machine's, by name.
std::vector<std::string> stationNames();

/// Reads `NAME.station` of the user or of the machine, or the file at this path where the name has a slash.
/// Throws CommandFailure with file, line, value and reason.
Station stationNamed(const std::string& name);

}  // namespace tarsil::cli
