#pragma once

#include <string>

namespace tarsil {

/// A failed system call, as a port reports it.
struct Error {
  /// Where `code` belongs to; the library reports only `posixDomain`.
  std::string domain;
  /// In `posixDomain` the errno of the failed call.
  int code = 0;
  /// The system's own text for `code`.
  std::string localizedDescription;
  /// Path of the port that the call was made for.
  std::string filePath;

  static constexpr const char* posixDomain = "POSIX";

  /// The error for an errno value. Any thread.
  static Error posix(int errorNumber, std::string filePath);

  /// One line for a log: domain, code, text, path.
  std::string description() const;

  bool operator==(const Error&) const = default;
};

}  // namespace tarsil
