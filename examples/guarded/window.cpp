// A host with a window (Qt 5 or 6) and a stop button, in another process, that works while it is frozen.

#include <QApplication>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>
#include <tarsil/guard/GuardedStation.hpp>
#include <tarsil/platform/VirtualDeviceRegistry.hpp>
#include <tarsil/runtime/RunLoop.hpp>

#include <atomic>
#include <cstdio>
#include <thread>

using namespace std::chrono_literals;
using namespace tarsil;

namespace {

/// The other process. It ends with the host.
int showStopButton() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  QPushButton button("STOP");
  button.setWindowTitle("Stop button");
  button.setWindowFlag(Qt::WindowStaysOnTopHint);
  button.setFixedSize(240, 120);
  QObject::connect(&button, &QPushButton::pressed, [] { std::fputs("stop\n", stdout); });
  const QSocketNotifier hostEnds(fileno(stdin), QSocketNotifier::Read);
  QObject::connect(&hostEnds, &QSocketNotifier::activated, &QApplication::quit);
  button.show();
  return QApplication::exec();
}

/// A button that has gone counts as pressed.
void passStopsOn(const QString& program, GuardedStation& station, const std::atomic<bool>& isOver) {
  QProcess button;
  button.start(program, {"--stop-button"});
  while (button.state() != QProcess::NotRunning && !isOver) {
    if (button.waitForReadyRead(100) && !button.readAll().isEmpty()) station.stopNow();
  }
  if (!isOver) station.stopNow();
  button.closeWriteChannel();
  button.waitForFinished();
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
  QApplication application(argc, argv);
  const auto words = QApplication::arguments();
  if (words.contains("--stop-button")) return showStopButton();
  if (words.size() != 2) qFatal("usage: %s /dev/ttyUSB0", argv[0]);
  VirtualDeviceRegistry::shared()->add(words[1].toStdString(), "treadmill");
  // A window may be busy for moments; the stop button does not wait for it.
  const auto opened = GuardedStation::open({.exercise = {"LodeTreadmill", "treadmill"}, .heartbeat = 5s});
  if (!opened) qFatal("%s", opened.answer().reason().c_str());
  const auto station = opened.station();
  std::atomic<bool> isOver = false;
  std::thread stopButton([&] { passStopsOn(words[0], *station, isOver); });
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
  isOver = true;
  stopButton.join();
}
