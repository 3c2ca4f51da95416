#include "tools/tarsil/simulate/SimulateCommand.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <optional>

#include "simulators/devices/simulatedDevices.hpp"
#include "simulators/lines/Orders.hpp"
#include "simulators/lines/PseudoTerminalLine.hpp"
#include "simulators/lines/deviceOrders.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/cableOption.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/numberBetween.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;
using simulators::obeyDeviceOrder;
using simulators::Patient;
using simulators::SimulatedDevice;

constexpr std::string_view refusal = "refuse=";

void printList() {
  Patient patient;
  std::cout << "MODEL              FAULTS\n";
  for (const std::string& model : simulators::simulatedModels()) {
    const auto device = simulators::makeSimulatedDevice(model, patient);
    std::string faults = "silence, noise, drop";
    for (const std::string& code : device->refusalCodes()) faults += fmt::format(", {}{}", refusal, code);
    std::cout << fmt::format("{:<18} {}\n", model, faults);
  }
}

}  // namespace

void SimulateCommand::declare(CLI::App& command) {
  command.add_option("MODEL", model_, "A model of --list");
  command.add_flag("--list", list_, "Print the models and the faults of each");
  command.add_option("--fault", faults_,
                     "silence, noise, drop (one byte), or refuse=CODE; may be given several times");
  command
      .add_option("--physics-effort", effort_, "Effort of the patient on a monitor, in metabolic equivalents")
      ->check(numberBetween(1, 25));
  addCableOption(command, cable_);
  command.add_flag("--orders", orders_, "Obey orders on standard input, and end with it");
}

ExitCode SimulateCommand::run() {
  if (list_) {
    printList();
    return succeeded;
  }
  Patient patient;
  patient.setEffort(effort_);
  const auto device = simulators::makeSimulatedDevice(model_, patient);
  if (!device)
    throw CommandFailure(badInput, fmt::format("no model \"{}\" is simulated; see --list{}", model_,
                                               didYouMean(model_, simulators::simulatedModels())));
  applyFaults(*device);

  const Interruption interruption([] { RunLoop::main().stop(); });
  simulators::PseudoTerminalLine line(*device, cableBehaviour(cable_));
  std::optional<simulators::Orders> orders;
  if (orders_) {
    orders.emplace(STDIN_FILENO, line.hostEnd(), [&](const std::string& order, const std::string& argument) {
      return obeyDeviceOrder(*device, patient, order, argument);
    });
  }
  const auto body = Timer::scheduled(100ms, true, [&](Timer&) { patient.advance(100ms); });
  std::cout << line.hostEnd().path() << std::endl;
  RunLoop::main().run();
  body->invalidate();
  return succeeded;
}

void SimulateCommand::applyFaults(SimulatedDevice& device) const {
  for (const std::string& fault : faults_) {
    const auto codes = device.refusalCodes();
    const std::string code = fault.starts_with(refusal) ? fault.substr(refusal.size()) : std::string();
    if (fault == "silence") {
      device.beSilent(true);
    } else if (fault == "noise") {
      device.beNoisy(true);
    } else if (fault == "drop") {
      device.dropAByte();
    } else if (std::find(codes.begin(), codes.end(), code) != codes.end()) {
      device.refuseCommands(code);
    } else {
      throw CommandFailure(badInput, fmt::format("{} has no fault \"{}\"; see --list", model_, fault));
    }
  }
}

}  // namespace tarsil::cli
