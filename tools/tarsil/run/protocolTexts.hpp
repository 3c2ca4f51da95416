#pragma once

#include <span>
#include <string_view>

namespace tarsil::cli {

/// A protocol file that was built into the program.
struct ProtocolText {
  std::string_view name;
  std::string_view text;
};

/// The files of tools/tarsil/protocols, in the order of their names; made when the program is built.
std::span<const ProtocolText> protocolTexts();

}  // namespace tarsil::cli
