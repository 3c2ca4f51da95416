#include "tools/tarsil/report/reportText.hpp"

#include <chrono>

namespace tarsil::cli {

double inSeconds(Duration duration) {
  return std::chrono::duration<double>(duration).count();
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
