// A host whose loop is GLib's, as in any GTK program.

#include <glib-unix.h>
#include <glib.h>

#include <tarsil/runtime/RunLoop.hpp>

#include "Walk.hpp"

namespace {

struct Program {
  GMainLoop* loop;
  Walk walk;
};

gboolean processDue(gint /*descriptor*/, GIOCondition /*condition*/, gpointer data) {
  auto& program = *static_cast<Program*>(data);
  tarsil::RunLoop::main().processDue();
  if (program.walk.isOver()) g_main_loop_quit(program.loop);
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Program program{g_main_loop_new(nullptr, FALSE), Walk(argv[1])};
  g_unix_fd_add(tarsil::RunLoop::main().descriptor(), G_IO_IN, processDue, &program);
  g_main_loop_run(program.loop);
  g_main_loop_unref(program.loop);
  return program.walk.exitCode();
}
