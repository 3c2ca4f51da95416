#include "tools/tarsil/replay/ReplayCommand.hpp"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <string_view>
#include <system_error>

#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/replay/ReplaySession.hpp"
#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {
namespace {

constexpr const char* standardInput = "-";

bool isSkipped(std::string_view line) {
  return line.starts_with('#') || line.find_first_not_of(" \t\r") == std::string_view::npos;
}

void printEvent(const Json& event) {
  std::cout << event.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n' << std::flush;
  if (!std::cout) throw CommandFailure(ExitCode::failed, "cannot write to standard output");
}

}  // namespace

void ReplayCommand::declare(CLI::App& command) {
  command.add_option("FILE", file_, "Script of JSON lines; - reads standard input")->required();
  command.add_flag("--ops", ops_, "Print [\"op#\",n] before the events of operation n, counted from 0");
}

ExitCode ReplayCommand::run() {
  if (file_ == standardInput) {
    replay(std::cin, "standard input");
    return ExitCode::succeeded;
  }
  std::ifstream script(file_);
  if (!script)
    throw CommandFailure(ExitCode::badInput,
                         "cannot read " + file_ + ": " + std::generic_category().message(errno));
  replay(script, file_);
  return ExitCode::succeeded;
}

void ReplayCommand::replay(std::istream& script, const std::string& scriptName) const {
  ReplaySession session(printEvent);
  std::string line;
  std::size_t lineNumber = 0;
  std::size_t operationNumber = 0;
  while (std::getline(script, line)) {
    ++lineNumber;
    if (isSkipped(line)) continue;
    try {
      const auto operation = Operation::read(line);
      if (ops_) printEvent(Json::array({"op#", operationNumber}));
      ++operationNumber;
      session.perform(operation);
    } catch (const ScriptError& error) {
      throw CommandFailure(ExitCode::badInput,
                           scriptName + ":" + std::to_string(lineNumber) + ": " + error.what());
    }
  }
  if (script.bad()) throw CommandFailure(ExitCode::badInput, "cannot read " + scriptName + " to its end");
}

}  // namespace tarsil::cli
