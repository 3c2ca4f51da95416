#include "tools/tarsil/run/protocolNamed.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/run/protocolTexts.hpp"

namespace tarsil::cli {

std::vector<std::string> builtInProtocols() {
  std::vector<std::string> names;
  for (const ProtocolText& entry : protocolTexts()) names.emplace_back(entry.name);
  return names;
}

Protocol protocolNamed(const std::string& nameOrFile) try {
  for (const ProtocolText& entry : protocolTexts()) {
    if (entry.name == nameOrFile) return readProtocol(entry.text, nameOrFile);
  }
  std::ifstream file(nameOrFile);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) {
    throw CommandFailure(
        badInput, fmt::format("cannot read the protocol \"{}\": {}", nameOrFile, std::strerror(errno)));
  }
  return readProtocol(text, nameOrFile);
} catch (const ProtocolError& error) {
  throw CommandFailure(badInput, error.what());
}

}  // namespace tarsil::cli
