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
  /// A port could not be opened, or a device did not answer the connection check. Nothing was moved.
  portNotOpened = 3,
  /// A port vanished in the middle; what moved was stopped as far as a port was left to stop it through.
  portVanished = 4,
  /// Stopped by a signal or a key before its end.
  interrupted = 5,
  /// It ran to its end, but something that the devices owed did not come, or an error came.
  somethingMissing = 6,
  /// The report could not be written; the exercise went on to its end.
  reportFailed = 7,
  /// A protective stop, or a device that was not seen to stop.
  deviceFault = 8,
};

}  // namespace tarsil::cli
