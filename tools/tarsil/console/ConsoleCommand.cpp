#include "tools/tarsil/console/ConsoleCommand.hpp"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <variant>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/console/Console.hpp"
#include "tools/tarsil/console/Prompt.hpp"
#include "tools/tarsil/exerciseModel.hpp"
#include "tools/tarsil/run/PrintedLines.hpp"
#include "tools/tarsil/run/chosenPort.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

constexpr Duration heartbeatInterval = 100ms;
constexpr Duration promptInterval = 500ms;
/// Ports open within moments, or somebody has to do something.
constexpr Duration longestOpening = 5s;
/// The station itself alarms after 15 s without a standstill.
constexpr Duration longestStop = 20s;

bool mayMove(const GuardedStation& station) {
  return station.state() == GuardedStation::State::running ||
         station.state() == GuardedStation::State::stopping;
}

}  // namespace

void ConsoleCommand::declare(CLI::App& command) {
  command.add_option("DEVICE", device_, "MODEL@PORT")->required();
  command.add_option("--bp", bp_, "Port of a Tango blood-pressure monitor");
  command.add_option("--spo2", spo2_, "Port of a MEDXING pulse oximeter");
}

GuardedStation::Plan ConsoleCommand::plan() const {
  const std::size_t at = device_.find('@');
  if (at == std::string::npos) throw CommandFailure(badInput, "name the device and its port: MODEL@PORT");
  GuardedStation::Plan plan{.exercise = {.model = exerciseModel(device_.substr(0, at)).name,
                                         .port = chosenPort(device_.substr(at + 1))}};
  if (!bp_.empty()) plan.monitor = chosenPort(bp_);
  if (!spo2_.empty()) plan.oximeter = chosenPort(spo2_);
  return plan;
}

ExitCode ConsoleCommand::run() {
  std::signal(SIGPIPE, SIG_IGN);
  const GuardedStation::Plan asked = plan();
  int interruptions = 0;
  const Interruption interruption([&] { ++interruptions; });
  PrintedLines printed;
  const auto opened = GuardedStation::open(asked);
  if (!opened) throw CommandFailure(badInput, opened.answer().reason());
  GuardedStation& station = *opened.station();
  printed.setStation(opened.station());

  std::string lineFailure;
  station.onEvent([&](const Event& event) {
    if (const auto* failed = std::get_if<LineFailed>(&event.what)) lineFailure = failed->text;
  });
  const auto heartbeat = Timer::scheduled(heartbeatInterval, true, [&](Timer&) { station.alive(); });
  const auto wait = [&](const auto& condition, Duration longest) {
    RunLoop::main().runUntil(condition, longest);
  };
  wait([&] { return station.readiness().isAccepted() || !lineFailure.empty() || interruptions > 0; },
       longestOpening);
  const bool isOpen = station.state() != GuardedStation::State::opening;

  if (isOpen && interruptions == 0) {
    bool hasEnded = false;
    std::optional<Console> console;
    Prompt prompt([&](const std::string& line) { console->take(line); }, [&] { hasEnded = true; });
    console.emplace(station, exerciseModel(asked.exercise.model),
                    [&prompt](const std::string& line) { prompt.print(line); });
    bool isListening = true;
    station.onEvent([&console, &isListening](const Event& event) {
      if (isListening) console->hear(event);
    });
    const auto showValues = [&] {
      prompt.setText(fmt::format("{} {:<27}> ", asked.exercise.model, console->values()));
    };
    const auto refresh = Timer::scheduled(promptInterval, true, [&](Timer&) { showValues(); });
    prompt.print("help lists the commands; quit, Ctrl-D and Ctrl-C stop what moves and leave");
    showValues();
    wait([&] { return interruptions > 0 || console->isLeft() || (hasEnded && console->isIdle()); },
         24h * 365);
    refresh->invalidate();
    const int before = interruptions;
    if (mayMove(station)) prompt.print("stopping: Ctrl-C again leaves at once, and the watcher goes on");
    // It stops what moves first.
    station.close();
    wait([&] { return station.isClosed() || interruptions > before; }, longestStop);
    isListening = false;
  }
  const bool wasLeftMoving = mayMove(station);
  station.close();
  wait([&] { return station.isClosed(); }, wasLeftMoving ? 0s : 3s);
  heartbeat->invalidate();

  if (!isOpen)
    throw CommandFailure(portNotOpened, lineFailure.empty() ? "the port did not open" : lineFailure);
  if (wasLeftMoving)
    throw CommandFailure(deviceFault, asked.exercise.model + " was not seen to stand: look at it");
  if (interruptions > 0) throw CommandFailure(interrupted, "interrupted");
  return succeeded;
}

}  // namespace tarsil::cli
