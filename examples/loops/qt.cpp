// A host whose loop is Qt's.

#include <QCoreApplication>
#include <QSocketNotifier>
#include <tarsil/runtime/RunLoop.hpp>

#include "Walk.hpp"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  if (argc != 2) return 2;
  Walk walk(argv[1]);
  QSocketNotifier due(tarsil::RunLoop::main().descriptor(), QSocketNotifier::Read);
  QObject::connect(&due, &QSocketNotifier::activated, [&] {
    tarsil::RunLoop::main().processDue();
    if (walk.isOver()) QCoreApplication::exit(walk.exitCode());
  });
  return QCoreApplication::exec();
}
