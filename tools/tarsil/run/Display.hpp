#pragma once

#include <string>

namespace tarsil::cli {

/// What the terminal that a person looks at can show, and what that person wants, as the environment says it.
struct Display {
  /// It can be drawn on: neither "dumb" nor unnamed.
  bool canBeDrawnOn = true;
  /// NO_COLOR is not set.
  bool hasColours = true;
  /// The locale is one of UTF-8.
  bool hasUtf8 = true;

  static Display ofEnvironment();

  /// The text with characters that it can show.
  std::string shown(const std::string& text) const;
};

}  // namespace tarsil::cli
