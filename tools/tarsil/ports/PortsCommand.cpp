#include "tools/tarsil/ports/PortsCommand.hpp"

#include <iostream>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/ports/PortPrinter.hpp"

namespace tarsil::cli {

void PortsCommand::declare(CLI::App& command) {
  command.add_flag("--watch", watch_,
                   "List the ports, then print each arrival (+) and removal (-), until interrupted");
  command.add_flag("--json", json_, "Print a JSON list; with --watch a JSON line for each port and event");
}

ExitCode PortsCommand::run() {
  if (watch_) {
    watch();
  } else {
    list();
  }
  return ExitCode::succeeded;
}

void PortsCommand::list() const {
  const PortPrinter printer(std::cout, json_ ? PortPrinter::Style::json : PortPrinter::Style::text);
  printer.list(SerialDeviceRegistry::shared()->devices());
}

void PortsCommand::watch() const {
  const Interruption interruption([] { RunLoop::main().stop(); });
  const PortPrinter printer(std::cout, json_ ? PortPrinter::Style::json : PortPrinter::Style::text);
  const auto registry = SerialDeviceRegistry::shared();
  const auto stopWhenNobodyReads = [] {
    if (!std::cout) RunLoop::main().stop();
  };
  const auto observation = registry->watch({.arrived =
                                                [&](const SerialDeviceRegistry::Devices& devices) {
                                                  printer.arrived(devices);
                                                  stopWhenNobodyReads();
                                                },
                                            .removed =
                                                [&](const SerialDeviceRegistry::Devices& devices) {
                                                  printer.removed(devices);
                                                  stopWhenNobodyReads();
                                                }});
  if (json_) {
    printer.arrived(registry->devices());
  } else {
    printer.list(registry->devices());
  }
  if (std::cout) RunLoop::main().run();
}

}  // namespace tarsil::cli
