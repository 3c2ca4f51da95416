#include "tools/tarsil/runProgram.hpp"

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/commands.hpp"
#include "tools/tarsil/completion/completions.hpp"
#include "tools/tarsil/parseErrorText.hpp"

namespace tarsil::cli {
namespace {

int complain(ExitCode code, const std::string& line) {
  std::fprintf(stderr, "tarsil: %s\n", line.c_str());
  return code;
}

// What was printed has to arrive: a full disk must not look like success.
void flushOutput() {
  std::cout.flush();
  if (std::cout && std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  throw CommandFailure(ExitCode::failed, "cannot write to standard output");
}

}  // namespace

int runProgram(int argc, const char* const* argv) {
  CLI::App program("Drives, simulates and replays the devices of an ECG stress-test station.", "tarsil");
  program.set_version_flag("--version", TARSIL_VERSION);
  program.require_subcommand(1);

  const auto all = commands();
  ExitCode code = ExitCode::succeeded;
  for (const auto& command : all) {
    auto* const declared = program.add_subcommand(command->name(), command->summary());
    command->declare(*declared);
    declared->callback([&code, &command] { code = command->run(); });
  }

  // Asked by shells while a person types; it is no command of theirs.
  if (argc > 1 && std::string_view(argv[1]) == "complete") {
    for (const std::string& word : completions(program, {argv + 2, argv + argc})) std::cout << word << '\n';
    return succeeded;
  }
  try {
    program.parse(argc, argv);
    flushOutput();
    return code;
  } catch (const CLI::Success& help) {
    return program.exit(help);
  } catch (const CLI::ParseError& error) {
    return complain(ExitCode::badInput, parseErrorText(error, program));
  } catch (const CommandFailure& failure) {
    return complain(failure.code(), failure.what());
  } catch (const std::exception& error) {
    return complain(ExitCode::failed, error.what());
  }
}

}  // namespace tarsil::cli
