#include "tools/tarsil/report/reportText.hpp"

#include <fmt/format.h>

#include <chrono>

namespace tarsil::cli {

double inSeconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

std::string hexText(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += fmt::format("{:02x}", byte);
  return text;
}

std::string markup(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
    }
  }
  return escaped;
}

}  // namespace tarsil::cli
