#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tarsil {

/// The check over the tokens of a frame's text, which blanks stand between.
template <class Crc>
Crc crcOf(std::string_view frame) {
  Crc crc;
  while (!frame.empty()) {
    const std::string_view token = frame.substr(0, frame.find(' '));
    crc.add(token);
    frame.remove_prefix(std::min(token.size() + 1, frame.size()));
  }
  return crc;
}

inline std::string withoutBlanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

}  // namespace tarsil
