// A script of any lines: each is an operation that is carried out, or refused with a reason; nothing else is
// thrown, and every event can be written as a line.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tools/tarsil/replay/ReplaySession.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"

using namespace tarsil;

namespace {

/// Every minute of a script has its polls and refreshes; a fuzzer would ask for years of them.
bool takesTooLong(const cli::Operation& operation) {
  return operation.name() == "advance" && operation["s"].seconds() > 30;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  cli::ReplaySession session([](const cli::Json& event) {
    expect(event.is_array() && !event.empty() && event[0].is_string());
    expect(!event.dump(-1, ' ', false, cli::Json::error_handler_t::replace).empty());
  });
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string line(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    try {
      const auto operation = cli::Operation::read(line);
      if (!takesTooLong(operation)) session.perform(operation);
    } catch (const cli::ScriptError& refused) {
      expect(!std::string_view(refused.what()).empty());
    }
  }
  return 0;
}
