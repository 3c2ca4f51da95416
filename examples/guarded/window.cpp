// A host with a window (Qt 5 or 6) and a stop button, in another process, that works while it is frozen.

#include <sys/socket.h>
#include <unistd.h>
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>
#include <tarsil/guard/GuardedStation.hpp>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>
#include <tarsil/runtime/RunLoop.hpp>

#include <array>
#include <thread>

using namespace std::chrono_literals;
using namespace tarsil;

namespace {

/// The other process. It ends with the host.
int showStopButton(int host) {
  QPushButton button("STOP");
  button.setWindowTitle("Stop button");
  button.setWindowFlag(Qt::WindowStaysOnTopHint);
  button.setFixedSize(240, 120);
  QObject::connect(&button, &QPushButton::pressed, [=] { static_cast<void>(write(host, "s", 1)); });
  const QSocketNotifier hostEnds(host, QSocketNotifier::Read);
  QObject::connect(&hostEnds, &QSocketNotifier::activated, &QApplication::quit);
  button.show();
  return QApplication::exec();
}

/// A button that has gone counts as pressed.
void passStopsOn(int button, GuardedStation& station) {
  for (char pressed = 0; read(button, &pressed, 1) == 1;) station.stopNow();
  station.stopNow();
}

QString textOf(const GuardedStation& station) {
  QString text = name(station.state());
  if (const auto speed = station.readings().speed; speed.isFresh())
    text += QString(", %1 km/h").arg(static_cast<double>(speed.value));
  for (const AlarmKind alarm : station.alarms()) text += QString("\n%1").arg(name(alarm));
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) qFatal("usage: %s /dev/ttyUSB0", argv[0]);
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) qFatal("no sockets");
  // Before Qt has threads: they open pipes that a child must not keep open.
  const bool isButton = fork() == 0;
  const int other = ends[isButton ? 1 : 0];
  close(ends[isButton ? 0 : 1]);
  const QApplication application(argc, argv);
  if (isButton) return showStopButton(other);
  VirtualDeviceRegistry::shared()->add(argv[1], "treadmill");
  // A window may be busy for moments; the stop button does not wait for it.
  const auto opened = GuardedStation::open({.exercise = {"LodeTreadmill", "treadmill"}, .heartbeat = 5s});
  if (!opened) qFatal("%s", opened.answer().reason().c_str());
  const auto station = opened.station();
  std::thread stops([&] { passStopsOn(other, *station); });
  QWidget window;
  window.setWindowTitle("Treadmill");
  QVBoxLayout column(&window);
  QLabel label;
  QPushButton walk("Walk");
  QPushButton freeze("Freeze this window for a minute");
  column.addWidget(&label);
  column.addWidget(&walk);
  column.addWidget(&freeze);
  QObject::connect(&walk, &QPushButton::clicked, [&] {
    if (station->start().isAccepted()) static_cast<void>(station->setLoad({.speed = 2.7F, .grade = 10}));
  });
  QObject::connect(&freeze, &QPushButton::clicked, [] { std::this_thread::sleep_for(1min); });
  QApplication::setQuitOnLastWindowClosed(false);
  QObject::connect(&application, &QApplication::lastWindowClosed, [&] { station->close(); });
  window.show();
  QSocketNotifier due(RunLoop::main().descriptor(), QSocketNotifier::Read);
  QObject::connect(&due, &QSocketNotifier::activated, [] { RunLoop::main().processDue(); });
  QTimer heartbeat;
  QObject::connect(&heartbeat, &QTimer::timeout, [&] {
    station->alive();
    label.setText(textOf(*station));
    if (station->isClosed()) QApplication::quit();
  });
  heartbeat.start(100);
  QApplication::exec();
  shutdown(other, SHUT_RDWR);
  stops.join();
}
