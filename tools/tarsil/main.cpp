// The command line of the library; docs/man/tarsil.1 describes it.

#include "tools/tarsil/runProgram.hpp"

int main(int argc, char** argv) {
  return tarsil::cli::runProgram(argc, argv);
}
