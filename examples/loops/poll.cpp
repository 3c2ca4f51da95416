// A host whose loop is plain poll().

#include <poll.h>

#include <tarsil/runtime/RunLoop.hpp>

#include "Walk.hpp"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Walk walk(argv[1]);
  pollfd due{.fd = tarsil::RunLoop::main().descriptor(), .events = POLLIN, .revents = 0};
  while (!walk.isOver()) {
    poll(&due, 1, -1);
    tarsil::RunLoop::main().processDue();
  }
  return walk.exitCode();
}
