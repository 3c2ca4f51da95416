#include "tools/tarsil/run/protocolNamed.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <ios>
#include <iterator>
#include <system_error>

#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/run/protocolTexts.hpp"

namespace tarsil::cli {

namespace {

std::string textOf(const std::string& path) {
  std::ifstream file(path);
  std::string text;
  const auto fail = [&](const std::string& reason) {
    throw CommandFailure(badInput, fmt::format("cannot read the protocol \"{}\": {}", path, reason));
  };
  if (!file) fail(std::generic_category().message(errno) + didYouMean(path, builtInProtocols()));
  try {
    text.assign(std::istreambuf_iterator<char>(file), {});
  } catch (const std::ios_base::failure&) {
    // A folder, say: it opens, and cannot be read.
    fail(std::generic_category().message(errno));
  }
  return text;
}

}  // namespace

std::vector<std::string> builtInProtocols() {
  std::vector<std::string> names;
  for (const ProtocolText& entry : protocolTexts()) names.emplace_back(entry.name);
  return names;
}

std::string_view builtInProtocolText(const std::string& name) {
  for (const ProtocolText& entry : protocolTexts()) {
    if (entry.name == name) return entry.text;
  }
  throw CommandFailure(badInput, fmt::format("no protocol is called \"{}\"; see `tarsil protocols`{}", name,
                                             didYouMean(name, builtInProtocols())));
}

Protocol protocolNamed(const std::string& nameOrFile) try {
  for (const ProtocolText& entry : protocolTexts()) {
    if (entry.name == nameOrFile) return readProtocol(entry.text, nameOrFile);
  }
  return readProtocol(textOf(nameOrFile), nameOrFile);
} catch (const ProtocolError& error) {
  throw CommandFailure(badInput, error.what());
}

}  // namespace tarsil::cli
