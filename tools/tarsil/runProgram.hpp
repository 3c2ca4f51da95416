#pragma once

namespace tarsil::cli {

/// The whole program but main(): reads the command line, runs the command, and says in one line on standard
/// error what went wrong. Returns the exit code. Main thread.
int runProgram(int argc, const char* const* argv);

}  // namespace tarsil::cli
