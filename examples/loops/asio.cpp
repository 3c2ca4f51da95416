// A host whose loop is Asio's.

#include <asio.hpp>
#include <tarsil/runtime/RunLoop.hpp>

#include "Walk.hpp"

namespace {

void pump(asio::posix::stream_descriptor& due, Walk& walk) {
  due.async_wait(asio::posix::stream_descriptor::wait_read, [&](const asio::error_code& error) {
    if (error) return;
    tarsil::RunLoop::main().processDue();
    if (!walk.isOver()) pump(due, walk);
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Walk walk(argv[1]);
  asio::io_context context;
  asio::posix::stream_descriptor due(context, tarsil::RunLoop::main().descriptor());
  pump(due, walk);
  context.run();
  due.release();  // the descriptor belongs to the run loop
  return walk.exitCode();
}
