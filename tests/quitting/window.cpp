// A program with a window that shows what it hears, and quits with its port open.

#include <QApplication>
#include <QLabel>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdio>
#include <memory>

#include <tarsil/core/StressECGDeviceManager.hpp>
#include <tarsil/runtime/RunLoop.hpp>

#include "TerminalPort.hpp"

using namespace tarsil;

namespace {

struct Host : KivStressPortDelegate {
  explicit Host(QLabel& own) : label(own) {}
  void portWasOpened() override {
    show("opened");
    QTimer::singleShot(0, [] { QApplication::quit(); });
  }
  void portWasRemovedFromSystem() override { show("unplugged"); }

  void show(const char* text) {
    std::puts(text);
    label.setText(text);
  }

  QLabel& label;
};

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  const TerminalPort terminal("treadmill");
  QLabel label("closed");
  label.show();

  QSocketNotifier due(RunLoop::main().descriptor(), QSocketNotifier::Read);
  QObject::connect(&due, &QSocketNotifier::activated, [] { RunLoop::main().processDue(); });

  auto& station = StressECGDeviceManager::share();
  station.getDeviceByType("Treadmill");
  station.getPort(false);
  const auto host = std::make_shared<Host>(label);
  station.delegate = host;
  station.getSelected("TM-400V2", PortType::device)->kiv_delegate = host;
  station.selectedPort("treadmill", PortType::device);
  station.openPort(PortType::device);
  const int code = QApplication::exec();
  std::printf("quit with %d\n", code);
  return code;
}
