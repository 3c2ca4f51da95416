#pragma once

namespace tarsil::cli {

/// How the program ends; docs/man/tarsil.1 says the same to its users.
enum ExitCode : int {
  /// Everything asked for was done.
  succeeded = 0,
  /// The work could not be finished: the system refused something, output could not be written.
  failed = 1,
  /// Unknown command, option, model or value, or input that cannot be read. Nothing was moved.
  badInput = 2,
};

}  // namespace tarsil::cli
