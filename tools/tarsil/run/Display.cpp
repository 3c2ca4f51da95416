#include "tools/tarsil/run/Display.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tarsil::cli {
namespace {

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

/// The first of these variables that is not empty names the locale.
bool isUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    std::string locale = variable(name);
    if (locale.empty()) continue;
    std::transform(locale.begin(), locale.end(), locale.begin(),
                   [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter; });
    return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return false;
}

constexpr std::array substitutes{std::pair<std::string_view, char>{"█", '#'},
                                 std::pair<std::string_view, char>{"░", '.'},
                                 std::pair<std::string_view, char>{"–", '-'}};

}  // namespace

Display Display::ofEnvironment() {
  const std::string terminal = variable("TERM");
  return {.canBeDrawnOn = !terminal.empty() && terminal != "dumb",
          .hasColours = variable("NO_COLOR").empty(),
          .hasUtf8 = isUtf8()};
}

std::string Display::shown(const std::string& text) const {
  if (hasUtf8) return text;
  std::string plain;
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      plain += text[i++];
      continue;
    }
    const auto* const known = std::find_if(substitutes.begin(), substitutes.end(), [&](const auto& entry) {
      return std::string_view(text).substr(i).starts_with(entry.first);
    });
    plain += known == substitutes.end() ? '?' : known->second;
    for (++i; i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80;) ++i;
  }
  return plain;
}

}  // namespace tarsil::cli
