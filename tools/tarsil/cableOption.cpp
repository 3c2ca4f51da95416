#include "tools/tarsil/cableOption.hpp"

#include <stdexcept>

#include "tools/tarsil/CommandFailure.hpp"

namespace tarsil::cli {

void addCableOption(CLI::App& command, std::string& words) {
  words = simulators::usualCable().text();
  command
      .add_option(
          "--cable", words,
          "What the cable does to the bytes, such as adapter,lose=1/200: words of wire, adapter, gentle, "
          "latency=, packet=, delay=, split=, join=, lose=, double=, change=, add=, mute=, seed=")
      ->capture_default_str();
}

simulators::CableBehaviour cableBehaviour(const std::string& words) {
  try {
    return simulators::CableBehaviour::read(words);
  } catch (const std::invalid_argument& refused) {
    throw CommandFailure(badInput, refused.what());
  }
}

}  // namespace tarsil::cli
